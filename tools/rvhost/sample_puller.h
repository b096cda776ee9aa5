#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "common/exit_codes.h"
#include "platform/unique_handle.h"
#include "rvhost/camera.h"
#include "rvhost/host_report.h"
#include "rvhost/options.h"
#include "rvhost/preview_window.h"
#include "rvhost/sample_recorder.h"
#include "rvhost/sample_silence.h"

namespace ravlo {

/// Pulls samples from one camera on the thread that calls Run, and lets another thread watch and stop it.
class SamplePuller {
public:
    explicit SamplePuller(HostOptions options);

    /// Opens the camera and pulls until the end. Sets FinishedEvent on return. Call once.
    void Run() noexcept;

    /// Any thread: no sample after the current one, and then the files are completed in `haste`.
    void Stop(Haste haste) noexcept;

    /// Any thread, after Stop: completes the files in place of a thread that does not come back from a read, and sets
    /// FinishedEvent.
    void FinishInstead() noexcept;

    /// Signalled when all files are written; mostly Run has ended then.
    HANDLE FinishedEvent() const noexcept { return m_finished.Get(); }

    /// Signalled when the user has closed the preview.
    HANDLE WindowClosedEvent() const noexcept { return m_windowClosed.Get(); }

    /// Any thread: steady time, in units of 100 ns, of the last progress.
    std::int64_t LastProgress() const noexcept { return m_lastProgress.load(); }

    /// Any thread: how long, in units of 100 ns, a camera that works may stay silent.
    std::int64_t LongestSilence() const noexcept { return m_longestSilence.load(); }

    /// Any thread: what was seen so far; nothing before the camera runs.
    std::optional<HostReport> Report() const;

    /// Any thread: reports every failure on standard error. The result is Ok only for a run with samples and without
    /// any failure.
    ExitCode Conclude();

private:
    void Attempt(void (SamplePuller::*step)()) noexcept;
    void Pull();
    void FinishFiles();
    void Begin(const FrameGeometry& geometry);
    void OpenPreview(const FrameGeometry& geometry);
    bool IsEnough() const;
    void TakeSample(IMFSample& sample);
    void Fail(ExitCode code, const std::string& sentence) noexcept;

    const HostOptions m_options;
    UniqueObject m_finished;
    UniqueObject m_windowClosed;
    std::atomic<bool> m_stop{false};
    std::atomic<std::int64_t> m_lastProgress;
    std::atomic<std::int64_t> m_longestSilence{LongestSilenceAt(0)};

    // Pulling thread only.
    Moment m_start{};
    std::unique_ptr<PreviewWindow> m_preview;
    std::unique_ptr<SampleRecorder> m_owned;

    std::atomic<SampleRecorder*> m_recorder{nullptr};  ///< m_owned for all threads, once it is there

    std::mutex m_mutex;
    ExitCode m_code = ExitCode::Ok;
    std::vector<std::string> m_problems;
};

}  // namespace ravlo
