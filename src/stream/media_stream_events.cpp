#include "stream/media_stream.h"

#include <mferror.h>

#include "trace/trace.h"

// The event generator face of the stream. The queue is always called without a lock, so that a blocking GetEvent never
// holds up the stream.
namespace ravlo {

HRESULT RvMediaStream::GetEvent(DWORD flags, IMFMediaEvent** event) noexcept {
    RvTrace("CALL STM.GetEvent dwFlags=0x%08X", flags);
    if (event == nullptr) {
        return RvTraceResult("STM.GetEvent", E_POINTER);
    }
    *event = nullptr;
    const ComPtr<IMFMediaEventQueue> queue = ReferenceQueue();
    return RvTraceResult("STM.GetEvent", queue ? queue->GetEvent(flags, event) : MF_E_SHUTDOWN);
}

HRESULT RvMediaStream::BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) noexcept {
    RvTrace("CALL STM.BeginGetEvent pCallback=%p pState=%p", callback, state);
    const ComPtr<IMFMediaEventQueue> queue = ReferenceQueue();
    return RvTraceResult("STM.BeginGetEvent", queue ? queue->BeginGetEvent(callback, state) : MF_E_SHUTDOWN);
}

HRESULT RvMediaStream::EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) noexcept {
    RvTrace("CALL STM.EndGetEvent pResult=%p", result);
    if (event == nullptr) {
        return RvTraceResult("STM.EndGetEvent", E_POINTER);
    }
    *event = nullptr;
    const ComPtr<IMFMediaEventQueue> queue = ReferenceQueue();
    if (!queue) {
        return RvTraceResult("STM.EndGetEvent", MF_E_SHUTDOWN);
    }
    // As the source does: not every queue survives being asked to end nothing.
    return RvTraceResult("STM.EndGetEvent", result != nullptr ? queue->EndGetEvent(result, event) : E_INVALIDARG);
}

HRESULT RvMediaStream::QueueEvent(MediaEventType type, REFGUID extendedType, HRESULT status,
                                  const PROPVARIANT* value) noexcept {
    RvTrace("CALL STM.QueueEvent met=%u ext=%G hrStatus=0x%08X", type, &extendedType, status);
    const ComPtr<IMFMediaEventQueue> queue = ReferenceQueue();
    return RvTraceResult("STM.QueueEvent",
                         queue ? queue->QueueEventParamVar(type, extendedType, status, value) : MF_E_SHUTDOWN);
}

}  // namespace ravlo
