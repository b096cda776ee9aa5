#include "rvhost/sample_puller.h"

#include <windows.h>

#include <mfapi.h>

#include <cstdio>
#include <exception>
#include <limits>
#include <new>
#include <span>
#include <utility>

#include "common/clock.h"
#include "common/messages.h"

namespace ravlo {
namespace {

/// 1 January 1970 in FILETIME's count from 1601, in units of 100 ns.
constexpr std::int64_t kUnixEpoch = 116'444'736'000'000'000;

std::int64_t UnixMs() noexcept {
    FILETIME now{};
    GetSystemTimePreciseAsFileTime(&now);
    const std::int64_t ticks =
        static_cast<std::int64_t>(now.dwHighDateTime) << 32 | static_cast<std::int64_t>(now.dwLowDateTime);
    return (ticks - kUnixEpoch) / kTicksPerMs;
}

/// COM and Media Foundation for one thread.
class MediaPlatform {
public:
    MediaPlatform() {
        if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
            throw CameraError(ExitCode::UnsupportedSystem, "COM could not be started");
        }
        if (FAILED(MFStartup(MF_VERSION, MFSTARTUP_FULL))) {
            CoUninitialize();
            throw CameraError(ExitCode::UnsupportedSystem, "Media Foundation could not be started");
        }
    }
    MediaPlatform(const MediaPlatform&) = delete;
    MediaPlatform& operator=(const MediaPlatform&) = delete;
    ~MediaPlatform() {
        MFShutdown();
        CoUninitialize();
    }
};

/// The bytes of a sample for as long as this lives.
class LockedBuffer {
public:
    explicit LockedBuffer(IMFSample& sample) {
        if (FAILED(sample.ConvertToContiguousBuffer(m_buffer.Put())) ||
            FAILED(m_buffer->Lock(&m_data, nullptr, &m_length))) {
            throw CameraError(ExitCode::Failure, "a sample's picture cannot be read");
        }
    }
    LockedBuffer(const LockedBuffer&) = delete;
    LockedBuffer& operator=(const LockedBuffer&) = delete;
    ~LockedBuffer() { m_buffer->Unlock(); }

    std::span<const std::uint8_t> Bytes() const noexcept { return {m_data, m_length}; }

private:
    ComPtr<IMFMediaBuffer> m_buffer;
    BYTE* m_data = nullptr;
    DWORD m_length = 0;
};

}  // namespace

SamplePuller::SamplePuller(HostOptions options)
    : m_options(std::move(options)),
      m_finished(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_lastProgress(SteadyTicks()) {
    if (!m_finished) {
        throw CameraError(ExitCode::Failure, "the system refused an event");
    }
}

void SamplePuller::Run() noexcept {
    Attempt(&SamplePuller::Pull);
    Attempt(&SamplePuller::FinishPictures);  // a camera that has failed has left pictures too
    SetEvent(m_finished.Get());
}

void SamplePuller::Attempt(void (SamplePuller::*step)()) noexcept {
    try {
        (this->*step)();
    } catch (const CameraError& error) {
        Fail(error.Code(), error.what());
    } catch (const std::bad_alloc&) {
        Fail(ExitCode::Failure, "out of memory");
    } catch (const std::exception& error) {
        Fail(ExitCode::Failure, error.what());
    }
}

void SamplePuller::Pull() {
    const MediaPlatform platform;
    Camera camera(m_options.camera);
    Begin(camera.Geometry());
    while (!m_stop.load() && !IsEnough(MFGetSystemTime() - m_start)) {
        if (const ComPtr<IMFSample> sample = camera.ReadSample()) {
            TakeSample(*sample.Get());
        }
        m_lastProgress.store(SteadyTicks());
    }
    // Before the camera is closed, which may take longer than an interrupted program has left.
    FinishPictures();
}

void SamplePuller::FinishPictures() {
    if (!m_pictures) {
        return;
    }
    // Nobody waits for the camera meanwhile, so its silence means nothing.
    const std::int64_t longestSilence = m_longestSilence.exchange(std::numeric_limits<std::int64_t>::max());
    m_pictures->Finish();
    m_lastProgress.store(SteadyTicks());
    m_longestSilence.store(longestSilence);
    const std::string note = m_pictures->SheetNote();
    if (!note.empty()) {
        Say(note);
    }
    const std::string error = m_pictures->Error();
    if (!error.empty()) {
        Fail(ExitCode::Failure, error);
    }
    m_pictures.reset();
}

void SamplePuller::Begin(const FrameGeometry& geometry) {
    m_geometry = geometry;
    m_longestSilence.store(LongestSilenceAt(SampleDuration(geometry)));
    if (!m_options.pictureDirectory.empty() || !m_options.contactSheet.empty()) {
        m_pictures = std::make_unique<PictureWorker>(
            PictureOptions{m_options.pictureDirectory, m_options.contactSheet, m_options.pictureWidth}, geometry);
    }
    const std::lock_guard lock(m_mutex);
    m_start = MFGetSystemTime();
    m_statistics.emplace(SampleDuration(geometry));
    if (!m_options.samplesCsv.empty()) {
        m_csv.emplace(m_options.samplesCsv, m_start, UnixMs());
        if (!m_csv->IsOpen()) {
            throw CameraError(ExitCode::Failure, "cannot write " + m_options.samplesCsv);
        }
    }
}

bool SamplePuller::IsEnough(std::int64_t elapsed) const {
    if (m_options.lengthMs && elapsed >= *m_options.lengthMs * kTicksPerMs) {
        return true;
    }
    const std::lock_guard lock(m_mutex);
    return m_options.frames && m_statistics->Samples() >= *m_options.frames;
}

void SamplePuller::TakeSample(IMFSample& sample) {
    // The clock that stamps the samples, so that the difference means something on every system.
    const std::int64_t arrival = MFGetSystemTime();
    LONGLONG sampleTime = 0;
    if (FAILED(sample.GetSampleTime(&sampleTime))) {
        throw CameraError(ExitCode::Failure, "a sample carries no time");
    }
    const PictureKind kind = Look(sample, arrival - m_start);
    const std::lock_guard lock(m_mutex);
    const SampleRecord record = m_statistics->Add(arrival, sampleTime, kind);
    if (m_csv) {
        m_csv->Write(record);
    }
}

PictureKind SamplePuller::Look(IMFSample& sample, std::int64_t elapsed) {
    const LockedBuffer buffer(sample);
    if (buffer.Bytes().size() != FrameBytes(m_geometry)) {
        throw CameraError(ExitCode::Failure, "a sample holds " + std::to_string(buffer.Bytes().size()) +
                                                 " bytes instead of " + std::to_string(FrameBytes(m_geometry)));
    }
    const PictureKind kind = JudgePicture(buffer.Bytes(), m_geometry);
    const std::int64_t elapsedMs = elapsed / kTicksPerMs;
    if (m_pictures && elapsedMs >= m_nextPictureMs) {
        m_pictures->Offer(buffer.Bytes(), elapsedMs, kind);
        m_nextPictureMs = (elapsedMs / m_options.pictureEveryMs + 1) * m_options.pictureEveryMs;
        const std::lock_guard lock(m_mutex);
        m_droppedPictures = m_pictures->Dropped();
    }
    return kind;
}

void SamplePuller::Fail(ExitCode code, const std::string& sentence) {
    const std::lock_guard lock(m_mutex);
    if (m_code == ExitCode::Ok) {  // what failed first is the cause
        m_code = code;
        m_problem = sentence;
    }
}

ExitCode SamplePuller::Summarize() {
    const std::lock_guard lock(m_mutex);
    if (m_statistics) {
        PrintSummary();
    }
    if (m_csv && !m_csv->Flush()) {
        Say("cannot write " + m_options.samplesCsv);
        return ExitCode::Failure;
    }
    if (m_code != ExitCode::Ok) {
        Say(m_problem);
        return m_code;
    }
    if (!m_statistics || m_statistics->Samples() == 0) {
        Say("the camera delivered no sample");
        return ExitCode::Failure;
    }
    if (m_statistics->GridErrors() != 0) {
        Say("sample times have left the grid");
        return ExitCode::Failure;
    }
    return ExitCode::Ok;
}

void SamplePuller::PrintSummary() const {
    const SampleStatistics& seen = *m_statistics;
    const auto ms = [&seen](std::size_t percent) {
        return static_cast<double>(seen.Lateness(percent)) / static_cast<double>(kTicksPerMs);
    };
    std::printf(
        "geometry:         %ux%u at %u/%u\n"
        "samples:          %llu\n"
        "live:             %llu\n"
        "pattern:          %llu\n"
        "grid errors:      %llu\n"
        "skipped periods:  %llu\n"
        "dropped pictures: %llu\n"
        "lateness:         p50 %.1f ms, p99 %.1f ms\n",
        m_geometry.width, m_geometry.height, m_geometry.rateNumerator, m_geometry.rateDenominator,
        static_cast<unsigned long long>(seen.Samples()), static_cast<unsigned long long>(seen.Live()),
        static_cast<unsigned long long>(seen.Pattern()), static_cast<unsigned long long>(seen.GridErrors()),
        static_cast<unsigned long long>(seen.SkippedPeriods()), static_cast<unsigned long long>(m_droppedPictures),
        ms(50), ms(99));
    std::fflush(stdout);
}

}  // namespace ravlo
