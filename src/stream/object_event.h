#pragma once

#include <windows.h>

#include <cguid.h>
#include <mfobjects.h>
#include <propidl.h>

namespace ravlo {

/// Queues a successful event whose value is `object`; the event takes a reference of its own.
inline HRESULT QueueObjectEvent(IMFMediaEventQueue* queue, MediaEventType type, IUnknown* object) noexcept {
    PROPVARIANT value{};
    value.vt = VT_UNKNOWN;
    value.punkVal = object;
    object->AddRef();
    const HRESULT hr = queue->QueueEventParamVar(type, GUID_NULL, S_OK, &value);
    PropVariantClear(&value);
    return hr;
}

}  // namespace ravlo
