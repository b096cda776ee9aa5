#include "rvhost/sample_puller.h"

#include <windows.h>

#include <mfapi.h>

#include <exception>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

#include "common/clock.h"
#include "common/media_platform.h"
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

/// Files may take longer than the camera may stay silent: a time of progress that no clock reaches.
constexpr std::int64_t kNeverSilent = INT64_MAX / 2;

/// The bytes of a sample for as long as this lives.
class LockedBuffer {
public:
    explicit LockedBuffer(IMFSample& sample) {
        if (FAILED(sample.ConvertToContiguousBuffer(m_buffer.Put())) ||
            FAILED(m_buffer->Lock(&m_data, nullptr, &m_length))) {
            throw ProgramError(ExitCode::Failure, "a sample's picture cannot be read");
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
      m_windowClosed(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_lastProgress(SteadyTicks()) {
    if (!m_finished || !m_windowClosed) {
        throw ProgramError(ExitCode::Failure, "the system refused an event");
    }
}

void SamplePuller::Run() noexcept {
    Attempt(&SamplePuller::Pull);
    Attempt(&SamplePuller::FinishFiles);  // a camera that has failed has left pictures too
    m_preview.reset();  // last: an ending Windows session waits for the window, and only as long as there is one
    SetEvent(m_finished.Get());
}

void SamplePuller::Stop(Haste haste) noexcept {
    m_stop.store(true);
    if (SampleRecorder* const recorder = m_recorder.load()) {
        recorder->Hurry(haste);
    }
}

void SamplePuller::FinishInstead() noexcept {
    Attempt(&SamplePuller::FinishFiles);
    SetEvent(m_finished.Get());
}

void SamplePuller::Attempt(void (SamplePuller::*step)()) noexcept {
    try {
        (this->*step)();
    } catch (const ProgramError& error) {
        Fail(error.Code(), error.what());
    } catch (const std::bad_alloc&) {
        Fail(ExitCode::Failure, "out of memory");
    } catch (const std::exception& error) {
        Fail(ExitCode::Failure, error.what());
    }
}

void SamplePuller::Pull() {
    const MediaPlatform platform;
    Camera camera({m_options.geometry, m_options.pipeName, m_options.dll});
    Begin(camera.Geometry());
    while (!m_stop.load() && !IsEnough()) {
        if (const ComPtr<IMFSample> sample = camera.ReadSample()) {
            TakeSample(*sample.Get());
        }
        m_lastProgress.store(SteadyTicks());
    }
}

void SamplePuller::FinishFiles() {
    m_lastProgress.store(kNeverSilent);
    if (SampleRecorder* const recorder = m_recorder.load()) {
        for (const std::string& problem : recorder->FinishFiles()) {
            Fail(ExitCode::Failure, problem);
        }
    }
}

void SamplePuller::Begin(const FrameGeometry& geometry) {
    m_longestSilence.store(LongestSilenceAt(SampleDuration(geometry)));
    if (m_options.preview) {
        OpenPreview(geometry);
    }
    m_start = {MFGetSystemTime(), SteadyTicks()};
    m_owned = std::make_unique<SampleRecorder>(m_options, geometry, m_start, UnixMs());
    m_recorder.store(m_owned.get());
}

void SamplePuller::OpenPreview(const FrameGeometry& geometry) {
    m_lastProgress.store(kNeverSilent);  // a desktop that takes its time is not the camera's silence
    try {
        m_preview = std::make_unique<PreviewWindow>(geometry, "Ravlo camera", m_windowClosed.Get());
    } catch (const std::runtime_error& error) {
        throw ProgramError(ExitCode::Failure,
                           std::string(error.what()) + "; leave --preview out where there is no desktop");
    }
    m_lastProgress.store(SteadyTicks());
}

bool SamplePuller::IsEnough() const {
    if (m_options.lengthMs && SteadyTicks() - m_start.steady >= *m_options.lengthMs * kTicksPerMs) {
        return true;
    }
    return m_options.frames && m_owned->Samples() >= *m_options.frames;
}

void SamplePuller::TakeSample(IMFSample& sample) {
    // The first is of the clock that stamps the samples, so that the difference means something on every system.
    const Moment arrival{MFGetSystemTime(), SteadyTicks()};
    LONGLONG time = 0;
    if (FAILED(sample.GetSampleTime(&time))) {
        throw ProgramError(ExitCode::Failure, "a sample carries no time");
    }
    const LockedBuffer buffer(sample);
    const PreviewFacts facts = m_owned->Take({buffer.Bytes(), time, arrival});
    if (m_preview) {
        m_preview->Offer(buffer.Bytes(), facts);
    }
}

void SamplePuller::Fail(ExitCode code, const std::string& sentence) noexcept {
    const std::lock_guard lock(m_mutex);
    if (m_code == ExitCode::Ok) {  // what failed first is the cause
        m_code = code;
    }
    try {
        m_problems.push_back(sentence);
    } catch (const std::bad_alloc&) {
        return;  // the code still tells that something failed
    }
}

std::optional<HostReport> SamplePuller::Report() const {
    const SampleRecorder* const recorder = m_recorder.load();
    return recorder == nullptr ? std::nullopt : std::optional(recorder->Report(SteadyTicks()));
}

ExitCode SamplePuller::Conclude() {
    const SampleRecorder* const recorder = m_recorder.load();
    const std::lock_guard lock(m_mutex);
    for (const std::string& problem : m_problems) {
        Say(problem);
    }
    if (m_code != ExitCode::Ok) {
        return m_code;
    }
    const HostReport report = recorder == nullptr ? HostReport{} : recorder->Report(SteadyTicks());
    if (report.samples == 0) {
        Say("the camera delivered no sample");
        return ExitCode::Failure;
    }
    if (report.gridErrors != 0) {
        Say("sample times have left the grid");
        return ExitCode::Failure;
    }
    return ExitCode::Ok;
}

}  // namespace ravlo
