#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/unique_handle.h"
#include "rvhost/host_run.h"
#include "rvhost/picture_worker.h"
#include "rvhost/sample_csv.h"
#include "rvhost/sample_silence.h"
#include "rvhost/sample_statistics.h"

namespace ravlo {

/// Pulls samples from one camera on the thread that calls Run, and lets another thread watch and stop it.
class SamplePuller {
public:
    explicit SamplePuller(HostOptions options);

    /// Opens the camera and pulls until the end. Sets FinishedEvent on return. Call once.
    void Run() noexcept;

    /// Any thread: no sample after the current one.
    void Stop() noexcept { m_stop.store(true); }

    /// Signalled when Run has ended; all pictures are written then.
    HANDLE FinishedEvent() const noexcept { return m_finished.Get(); }

    /// Any thread: steady time, in units of 100 ns, of the last progress.
    std::int64_t LastProgress() const noexcept { return m_lastProgress.load(); }

    /// Any thread: how long, in units of 100 ns, a camera that works may stay silent.
    std::int64_t LongestSilence() const noexcept { return m_longestSilence.load(); }

    /// Any thread: prints what was seen so far on standard output and completes the CSV file. Reports every failure on
    /// standard error; the result is Ok only for a run with samples and without any failure.
    ExitCode Summarize();

private:
    void Attempt(void (SamplePuller::*step)()) noexcept;
    void Pull();
    void FinishPictures();
    void Begin(const FrameGeometry& geometry);
    bool IsEnough(std::int64_t elapsed) const;
    void TakeSample(IMFSample& sample);
    PictureKind Look(IMFSample& sample, std::int64_t elapsed);
    void Fail(ExitCode code, const std::string& sentence);
    void PrintSummary() const;

    const HostOptions m_options;
    UniqueObject m_finished;
    std::atomic<bool> m_stop{false};
    std::atomic<std::int64_t> m_lastProgress;
    std::atomic<std::int64_t> m_longestSilence{LongestSilenceAt(0)};

    // Pulling thread only.
    FrameGeometry m_geometry{};
    std::int64_t m_start = 0;  ///< of the clock that stamps samples
    std::int64_t m_nextPictureMs = 0;
    std::unique_ptr<PictureWorker> m_pictures;

    mutable std::mutex m_mutex;
    std::optional<SampleStatistics> m_statistics;
    std::optional<SampleCsv> m_csv;
    std::uint64_t m_droppedPictures = 0;
    ExitCode m_code = ExitCode::Ok;
    std::string m_problem;
};

}  // namespace ravlo
