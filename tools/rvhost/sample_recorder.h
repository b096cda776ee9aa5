#pragma once

#include <atomic>
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

/// How little time there is at the end of a run.
enum class Haste : std::uint8_t {
    Soon,  ///< somebody waits: pictures that are not written yet are not compressed
    Now,   ///< there is hardly any: video frames that are not written yet are dropped too
};

/// Takes the samples of one run: judges and counts them, and keeps of them what the user asked for. What costs time is
/// done on other threads.
class SampleRecorder {
public:
    /// Makes the files that grow with the run. `startUnixMs` is the wall clock at `start`. Throws ProgramError.
    SampleRecorder(const HostOptions& options, const FrameGeometry& geometry, const Moment& start,
                   std::int64_t startUnixMs);

    /// Takes the next sample into account, and says what there is to know about it. Throws ProgramError when the sample
    /// is no frame of the geometry. One thread. Does nothing once FinishFiles has been called.
    PreviewFacts Take(const ArrivedSample& sample);

    /// Any thread: completes all files, once a sample that is being taken is done with. The sentences say what failed;
    /// none when all went well, and none from the second call on.
    std::vector<std::string> FinishFiles();

    /// Any thread, and never waits for a disk: there is not as much time for the files as it takes.
    void Hurry(Haste haste) noexcept;

    /// Any thread, and never waits for a disk: what was seen so far. `now` is SteadyTicks().
    HostReport Report(std::int64_t now) const;

    /// Any thread.
    std::uint64_t Samples() const;

private:
    void Keep(const ArrivedSample& sample, PictureKind kind);
    PreviewFacts Count(const ArrivedSample& sample, PictureKind kind);
    void WriteSnapshot();

    const HostOptions m_options;
    const FrameGeometry m_geometry;
    const Moment m_start;
    std::atomic<PngEffort> m_effort{PngEffort::Small};

    /// Held while a sample is taken, and while the files are completed.
    std::mutex m_taking;
    bool m_isFinished = false;
    std::optional<SampleCsv> m_csv;
    PictureCadence m_cadence;
    std::vector<std::uint8_t> m_last;  ///< the newest picture, if it may become the snapshot

    // Made before the first sample; both are safe on any thread.
    std::unique_ptr<PictureWorker> m_pictures;
    std::unique_ptr<Y4mRecorder> m_y4m;

    mutable std::mutex m_mutex;  ///< of what follows; held for moments only
    SampleStatistics m_statistics;
    StampStatistics m_stamps;
    RateMeter m_rate;
};

}  // namespace ravlo
