#include "rvhost/host_run.h"

#include <windows.h>

#include <array>
#include <memory>
#include <string>
#include <thread>

#include "common/clock.h"
#include "common/messages.h"
#include "rvhost/sample_puller.h"

namespace ravlo {
namespace {

constexpr DWORD kLookUpMs = 250;
/// What the pulling thread gets to finish in order once it was told to stop; the user waits for it.
constexpr DWORD kFarewellMs = 700;

enum class Ending { Finished, Interrupted, Silent };

Ending Watch(const SamplePuller& puller, const Interrupt& interrupt) {
    const std::array<HANDLE, 2> handles{puller.FinishedEvent(), interrupt.Event()};
    for (;;) {
        switch (WaitForMultipleObjects(2, handles.data(), FALSE, kLookUpMs)) {
            case WAIT_OBJECT_0:
                return Ending::Finished;
            case WAIT_OBJECT_0 + 1:
                return Ending::Interrupted;
            default:
                if (SteadyTicks() - puller.LastProgress() > puller.LongestSilence()) {
                    return Ending::Silent;
                }
        }
    }
}

}  // namespace

ExitCode RunHost(const HostOptions& options, const Interrupt& interrupt) {
    const auto puller = std::make_shared<SamplePuller>(options);
    // Detached with a share of its own: a read that never returns cannot be taken back.
    std::thread([puller] { puller->Run(); }).detach();
    const Ending ending = Watch(*puller, interrupt);
    puller->Stop();
    const bool finished = WaitForSingleObject(puller->FinishedEvent(), kFarewellMs) == WAIT_OBJECT_0;
    const ExitCode code = puller->Summarize();
    if (!finished && (!options.pictureDirectory.empty() || !options.contactSheet.empty())) {
        Say("there was no time to finish: pictures may be incomplete");
    }
    if (ending == Ending::Silent) {
        Say("the camera has delivered nothing for " + std::to_string(puller->LongestSilence() / kTicksPerSecond) +
            " seconds");
        return ExitCode::Failure;
    }
    if (ending == Ending::Interrupted) {
        Say("interrupted");
        return ExitCode::Interrupted;
    }
    return code;
}

}  // namespace ravlo
