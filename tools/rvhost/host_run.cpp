#include "rvhost/host_run.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "common/clock.h"
#include "common/console.h"
#include "common/messages.h"
#include "rvhost/output_paths.h"
#include "rvhost/sample_puller.h"

namespace ravlo {
namespace {

constexpr DWORD kLookUpMs = 250;
constexpr std::int64_t kReportPeriod = kTicksPerSecond;
/// What the pulling thread gets to finish in order once it was told to stop. Ctrl+C means at once.
constexpr DWORD kFarewellMs = 5000;
constexpr DWORD kInterruptedFarewellMs = 700;

enum class Ending { Finished, Interrupted, WindowClosed, Silent, OutputGone };

bool WriteReport(const SamplePuller& puller, bool asJson, bool isFinal) {
    const auto report = puller.Report();
    return !report || WriteOutput(asJson ? ReportJson(*report, isFinal) : ReportText(*report));
}

/// Tells the user how the run goes: a line on the console, and JSON for a program.
class Progress {
public:
    Progress(const SamplePuller& puller, bool json)
        : m_puller(puller), m_json(json), m_hasStatus(IsErrorConsole() && !(json && IsOutputConsole())) {}

    /// Call it a few times a second. False when standard output takes nothing any more.
    bool Tell() {
        if (m_hasStatus) {
            if (const auto report = m_puller.Report()) {
                ShowStatus(StatusText(*report));
            }
        }
        const std::int64_t now = SteadyTicks();
        if (!m_json || now < m_nextJson) {
            return true;
        }
        m_nextJson = std::max(m_nextJson + kReportPeriod, now);  // on the second, but no burst after a standstill
        return WriteReport(m_puller, true, false);
    }

private:
    const SamplePuller& m_puller;
    const bool m_json;
    const bool m_hasStatus;
    std::int64_t m_nextJson = SteadyTicks() + kReportPeriod;
};

Ending Watch(const SamplePuller& puller, const Interrupt& interrupt, Progress progress) {
    const std::array<HANDLE, 3> handles{puller.FinishedEvent(), interrupt.Event(), puller.WindowClosedEvent()};
    for (;;) {
        switch (WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE, kLookUpMs)) {
            case WAIT_OBJECT_0:
                return Ending::Finished;
            case WAIT_OBJECT_0 + 1:
                return Ending::Interrupted;
            case WAIT_OBJECT_0 + 2:
                return Ending::WindowClosed;
            default:
                if (SteadyTicks() - puller.LastProgress() > puller.LongestSilence()) {
                    return Ending::Silent;
                }
                if (!progress.Tell()) {
                    return Ending::OutputGone;
                }
        }
    }
}

/// What can be found out before the camera starts.
std::string WhyNotStart(const HostOptions& options) {
    const std::string problem = WhyNotWritable(options.OutputFiles());
    return problem.empty() && !options.pictureDirectory.empty() ? WhyNoOutputFolder(options.pictureDirectory) : problem;
}

bool WritesAtTheEnd(const HostOptions& options) {
    return options.WantsPictures() || !options.snapshot.empty() || !options.y4m.empty();
}

}  // namespace

ExitCode RunHost(const HostOptions& options, const Interrupt& interrupt) {
    const std::string problem = WhyNotStart(options);
    if (!problem.empty()) {
        Say(problem);
        return ExitCode::Failure;
    }
    const auto puller = std::make_shared<SamplePuller>(options);
    // Detached with a share of its own: a read that never returns cannot be taken back.
    std::thread([puller] { puller->Run(); }).detach();
    const Ending ending = Watch(*puller, interrupt, Progress(*puller, options.json));
    puller->Stop();
    const DWORD patience = ending == Ending::WindowClosed ? kFarewellMs : kInterruptedFarewellMs;
    const bool finished = WaitForSingleObject(puller->FinishedEvent(), patience) == WAIT_OBJECT_0;
    ClearStatus();
    const bool written = WriteReport(*puller, options.json, true);
    const ExitCode code = puller->Conclude();
    if (!finished && WritesAtTheEnd(options)) {
        Say("there was no time to finish: files may be incomplete");
    }
    if (ending == Ending::Interrupted) {
        Say("interrupted");
        return ExitCode::Interrupted;
    }
    if (ending == Ending::Silent) {
        Say("the camera has delivered nothing for " + std::to_string(puller->LongestSilence() / kTicksPerSecond) +
            " seconds");
        return ExitCode::Failure;
    }
    if (ending == Ending::OutputGone || !written) {
        Say("standard output takes nothing any more; is its reader gone?");
        return ExitCode::Failure;
    }
    return code == ExitCode::Ok && !finished ? ExitCode::Failure : code;
}

}  // namespace ravlo
