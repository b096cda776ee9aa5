#include "rvhost/host_run.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "common/clock.h"
#include "common/console.h"
#include "common/messages.h"
#include "common/report_writer.h"
#include "rvhost/output_paths.h"
#include "rvhost/sample_puller.h"

namespace ravlo {
namespace {

constexpr DWORD kLookUpMs = 250;
constexpr std::int64_t kReportPeriod = kTicksPerSecond;
/// What the pulling thread gets to come back and finish in order once it was told to stop, and after that, whoever
/// completes the files. Ctrl+C means at once.
struct Patience {
    DWORD comeBackMs;
    DWORD filesMs;
};
constexpr Patience kFarewell{2000, 5000};
constexpr Patience kInterruptedFarewell{200, 500};
/// Between two looks whether the user would rather not wait for the reader of standard output.
constexpr std::chrono::milliseconds kReaderPatience{300};

enum class Ending { Finished, Interrupted, WindowClosed, Silent, OutputGone };

void PutReport(ReportWriter& output, const SamplePuller& puller, bool asJson, bool isFinal) {
    if (const auto report = puller.Report()) {
        output.Put(asJson ? ReportJson(*report, isFinal) : ReportText(*report));
    }
}

/// Tells the user how the run goes: a line on the console, and JSON for a program.
class Progress {
public:
    Progress(const SamplePuller& puller, ReportWriter& output, bool json)
        : m_puller(puller),
          m_output(output),
          m_json(json),
          m_hasStatus(IsErrorConsole() && !(json && IsOutputConsole())) {}

    /// Call it a few times a second. False when nobody reads standard output any more.
    bool Tell() {
        if (m_hasStatus) {
            if (const auto report = m_puller.Report()) {
                ShowStatus(StatusText(*report));
            }
        }
        const std::int64_t now = SteadyTicks();
        if (m_json && now >= m_nextJson) {
            m_nextJson = std::max(m_nextJson + kReportPeriod, now);  // on the second, but no burst after a standstill
            PutReport(m_output, m_puller, true, false);
        }
        return !m_output.IsReaderGone();
    }

private:
    const SamplePuller& m_puller;
    ReportWriter& m_output;
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
    return options.WantsPictures() || !options.snapshot.empty() || !options.y4m.empty() || !options.samplesCsv.empty();
}

/// Ends the run. False when the files could not be completed in time.
bool StopPulling(const std::shared_ptr<SamplePuller>& puller, bool isInterrupted) {
    const Patience patience = isInterrupted ? kInterruptedFarewell : kFarewell;
    puller->Stop(isInterrupted ? Haste::Now : Haste::Soon);
    if (WaitForSingleObject(puller->FinishedEvent(), patience.comeBackMs) == WAIT_OBJECT_0) {
        return true;
    }
    // It may sit in a read that lasts, but what has come is complete. On a thread of its own: a disk may be stuck too.
    std::thread([puller] { puller->FinishInstead(); }).detach();
    return WaitForSingleObject(puller->FinishedEvent(), patience.filesMs) == WAIT_OBJECT_0;
}

/// Waits until the reader of standard output has taken everything, or the user has had enough. False in that case, and
/// when there is no reader any more.
bool Deliver(ReportWriter& output, const Interrupt& interrupt) {
    bool isTaken = output.Flush(kReaderPatience);
    while (!isTaken && !interrupt.IsRaised()) {
        isTaken = output.Flush(kReaderPatience);
    }
    return isTaken && !output.IsReaderGone();
}

/// What went wrong besides what the pulling thread has told; Ok for nothing.
ExitCode ConcludeEnding(Ending ending, const SamplePuller& puller, bool isDelivered) {
    if (ending == Ending::Interrupted) {
        Say("interrupted");
        return ExitCode::Interrupted;
    }
    if (ending == Ending::Silent) {
        Say("the camera has delivered nothing for " + std::to_string(puller.LongestSilence() / kTicksPerSecond) +
            " seconds: rvsetup doctor tells what is wrong");
        return ExitCode::Failure;
    }
    if (!isDelivered) {
        Say("standard output takes nothing any more; is its reader gone?");
        return ExitCode::Failure;
    }
    return ExitCode::Ok;
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
    ReportWriter output([](const std::string& text) { return WriteOutput(text); });
    const Ending ending = Watch(*puller, interrupt, Progress(*puller, output, options.json));
    const bool isComplete = ending == Ending::Finished || StopPulling(puller, ending == Ending::Interrupted);
    ClearStatus();
    PutReport(output, *puller, options.json, true);
    const bool isDelivered = Deliver(output, interrupt);
    const ExitCode code = puller->Conclude();
    if (!isComplete && WritesAtTheEnd(options)) {
        Say("there was no time to finish: files may be incomplete");
    }
    const bool hadEnough = !isDelivered && interrupt.IsRaised();
    const ExitCode endingCode = ConcludeEnding(hadEnough ? Ending::Interrupted : ending, *puller, isDelivered);
    if (endingCode != ExitCode::Ok) {
        return endingCode;
    }
    return code == ExitCode::Ok && !isComplete ? ExitCode::Failure : code;
}

}  // namespace ravlo
