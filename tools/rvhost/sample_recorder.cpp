#include "rvhost/sample_recorder.h"

#include <cstddef>
#include <exception>
#include <utility>

#include "common/clock.h"
#include "common/messages.h"
#include "common/program_error.h"
#include "rvhost/nv12_rgb.h"

namespace ravlo {
namespace {

/// Frames that may wait for the disk: some seconds even of large pictures.
constexpr std::size_t kY4mQueueBytes = std::size_t{256} << 20;

DelayFigures FiguresOf(const DelayDistribution& delays) {
    return {delays.Percentile(50), delays.Percentile(90), delays.Percentile(99), delays.Largest()};
}

}  // namespace

SampleRecorder::SampleRecorder(const HostOptions& options, const FrameGeometry& geometry, const Moment& start,
                               std::int64_t startUnixMs)
    : m_options(options),
      m_geometry(geometry),
      m_start(start),
      m_cadence(options.pictureEverySamples, options.pictureEveryMs),
      m_statistics(SampleDuration(geometry)) {
    if (!options.y4m.empty()) {
        auto file = CreateOutputFile(options.y4m);
        if (!file) {
            throw ProgramError(ExitCode::Failure, "cannot write " + options.y4m);
        }
        m_y4m = std::make_unique<Y4mRecorder>(std::move(file), options.y4m, geometry, kY4mQueueBytes);
    }
    if (options.WantsPictures() || options.WantsSeries()) {
        m_pictures = std::make_unique<PictureWorker>(
            PictureOptions{options.pictureDirectory, options.contactSheet, options.pictureWidth,
                           options.pictureEverySamples ? PictureNaming::BySample : PictureNaming::ByTime,
                           options.WantsSeries() ? options.snapshot : std::string()},
            geometry);
    }
    // Last, because others take the file's appearance for the sign that the camera runs.
    if (!options.samplesCsv.empty()) {
        m_csv.emplace(options.samplesCsv, start.sampleClock, startUnixMs);
        if (!m_csv->IsOpen()) {
            throw ProgramError(ExitCode::Failure, "cannot write " + options.samplesCsv);
        }
    }
}

PreviewFacts SampleRecorder::Take(const ArrivedSample& sample) {
    if (sample.bytes.size() != FrameBytes(m_geometry)) {
        throw ProgramError(ExitCode::Failure, "a sample holds " + std::to_string(sample.bytes.size()) +
                                                  " bytes instead of " + std::to_string(FrameBytes(m_geometry)));
    }
    const std::lock_guard taking(m_taking);
    if (m_isFinished) {
        return {};
    }
    const PictureKind kind = JudgePicture(sample.bytes, m_geometry);
    Keep(sample, kind);
    return Count(sample, kind);
}

PreviewFacts SampleRecorder::Count(const ArrivedSample& sample, PictureKind kind) {
    const auto stamp = kind == PictureKind::Live ? ReadTestCardStamp(sample.bytes, m_geometry) : std::nullopt;
    PreviewFacts facts;
    facts.kind = kind;
    std::unique_lock lock(m_mutex);
    const SampleRecord record = m_statistics.Add(sample.arrival.sampleClock, sample.time, kind);
    m_rate.Add(sample.arrival.steady);
    if (stamp) {
        facts.latency = m_stamps.Add(*stamp, sample.arrival.steady);
    }
    facts.fps = m_rate.Rate(sample.arrival.steady);
    facts.lateness = m_statistics.LastLateness();
    facts.samples = m_statistics.Samples();
    lock.unlock();
    if (m_csv) {
        m_csv->Write(record);
    }
    return facts;
}

void SampleRecorder::Keep(const ArrivedSample& sample, PictureKind kind) {
    if (m_y4m) {
        m_y4m->Offer(sample.bytes);
    }
    if (!m_options.snapshot.empty()) {
        m_last.assign(sample.bytes.begin(), sample.bytes.end());
    }
    const std::int64_t elapsedMs = (sample.arrival.sampleClock - m_start.sampleClock) / kTicksPerMs;
    const std::uint64_t before = Samples();
    if (m_pictures && m_cadence.IsDue(before, elapsedMs)) {
        m_pictures->Offer(sample.bytes, {elapsedMs, before + 1, kind});
    }
}

std::vector<std::string> SampleRecorder::FinishFiles() {
    const std::lock_guard taking(m_taking);
    std::vector<std::string> problems;
    if (std::exchange(m_isFinished, true)) {
        return problems;
    }
    const auto add = [&problems](std::string problem) {
        if (!problem.empty()) {
            problems.push_back(std::move(problem));
        }
    };
    if (m_csv && !m_csv->Flush()) {
        add("cannot write " + m_options.samplesCsv);
    }
    try {
        WriteSnapshot();
    } catch (const std::exception& error) {
        add(error.what());
    }
    if (m_pictures) {
        m_pictures->Finish();
        const std::string note = m_pictures->SheetNote();
        if (!note.empty()) {
            Say(note);
        }
        add(m_pictures->Error());
    }
    if (m_y4m) {
        m_y4m->Finish();
        add(m_y4m->Problem());
    }
    return problems;
}

void SampleRecorder::Hurry(Haste haste) noexcept {
    m_effort.store(PngEffort::Quick);
    if (m_pictures) {
        m_pictures->Hurry();
    }
    if (m_y4m && haste == Haste::Now) {
        m_y4m->DropWaiting();
    }
}

void SampleRecorder::WriteSnapshot() {
    if (m_last.empty()) {
        return;
    }
    if (!WritePng(m_options.snapshot, ConvertNv12ToRgb(m_last, m_geometry), m_effort.load())) {
        throw ProgramError(ExitCode::Failure, "cannot write " + m_options.snapshot);
    }
}

HostReport SampleRecorder::Report(std::int64_t now) const {
    HostReport report;
    report.geometry = m_geometry;
    report.elapsed = now - m_start.steady;
    if (m_pictures) {
        report.droppedPictures = m_pictures->Dropped();
    }
    if (m_y4m) {
        report.y4m = Y4mReport{m_y4m->Frames(), m_y4m->Dropped()};
    }
    // The pulling thread waits for a copy only, and not for what is computed from it.
    std::unique_lock lock(m_mutex);
    const SampleStatistics seen = m_statistics;
    const StampStatistics stamps = m_stamps;
    const RateMeter rate = m_rate;
    lock.unlock();
    report.samples = seen.Samples();
    report.live = seen.Live();
    report.pattern = seen.Pattern();
    report.gridErrors = seen.GridErrors();
    report.skippedPeriods = seen.SkippedPeriods();
    report.recentRate = rate.Rate(now);
    report.meanRate = seen.MeanRate();
    report.lateness = {seen.Lateness(50), seen.Lateness(90), seen.Lateness(99), seen.Lateness(100)};
    report.latenessBuckets = seen.LatenessBuckets();
    report.stamps = {stamps.Stamped(), stamps.Repeated(), stamps.Skipped(), stamps.Latency().Count(),
                     FiguresOf(stamps.Latency())};
    return report;
}

std::uint64_t SampleRecorder::Samples() const {
    const std::lock_guard lock(m_mutex);
    return m_statistics.Samples();
}

}  // namespace ravlo
