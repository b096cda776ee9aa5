#include "source/media_source.h"

#include <mferror.h>

#include "trace/trace.h"

// The methods that look at the source, or refuse, without changing it.
namespace ravlo {

HRESULT RvMediaSource::GetCharacteristics(DWORD* characteristics) noexcept {
    RvTrace("CALL SRC.GetCharacteristics");
    if (characteristics == nullptr) {
        return RvTraceResult("SRC.GetCharacteristics", E_POINTER);
    }
    *characteristics = 0;
    ScopedLock lock(m_cs);
    const bool isShutDown = m_state == State::ShutDown;
    lock.Unlock();
    if (isShutDown) {
        return RvTraceResult("SRC.GetCharacteristics", MF_E_SHUTDOWN);
    }
    // Live and nothing else: no pause, no seek.
    constexpr DWORD kCharacteristics = MFMEDIASOURCE_IS_LIVE;
    *characteristics = kCharacteristics;
    RvTrace("RET SRC.GetCharacteristics chars=0x%08X hr=0x%08X", kCharacteristics, S_OK);
    return RvTraceResult("SRC.GetCharacteristics", S_OK);
}

HRESULT RvMediaSource::CreatePresentationDescriptor(IMFPresentationDescriptor** descriptor) noexcept {
    RvTrace("CALL SRC.CreatePresentationDescriptor");
    if (descriptor == nullptr) {
        return RvTraceResult("SRC.CreatePresentationDescriptor", E_POINTER);
    }
    *descriptor = nullptr;
    ScopedLock lock(m_cs);
    const bool isShutDown = m_state == State::ShutDown;
    const ComPtr<IMFPresentationDescriptor> stored = m_presentationDescriptor;
    lock.Unlock();
    if (isShutDown) {
        return RvTraceResult("SRC.CreatePresentationDescriptor", MF_E_SHUTDOWN);
    }
    // The caller selects and deselects streams on what it gets, so it gets a copy.
    return RvTraceResult("SRC.CreatePresentationDescriptor", stored ? stored->Clone(descriptor) : MF_E_NOT_INITIALIZED);
}

HRESULT RvMediaSource::Pause() noexcept {
    RvTrace("CALL SRC.Pause");
    ScopedLock lock(m_cs);
    const bool isShutDown = m_state == State::ShutDown;
    lock.Unlock();
    return RvTraceResult("SRC.Pause", isShutDown ? MF_E_SHUTDOWN : MF_E_INVALID_STATE_TRANSITION);
}

HRESULT RvMediaSource::GetSourceAttributes(IMFAttributes** attributes) noexcept {
    RvTrace("CALL SRC.GetSourceAttributes");
    if (attributes == nullptr) {
        return RvTraceResult("SRC.GetSourceAttributes", E_POINTER);
    }
    *attributes = ReferenceActivationStore().Detach();
    return RvTraceResult("SRC.GetSourceAttributes", *attributes != nullptr ? S_OK : MF_E_SHUTDOWN);
}

HRESULT RvMediaSource::GetStreamAttributes(DWORD streamId, IMFAttributes** attributes) noexcept {
    RvTrace("CALL SRC.GetStreamAttributes id=%u", streamId);
    if (attributes == nullptr) {
        return RvTraceResult("SRC.GetStreamAttributes", E_POINTER);
    }
    *attributes = nullptr;
    ScopedLock lock(m_cs);
    ComPtr<IMFAttributes> store = m_state != State::ShutDown ? m_streamAttributes : nullptr;
    lock.Unlock();
    if (!store) {
        return RvTraceResult("SRC.GetStreamAttributes", MF_E_SHUTDOWN);
    }
    if (streamId != 0) {
        return RvTraceResult("SRC.GetStreamAttributes", MF_E_INVALIDSTREAMNUMBER);
    }
    *attributes = store.Detach();
    return RvTraceResult("SRC.GetStreamAttributes", S_OK);
}

HRESULT RvMediaSource::SetD3DManager(IUnknown* manager) noexcept {
    RvTrace("CALL SRC.SetD3DManager pManager=%p", manager);
    ScopedLock lock(m_cs);
    const bool isShutDown = m_state == State::ShutDown;
    lock.Unlock();
    // Samples live in system memory only.
    return RvTraceResult("SRC.SetD3DManager", isShutDown ? MF_E_SHUTDOWN : E_NOTIMPL);
}

}  // namespace ravlo
