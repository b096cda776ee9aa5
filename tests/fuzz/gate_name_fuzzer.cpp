#include "gate/gate_name.h"

#include "fuzz/fuzz_support.h"
#include "fuzz/name_reference.h"

// Input: the text of a name as units (see Input::WideRest).

namespace ravlo::fuzz {
namespace {

void Try(Input input) {
    const WideText text = UpToTerminator(input.WideRest());
    const bool accepted = RvIsGatePipeName(Terminated(text).data());

    Require(accepted == ReferenceIsGateName(text), "the grammar accepts exactly what it should");
    if (accepted) {
        Require(text.size() < kGateNameCapacity, "an accepted name fits the room for gate names");
        Require(!RvIsRavloPipeName(Terminated(text).data()), "no gate name is a frame-pipe name");
    }
    if (ReferenceIsPipeName(text)) {
        PipeName framePipe;
        std::copy(text.begin(), text.end(), framePipe.text);
        const GateName gate = GateNameFor(framePipe);
        Require(TextOf(gate.text) == text + u".gate", "a gate is named after its frame pipe");
        Require(RvIsGatePipeName(gate.text), "the check before creation passes the gate of every frame pipe");
    }
}

}  // namespace
}  // namespace ravlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ravlo::fuzz::Try(ravlo::fuzz::Input(data, size));
    return 0;
}
