#include "source/media_source.h"

#include <mferror.h>

#include "trace/trace.h"

// The event generator face of the source. The queue is always called without a lock, so that a blocking GetEvent cannot
// block the source.
namespace ravlo {

HRESULT RvMediaSource::GetEvent(DWORD flags, IMFMediaEvent** event) noexcept {
    RvTrace("CALL SRC.GetEvent dwFlags=0x%08X", flags);
    if (event == nullptr) {
        return RvTraceResult("SRC.GetEvent", E_POINTER);
    }
    *event = nullptr;
    const ComPtr<IMFMediaEventQueue> queue = ReferenceQueue();
    return RvTraceResult("SRC.GetEvent", queue ? queue->GetEvent(flags, event) : MF_E_SHUTDOWN);
}

HRESULT RvMediaSource::BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) noexcept {
    RvTrace("CALL SRC.BeginGetEvent pCallback=%p pState=%p", callback, state);
    const ComPtr<IMFMediaEventQueue> queue = ReferenceQueue();
    return RvTraceResult("SRC.BeginGetEvent", queue ? queue->BeginGetEvent(callback, state) : MF_E_SHUTDOWN);
}

HRESULT RvMediaSource::EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) noexcept {
    RvTrace("CALL SRC.EndGetEvent pResult=%p", result);
    if (event == nullptr) {
        return RvTraceResult("SRC.EndGetEvent", E_POINTER);
    }
    *event = nullptr;
    const ComPtr<IMFMediaEventQueue> queue = ReferenceQueue();
    if (!queue) {
        return RvTraceResult("SRC.EndGetEvent", MF_E_SHUTDOWN);
    }
    // After the shutdown test: a source that is gone says so whatever it is asked.
    return RvTraceResult("SRC.EndGetEvent", result != nullptr ? queue->EndGetEvent(result, event) : E_INVALIDARG);
}

HRESULT RvMediaSource::QueueEvent(MediaEventType type, REFGUID extendedType, HRESULT status,
                                  const PROPVARIANT* value) noexcept {
    RvTrace("CALL SRC.QueueEvent met=%u ext=%G hrStatus=0x%08X", type, &extendedType, status);
    const ComPtr<IMFMediaEventQueue> queue = ReferenceQueue();
    return RvTraceResult("SRC.QueueEvent",
                         queue ? queue->QueueEventParamVar(type, extendedType, status, value) : MF_E_SHUTDOWN);
}

}  // namespace ravlo
