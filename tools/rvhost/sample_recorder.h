#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "rvhost/host_report.h"
#include "rvhost/options.h"
#include "rvhost/picture_cadence.h"
#include "rvhost/picture_worker.h"
#include "rvhost/png_file.h"
#include "rvhost/preview_facts.h"
#include "rvhost/rate_meter.h"
#include "rvhost/sample_csv.h"
#include "rvhost/sample_statistics.h"
#include "rvhost/stamp_statistics.h"
#include "rvhost/y4m_recorder.h"
#include "stream/geometry.h"

namespace ravlo {

/// One moment on the clocks that matter, in units of 100 ns.
struct Moment {
    std::int64_t sampleClock;  ///< of the clock that stamps samples
    std::int64_t steady;       ///< SteadyTicks(), which the stamps of the test card count in
};

/// One sample as the reader hands it over.
struct ArrivedSample {
    std::span<const std::uint8_t> bytes;
    std::int64_t time;  ///< of the clock that stamps samples
    Moment arrival;
};

/// Takes the samples of one run: judges and counts them, and keeps of them what the user asked for. What costs time is
/// done on other threads.
class SampleRecorder {
public:
    /// Makes the files that grow with the run. `startUnixMs` is the wall clock at `start`. Throws ProgramError.
    SampleRecorder(const HostOptions& options, const FrameGeometry& geometry, const Moment& start,
                   std::int64_t startUnixMs);

    /// Takes the next sample into account, and says what there is to know about it. Throws ProgramError when the sample is
    /// no frame of the geometry. One thread.
    PreviewFacts Take(const ArrivedSample& sample);

    /// Completes all files but the one with a line a sample. The sentences say what failed; none when all went well.
    /// Pictures of the end are written with `effort`. The thread of Take, after the last one.
    std::vector<std::string> FinishFiles(PngEffort effort = PngEffort::Small);

    /// Any thread: completes the file with a line a sample. False when it could not be written.
    bool FlushCsv();

    /// Any thread: what was seen so far. `now` is SteadyTicks().
    HostReport Report(std::int64_t now) const;

    /// Any thread.
    std::uint64_t Samples() const;

private:
    void Keep(const ArrivedSample& sample, PictureKind kind);
    void WriteSnapshot(PngEffort effort);

    const HostOptions m_options;
    const FrameGeometry m_geometry;
    const Moment m_start;

    // The taking thread only.
    PictureCadence m_cadence;
    std::vector<std::uint8_t> m_last;  ///< the newest picture, if it may become the snapshot

    // Made before the first sample; both are safe on any thread.
    std::unique_ptr<PictureWorker> m_pictures;
    std::unique_ptr<Y4mRecorder> m_y4m;

    mutable std::mutex m_mutex;
    SampleStatistics m_statistics;
    StampStatistics m_stamps;
    RateMeter m_rate;
    std::optional<SampleCsv> m_csv;
};

}  // namespace ravlo
