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
    if (options.WantsPictures()) {
        m_pictures = std::make_unique<PictureWorker>(
            PictureOptions{options.pictureDirectory, options.contactSheet, options.pictureWidth,
                           options.pictureEverySamples ? PictureNaming::BySample : PictureNaming::ByTime},
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
    PreviewFacts facts;
    facts.kind = JudgePicture(sample.bytes, m_geometry);
    Keep(sample, facts.kind);
    const auto stamp = facts.kind == PictureKind::Live ? ReadTestCardStamp(sample.bytes, m_geometry) : std::nullopt;
    const std::lock_guard lock(m_mutex);
    const SampleRecord record = m_statistics.Add(sample.arrival.sampleClock, sample.time, facts.kind);
    m_rate.Add(sample.arrival.steady);
    if (stamp) {
        facts.latency = m_stamps.Add(*stamp, sample.arrival.steady);
    }
    if (m_csv) {
        m_csv->Write(record);
    }
    facts.fps = m_rate.Rate(sample.arrival.steady);
    facts.lateness = m_statistics.LastLateness();
    facts.samples = m_statistics.Samples();
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

std::vector<std::string> SampleRecorder::FinishFiles(PngEffort effort) {
    std::vector<std::string> problems;
    const auto add = [&problems](std::string problem) {
        if (!problem.empty()) {
            problems.push_back(std::move(problem));
        }
    };
    try {
        WriteSnapshot(effort);
    } catch (const std::exception& error) {
        add(error.what());
    }
    if (m_pictures) {
        m_pictures->Finish(effort);
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

void SampleRecorder::WriteSnapshot(PngEffort effort) {
    if (m_last.empty()) {
        return;
    }
    RgbImage image{m_geometry.width, m_geometry.height, {}};
    image.pixels.resize(std::size_t{image.width} * image.height * 3);
    ConvertNv12ToRgb(m_last, m_geometry, image.pixels);
    if (!WritePng(m_options.snapshot, image, effort)) {
        throw ProgramError(ExitCode::Failure, "cannot write " + m_options.snapshot);
    }
}

bool SampleRecorder::FlushCsv() {
    const std::lock_guard lock(m_mutex);
    return !m_csv || m_csv->Flush();
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
    const std::lock_guard lock(m_mutex);
    const SampleStatistics& seen = m_statistics;
    report.samples = seen.Samples();
    report.live = seen.Live();
    report.pattern = seen.Pattern();
    report.gridErrors = seen.GridErrors();
    report.skippedPeriods = seen.SkippedPeriods();
    report.recentRate = m_rate.Rate(now);
    report.meanRate = seen.MeanRate();
    report.lateness = {seen.Lateness(50), seen.Lateness(90), seen.Lateness(99), seen.Lateness(100)};
    report.latenessBuckets = seen.LatenessBuckets();
    report.stamps = {m_stamps.Stamped(), m_stamps.Repeated(), m_stamps.Skipped(), m_stamps.Latency().Count(),
                     FiguresOf(m_stamps.Latency())};
    return report;
}

std::uint64_t SampleRecorder::Samples() const {
    const std::lock_guard lock(m_mutex);
    return m_statistics.Samples();
}

}  // namespace ravlo
