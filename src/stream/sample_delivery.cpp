#include "stream/media_stream.h"

#include <mfapi.h>
#include <mferror.h>

#include "platform/hresult.h"
#include "stream/object_event.h"
#include "stream/pacing_reports.h"
#include "stream/sample_builder.h"
#include "trace/trace.h"

// RequestSample: waits until the next sample is due, builds it and queues it. No pipe I/O happens here; a live frame
// that cannot be had costs a test pattern, never a failure.
namespace ravlo {
namespace {

constexpr std::int64_t kCallLineIntervalMs = 1000;
constexpr std::uint64_t kClampReportSamples = 300;

}  // namespace

HRESULT RvMediaStream::RequestSample(IUnknown* token) noexcept {
    CountRequest();
    TraceApartmentOnce();
    return RvTraceResult("STM.RequestSample", m_initialized ? DeliverSample(token) : MF_E_SHUTDOWN);
}

void RvMediaStream::CountRequest() noexcept {
    const std::int64_t total = m_demand.totalCalls.fetch_add(1) + 1;
    const std::uint64_t tick = GetTickCount64();
    m_demand.lastCallTick.exchange(tick);
    const auto now = static_cast<std::int64_t>(tick);
    std::int64_t last = m_lastLineTick.load();
    if ((last < 0 || now - last >= kCallLineIntervalMs) && m_lastLineTick.compare_exchange_strong(last, now)) {
        RvTrace("STM.RequestSample observed %I64d total calls (rate-limited to <=1 line/s)", total);
    }
}

void RvMediaStream::TraceApartmentOnce() noexcept {
    if (!m_apartmentTraced.exchange(true)) {
        TraceApartment("APARTMENT RequestSample");
    }
}

HRESULT RvMediaStream::DeliverSample(IUnknown* token) noexcept {
    PacingDecision decision;
    std::optional<std::uint32_t> generation;
    ComPtr<IMFMediaEventQueue> queue;
    HRESULT hr = PaceNextSample(decision, generation, queue);
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IMFSample> sample;
    hr = BuildSample(decision, m_geometry, m_framePool, sample.Put());
    if (SUCCEEDED(hr) && token != nullptr) {
        hr = sample->SetUnknown(MFSampleExtension_Token, token);
    }
    if (FAILED(hr)) {
        return hr;
    }
    ScopedLock state(m_stateLock);
    hr = CheckDeliverable(generation);
    state.Unlock();
    return SUCCEEDED(hr) ? QueueObjectEvent(queue.Get(), MEMediaSample, sample.Get()) : hr;
}

/// Waits for the next due sample and commits it to the pacer. Returns with the generation that the request belongs to
/// and a reference on the event queue.
HRESULT RvMediaStream::PaceNextSample(PacingDecision& decision, std::optional<std::uint32_t>& generation,
                                      ComPtr<IMFMediaEventQueue>& queue) noexcept {
    for (;;) {
        const std::int64_t now = MFGetSystemTime();
        ScopedLock pacing(m_pacingLock);
        ScopedLock state(m_stateLock);
        const HRESULT deliverable = CheckDeliverable(generation);
        if (FAILED(deliverable)) {
            return deliverable;
        }
        std::uint64_t stamp = 0;
        const bool fresh = m_framePool.Peek(GetTickCount64(), kFreshnessMs, stamp);
        decision = m_pacer.Decide(now, fresh, stamp);
        if (decision.kind != PacingKind::Wait) {
            m_pacer.Commit(decision);
            const std::uint64_t samples = m_pacer.Samples();
            const std::uint64_t clamps = m_pacer.Clamps();
            queue = m_eventQueue;
            state.Unlock();
            pacing.Unlock();
            if (samples % kClampReportSamples == 0) {
                TracePacingClamps(clamps, samples);
            }
            return S_OK;
        }
        const bool timerArmed = ArmTimer(decision.waitRemainder);
        // With the timer armed the time-out is only a net: requests share one timer, and one of them may miss its
        // signal.
        const DWORD timeoutMs = timerArmed ? decision.waitMs + m_pacer.WaitBoundMs() : decision.waitMs;
        state.Unlock();
        pacing.Unlock();
        const HRESULT waited = WaitForNextLook(timerArmed, timeoutMs);
        if (FAILED(waited)) {
            return waited;
        }
    }
}

/// Whether a sample may be delivered now; under the state lock. The first look of a request remembers the generation,
/// and a later one that finds another means that the stream was stopped or restarted meanwhile.
HRESULT RvMediaStream::CheckDeliverable(std::optional<std::uint32_t>& generation) const noexcept {
    if (m_state == State::ShutDown || !m_eventQueue) {
        return MF_E_SHUTDOWN;
    }
    if (m_state != State::Started) {
        return MF_E_MEDIA_SOURCE_WRONGSTATE;
    }
    if (!generation) {
        generation = m_generation;
    }
    return *generation == m_generation ? S_OK : MF_E_MEDIA_SOURCE_WRONGSTATE;
}

bool RvMediaStream::ArmTimer(std::int64_t waitRemainder) noexcept {
    if (!m_timer) {
        return false;
    }
    LARGE_INTEGER dueTime{};
    dueTime.QuadPart = waitRemainder > 1 ? -waitRemainder : -1;  // negative: relative to now
    return SetWaitableTimer(m_timer.Get(), &dueTime, 0, nullptr, nullptr, FALSE) != FALSE;
}

/// Sleeps until the sample may be due, a frame arrived or the stream stopped; whichever it was, the loop looks again.
HRESULT RvMediaStream::WaitForNextLook(bool timerArmed, DWORD timeoutMs) noexcept {
    const HANDLE handles[] = {m_notRunning.Get(), m_frameArrival.Get(), m_timer.Get()};
    const DWORD waited = WaitForMultipleObjects(timerArmed ? 3 : 2, handles, FALSE, timeoutMs);
    return waited == WAIT_FAILED ? HresultFromLastError() : S_OK;
}

}  // namespace ravlo
