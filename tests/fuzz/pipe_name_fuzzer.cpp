#include "pipe/pipe_name.h"

#include <algorithm>
#include <string>

#include "fuzz/fuzz_support.h"
#include "fuzz/name_reference.h"

// Input: the length that an attribute store reports (one byte, added to the true length as a signed number), a process
// id (4 bytes), a wait in ms (2 bytes), then the text of a name as units (see Input::WideRest).

namespace ravlo::fuzz {
namespace {

constexpr WideChar kFill = 0x5A5A;

/// A name whose room shows what was written into it.
PipeName Filled() {
    PipeName name;
    std::fill_n(name.text, kPipeNameCapacity, kFill);
    return name;
}

bool IsFilled(const PipeName& name) {
    return std::all_of(name.text, name.text + kPipeNameCapacity, [](WideChar unit) { return unit == kFill; });
}

/// Judges the name as it lies in the buffer that an attribute store wrote into. `name` is what a camera would create.
ExplicitName Judge(const WideText& text, std::uint32_t reported, PipeName& name) {
    WideChar room[kPipeNameCapacity];
    std::fill_n(room, kPipeNameCapacity, kFill);
    std::copy_n(text.begin(), std::min(text.size(), kPipeNameCapacity), room);
    if (text.size() < kPipeNameCapacity) {
        room[text.size()] = 0;
    }
    const WideText seen = UpToTerminator(text.substr(0, kPipeNameCapacity - 1));

    name = Filled();
    const ExplicitName outcome = JudgeExplicitName(room, reported, name);

    Require(room[kPipeNameCapacity - 1] == 0, "the buffer of an attribute store ends with a terminator");
    const bool plausible = reported >= seen.size() && reported < 35;
    const bool acceptable = plausible && ReferenceIsPipeName(seen);
    Require(outcome == (acceptable ? ExplicitName::Accepted : ExplicitName::Refused),
            "a published name is accepted when the grammar and its length allow it");
    if (acceptable) {
        Require(TextOf(name.text) == seen, "an accepted name is handed over as it is");
    } else {
        Require(IsFilled(name), "nothing of a refused name is handed over");
    }
    return outcome;
}

PipeNameRoute ReferenceRoute(ExplicitName outcome, std::uint32_t pid, std::uint64_t waited) {
    if (outcome == ExplicitName::Accepted) {
        return PipeNameRoute::Explicit;
    }
    if (waited >= 250 && pid > 0) {
        return PipeNameRoute::HostPid;
    }
    return waited >= 2000 ? PipeNameRoute::Singleton : PipeNameRoute::NotYet;
}

WideText ReferenceNameForPid(std::uint32_t pid) {
    const std::string base = "\\\\.\\pipe\\Ravlo";
    return Widen(pid == 0 ? base : base + "." + std::to_string(pid));
}

/// What a camera does with the outcome, up to the creation of the pipe.
void Resolve(ExplicitName outcome, const PipeName& published, std::uint32_t pid, std::uint64_t waited) {
    const PipeNameRoute route = ChoosePipeNameRoute(outcome, pid, waited);
    Require(route == ReferenceRoute(outcome, pid, waited), "the route is the strongest one whose wait is over");
    if (route == PipeNameRoute::NotYet) {
        return;
    }
    const PipeName name = route == PipeNameRoute::Explicit  ? published
                          : route == PipeNameRoute::HostPid ? PipeNameForPid(pid)
                                                            : PipeNameForPid(0);
    Require(ReferenceIsPipeName(TextOf(name.text)), "only a name within the grammar reaches creation");
    Require(RvIsRavloPipeName(name.text), "the check before creation passes every resolved name");
}

void Try(Input input) {
    const auto excess = static_cast<std::int8_t>(input.Byte());
    const std::uint32_t pid = input.Number32();
    const std::uint64_t waited = input.Number(2);
    const WideText whole = input.WideRest();
    const WideText text = UpToTerminator(whole);

    Require(RvIsRavloPipeName(Terminated(text).data()) == ReferenceIsPipeName(text),
            "the grammar accepts exactly what it should");

    const PipeName forPid = PipeNameForPid(pid);
    Require(TextOf(forPid.text) == ReferenceNameForPid(pid), "a process id has its name");

    PipeName published;
    const auto length = static_cast<std::uint32_t>(text.size());
    Resolve(Judge(whole, length + static_cast<std::uint32_t>(static_cast<std::int32_t>(excess)), published), published,
            pid, waited);
}

}  // namespace
}  // namespace ravlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ravlo::fuzz::Try(ravlo::fuzz::Input(data, size));
    return 0;
}
