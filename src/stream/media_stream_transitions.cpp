#include "stream/media_stream.h"

#include <cguid.h>
#include <mfapi.h>
#include <mferror.h>

#include <utility>

#include "platform/hresult.h"
#include "stream/pacing_reports.h"
#include "trace/trace.h"

// Start, Stop and Shutdown of the stream, and the check that precedes a Start.
namespace ravlo {

HRESULT RvMediaStream::CheckCurrentMediaType() noexcept {
    const HRESULT hr = CompareCurrentMediaType();
    return hr == MF_E_INVALIDMEDIATYPE ? RvTraceResult("STM.Start/geometry-mismatch", hr) : hr;
}

HRESULT RvMediaStream::CompareCurrentMediaType() noexcept {
    ScopedLock lock(m_stateLock);
    const ComPtr<IMFStreamDescriptor> descriptor = m_state != State::ShutDown ? m_descriptor : nullptr;
    lock.Unlock();
    if (!descriptor) {
        return MF_E_SHUTDOWN;
    }
    FrameGeometry current{};
    ComPtr<IMFMediaTypeHandler> handler;
    ComPtr<IMFMediaType> mediaType;
    HRESULT hr = descriptor->GetMediaTypeHandler(handler.Put());
    if (SUCCEEDED(hr)) {
        hr = handler->GetCurrentMediaType(mediaType.Put());
    }
    if (SUCCEEDED(hr)) {
        hr = MFGetAttributeSize(mediaType.Get(), MF_MT_FRAME_SIZE, &current.width, &current.height);
    }
    if (SUCCEEDED(hr)) {
        hr = MFGetAttributeRatio(mediaType.Get(), MF_MT_FRAME_RATE, &current.rateNumerator, &current.rateDenominator);
    }
    if (FAILED(hr)) {
        RvTrace("WARN STM.Start GetCurrentMediaType hr=0x%08X - proceeding UNVERIFIED with %ux%u @ %u/%u", hr,
                m_geometry.width, m_geometry.height, m_geometry.rateNumerator, m_geometry.rateDenominator);
        return S_OK;
    }
    if (current != m_geometry) {
        RvTrace(
            "FAIL STM.Start current media type %ux%u @ %u/%u does not match the geometry this stream was constructed "
            "with (%ux%u @ %u/%u) - a media-type change requires a NEW stream object, not a mutated one",
            current.width, current.height, current.rateNumerator, current.rateDenominator, m_geometry.width,
            m_geometry.height, m_geometry.rateNumerator, m_geometry.rateDenominator);
        return MF_E_INVALIDMEDIATYPE;
    }
    return S_OK;
}

HRESULT RvMediaStream::Start() noexcept {
    RvTrace("CALL STM.Start");
    TraceApartment("APARTMENT Start");
    const std::int64_t now = MFGetSystemTime();
    if (!IsValidGeometry(m_geometry) || FrameBytes(m_geometry) > m_framePool.Capacity()) {
        RvTrace("FAIL STM.Start geometry %ux%u needs %zu slot bytes, slots hold %zu", m_geometry.width,
                m_geometry.height, FrameBytes(m_geometry), m_framePool.Capacity());
        return RvTraceResult("STM.Start/geometry", E_UNEXPECTED);
    }
    return RvTraceResult("STM.Start", m_initialized ? RunStart(now) : MF_E_SHUTDOWN);
}

HRESULT RvMediaStream::RunStart(std::int64_t now) noexcept {
    ScopedLock pacing(m_pacingLock);
    ScopedLock state(m_stateLock);
    if (m_state == State::ShutDown || !m_eventQueue) {
        return MF_E_SHUTDOWN;
    }
    m_apartmentTraced.store(false);
    m_pacer.Reset(now, SampleDuration(m_geometry));
    m_demand.totalCalls.exchange(0);
    m_lastLineTick.exchange(-1);
    const std::uint32_t generation = ++m_generation;
    m_state = State::Stopped;
    SetEvent(m_notRunning.Get());
    const ComPtr<IMFMediaEventQueue> queue = m_eventQueue;
    state.Unlock();
    pacing.Unlock();

    const HRESULT hr = queue->QueueEventParamVar(MEStreamStarted, GUID_NULL, S_OK, nullptr);
    // Requests are accepted only once MEStreamStarted is in the queue: no sample can come before it.
    return SUCCEEDED(hr) ? EnterStarted(generation) : hr;
}

HRESULT RvMediaStream::EnterStarted(std::uint32_t generation) noexcept {
    const ScopedLock pacing(m_pacingLock);
    const ScopedLock state(m_stateLock);
    if (m_state == State::ShutDown) {
        return MF_E_SHUTDOWN;
    }
    if (m_generation != generation) {
        return MF_E_MEDIA_SOURCE_WRONGSTATE;
    }
    if (!ResetEvent(m_notRunning.Get())) {
        return HresultFromLastError();
    }
    m_state = State::Started;
    return S_OK;
}

HRESULT RvMediaStream::Stop() noexcept {
    RvTrace("CALL STM.Stop");
    return RvTraceResult("STM.Stop", m_initialized ? RunStop() : MF_E_SHUTDOWN);
}

HRESULT RvMediaStream::RunStop() noexcept {
    ScopedLock pacing(m_pacingLock);
    ScopedLock state(m_stateLock);
    if (m_state == State::ShutDown || !m_eventQueue) {
        return MF_E_SHUTDOWN;
    }
    m_state = State::Stopped;
    ++m_generation;
    SetEvent(m_notRunning.Get());
    const ComPtr<IMFMediaEventQueue> queue = m_eventQueue;
    const std::uint64_t samples = m_pacer.Samples();
    const std::uint64_t clamps = m_pacer.Clamps();
    state.Unlock();
    pacing.Unlock();

    const HRESULT hr = queue->QueueEventParamVar(MEStreamStopped, GUID_NULL, S_OK, nullptr);
    if (samples != 0) {
        TraceStopClamps(clamps, samples);
    }
    return hr;
}

HRESULT RvMediaStream::Shutdown() noexcept {
    RvTrace("CALL STM.Shutdown");
    if (!m_initialized) {
        m_state = State::ShutDown;
        return RvTraceResult("STM.Shutdown (uninitialized)", S_OK);
    }
    ScopedLock state(m_stateLock);
    if (m_state == State::ShutDown) {
        state.Unlock();
        return RvTraceResult("STM.Shutdown (repeat)", S_OK);
    }
    m_state = State::ShutDown;
    ++m_generation;
    SetEvent(m_notRunning.Get());
    ComPtr<IMFMediaEventQueue> queue = std::move(m_eventQueue);
    ComPtr<IMFMediaSource> source = std::move(m_source);
    ComPtr<IMFStreamDescriptor> descriptor = std::move(m_descriptor);
    state.Unlock();

    if (queue) {
        queue->Shutdown();
    }
    m_threads.StopPipeThreads(m_notRunning.Get());
    RvTracePipe("reader thread stopped by Shutdown");
    queue.Reset();
    source.Reset();
    descriptor.Reset();
    return RvTraceResult("STM.Shutdown", S_OK);
}

}  // namespace ravlo
