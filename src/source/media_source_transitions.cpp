#include "source/media_source.h"

#include <cguid.h>
#include <mfapi.h>
#include <mferror.h>

#include <utility>

#include "stream/object_event.h"
#include "trace/trace.h"

// Start, Stop and Shutdown of the source.
namespace ravlo {
namespace {

/// What the log shows for a start position that is not there.
constexpr unsigned kNoStartPosition = 65535;

/// Queues MESourceStarted with `status`, and with the start position when there is one to echo.
HRESULT QueueSourceStarted(IMFMediaEventQueue* queue, HRESULT status, const PROPVARIANT* startPosition) noexcept {
    PROPVARIANT value{};
    if (SUCCEEDED(status) && startPosition != nullptr && startPosition->vt == VT_I8) {
        value.vt = VT_I8;
        value.hVal = startPosition->hVal;
    }
    return queue->QueueEventParamVar(MESourceStarted, GUID_NULL, status, &value);
}

}  // namespace

HRESULT RvMediaSource::Start(IMFPresentationDescriptor* descriptor, const GUID* timeFormat,
                             const PROPVARIANT* startPosition) noexcept {
    RvTrace("CALL SRC.Start pPD=%p pguidTimeFormat=%p vt=%u", descriptor, timeFormat,
            startPosition != nullptr ? unsigned{startPosition->vt} : kNoStartPosition);
    if (!m_csInitialized) {
        return RvTraceResult("SRC.Start", MF_E_SHUTDOWN);
    }
    const ScopedLock transition(m_csTransition);
    return RvTraceResult("SRC.Start", RunStart(descriptor, timeFormat, startPosition));
}

HRESULT RvMediaSource::RunStart(IMFPresentationDescriptor* descriptor, const GUID* timeFormat,
                                const PROPVARIANT* startPosition) noexcept {
    ScopedLock lock(m_cs);
    const bool isShutDown = m_state == State::ShutDown;
    lock.Unlock();
    if (isShutDown) {
        return MF_E_SHUTDOWN;
    }
    if (descriptor == nullptr) {
        return E_INVALIDARG;
    }
    if (timeFormat != nullptr && *timeFormat != GUID_NULL) {
        RvTraceGuidHr("FAIL SRC.Start time format", timeFormat, MF_E_UNSUPPORTED_TIME_FORMAT);
        return MF_E_UNSUPPORTED_TIME_FORMAT;
    }
    if (startPosition != nullptr && startPosition->vt != VT_EMPTY && startPosition->vt != VT_I8) {
        return MF_E_UNSUPPORTED_TIME_FORMAT;
    }
    ScopedLock state(m_cs);
    if (m_state == State::ShutDown || !m_eventQueue) {
        return MF_E_SHUTDOWN;
    }
    if (!m_stream) {
        return MF_E_NOT_INITIALIZED;
    }
    const bool firstStart = !m_startedOnce;
    const ComPtr<IMFMediaEventQueue> queue = m_eventQueue;
    const ComPtr<RvMediaStream> stream = m_stream;
    state.Unlock();

    HRESULT hr = QueueObjectEvent(queue.Get(), firstStart ? MENewStream : MEUpdatedStream, stream.Get());
    if (SUCCEEDED(hr)) {
        const ScopedLock started(m_cs);
        if (m_state != State::ShutDown) {
            m_startedOnce = true;
            m_state = State::Started;
        }
    }
    if (SUCCEEDED(hr)) {
        hr = stream->CheckCurrentMediaType();
    }
    // Queued also for a failure, which it then carries: a client that waits for the start must hear of it.
    const HRESULT queued = QueueSourceStarted(queue.Get(), hr, startPosition);
    if (SUCCEEDED(hr)) {
        hr = queued;
    }
    if (SUCCEEDED(hr)) {
        hr = stream->Start();
    }
    return hr;
}

HRESULT RvMediaSource::Stop() noexcept {
    RvTrace("CALL SRC.Stop");
    if (!m_csInitialized) {
        return RvTraceResult("SRC.Stop", MF_E_SHUTDOWN);
    }
    const ScopedLock transition(m_csTransition);
    return RvTraceResult("SRC.Stop", RunStop());
}

HRESULT RvMediaSource::RunStop() noexcept {
    ScopedLock lock(m_cs);
    if (m_state == State::ShutDown || !m_eventQueue) {
        return MF_E_SHUTDOWN;
    }
    m_state = State::Stopped;
    const ComPtr<IMFMediaEventQueue> queue = m_eventQueue;
    const ComPtr<RvMediaStream> stream = m_stream;
    lock.Unlock();

    const HRESULT stopped = stream ? stream->Stop() : S_OK;
    const HRESULT queued = queue->QueueEventParamVar(MESourceStopped, GUID_NULL, stopped, nullptr);
    return FAILED(stopped) ? stopped : queued;
}

HRESULT RvMediaSource::Shutdown() noexcept {
    RvTrace("CALL SRC.Shutdown");
    if (!m_csInitialized) {
        m_state = State::ShutDown;
        return RvTraceResult("SRC.Shutdown (uninitialized)", S_OK);
    }
    ScopedLock lock(m_cs);
    if (m_state == State::ShutDown) {
        lock.Unlock();
        return RvTraceResult("SRC.Shutdown (repeat)", S_OK);
    }
    m_state = State::ShutDown;
    ComPtr<RvMediaStream> stream = std::move(m_stream);
    ComPtr<IMFMediaEventQueue> queue = std::move(m_eventQueue);
    ComPtr<IMFPresentationDescriptor> presentation = std::move(m_presentationDescriptor);
    ComPtr<IMFAttributes> streamAttributes = std::move(m_streamAttributes);
    ComPtr<IMFAttributes> sourceAttributes = std::move(m_sourceAttributes);
    const bool mfStarted = std::exchange(m_mfStarted, false);
    lock.Unlock();

    if (stream) {
        stream->Shutdown();
        stream.Reset();
    }
    if (queue) {
        queue->Shutdown();
        queue.Reset();
    }
    presentation.Reset();
    streamAttributes.Reset();
    sourceAttributes.Reset();
    if (mfStarted) {
        MFShutdown();
    }
    return RvTraceResult("SRC.Shutdown", S_OK);
}

}  // namespace ravlo
