// The virtual camera functions of the stand-in. A started camera activates the registered class in this process, with
// the attributes that were set on it, as the camera service would in its own.
#include <windows.h>

#include <mfapi.h>
#include <mferror.h>
#include <mfidl.h>
#include <objbase.h>

#include "rvclient/virtual_camera_api.h"

#include <memory>
#include <new>
#include <string>
#include <utility>

#include "attribute_face.h"
#include "platform/com_ptr.h"
#include "sample_watch.h"
#include "stage.h"

namespace ravlo::standin {
namespace {

/// Adds to what `target` holds; CopyAllItems would replace what the source has published.
HRESULT AddAllItems(IMFAttributes& from, IMFAttributes& target) {
    UINT32 count = 0;
    HRESULT hr = from.GetCount(&count);
    for (UINT32 i = 0; i < count && SUCCEEDED(hr); ++i) {
        GUID key{};
        PROPVARIANT value;
        PropVariantInit(&value);
        hr = from.GetItemByIndex(i, &key, &value);
        if (SUCCEEDED(hr)) {
            hr = target.SetItem(key, value);
        }
        PropVariantClear(&value);
    }
    return hr;
}

class VirtualCamera final : public AttributeFace<IMFVirtualCamera> {
public:
    VirtualCamera(ComPtr<IMFAttributes> store, const CLSID& sourceClass)
        : AttributeFace(std::move(store)), m_sourceClass(sourceClass) {}
    ~VirtualCamera() override { End(); }

    HRESULT STDMETHODCALLTYPE AddDeviceSourceInfo(LPCWSTR info) override {
        return Enter(L"AddDeviceSourceInfo", info ? info : L"(null)");
    }

    HRESULT STDMETHODCALLTYPE AddProperty(const DEVPROPKEY* /*key*/, DEVPROPTYPE type, const BYTE* /*data*/,
                                          ULONG size) override {
        return Enter(L"AddProperty", L"type=" + std::to_wstring(type) + L" size=" + std::to_wstring(size));
    }

    HRESULT STDMETHODCALLTYPE AddRegistryEntry(LPCWSTR name, LPCWSTR /*subkey*/, DWORD type, const BYTE* /*data*/,
                                               ULONG size) override {
        return Enter(L"AddRegistryEntry", (name ? name : L"(null)") + (L" type=" + std::to_wstring(type)) + L" size=" +
                                              std::to_wstring(size));
    }

    HRESULT STDMETHODCALLTYPE Start(IMFAsyncCallback* callback) override {
        const HRESULT staged = Enter(L"Start", callback ? L"callback" : L"no callback");
        if (FAILED(staged)) {
            return staged;
        }
        if (m_isShutDown) {
            return MF_E_SHUTDOWN;
        }
        return m_source ? S_OK : Activate();
    }

    HRESULT STDMETHODCALLTYPE Stop() override { return EndAfter(Enter(L"Stop")); }
    HRESULT STDMETHODCALLTYPE Remove() override { return EndAfter(Enter(L"Remove")); }

    HRESULT STDMETHODCALLTYPE GetMediaSource(IMFMediaSource** source) override {
        const HRESULT staged = Enter(L"GetMediaSource");
        if (FAILED(staged)) {
            return staged;
        }
        if (!source) {
            return E_POINTER;
        }
        *source = ComPtr<IMFMediaSource>(m_source).Detach();
        return *source ? S_OK : MF_E_INVALIDREQUEST;
    }

    // Nobody here has a property or an event to offer.
    HRESULT STDMETHODCALLTYPE SendCameraProperty(REFGUID, ULONG, ULONG, void*, ULONG, void*, ULONG, ULONG*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CreateSyncEvent(REFGUID, ULONG, ULONG, HANDLE, IMFCameraSyncObject**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CreateSyncSemaphore(REFGUID, ULONG, ULONG, HANDLE, LONG, IMFCameraSyncObject**) override {
        return E_NOTIMPL;
    }

    HRESULT STDMETHODCALLTYPE Shutdown() override {
        const HRESULT staged = Enter(L"Shutdown");
        m_isShutDown = true;
        return EndAfter(staged);
    }

private:
    HRESULT Activate() {
        ComPtr<IMFActivate> activate;
        HRESULT hr = CoCreateInstance(m_sourceClass, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IMFActivate),
                                      reinterpret_cast<void**>(activate.Put()));
        if (SUCCEEDED(hr)) {
            hr = AddAllItems(Store(), *activate.Get());
        }
        if (SUCCEEDED(hr)) {
            hr = activate->ActivateObject(__uuidof(IMFMediaSource), reinterpret_cast<void**>(m_source.Put()));
        }
        if (FAILED(hr)) {
            Record(L"# the source cannot be activated");
            return hr;
        }
        Record(L"# source activated");
        if (IsAsked(L"RAVLO_STANDIN_PULL")) {
            m_watch = std::make_unique<SampleWatch>(m_source.Get());
        }
        return S_OK;
    }

    HRESULT EndAfter(HRESULT staged) {
        if (SUCCEEDED(staged)) {
            End();
        }
        return staged;
    }

    void End() {
        m_watch.reset();
        if (m_source) {
            m_source->Shutdown();  // a reader that went before has done so already
            m_source.Reset();
            Record(L"# source shut down");
        }
    }

    const CLSID m_sourceClass;
    ComPtr<IMFMediaSource> m_source;
    std::unique_ptr<SampleWatch> m_watch;
    bool m_isShutDown = false;
};

HRESULT Create(LPCWSTR sourceId, IMFVirtualCamera** camera) {
    CLSID sourceClass{};
    if (FAILED(CLSIDFromString(sourceId, &sourceClass))) {
        return E_INVALIDARG;
    }
    ComPtr<IMFAttributes> store;
    if (const HRESULT hr = MFCreateAttributes(store.Put(), 4); FAILED(hr)) {
        return hr;
    }
    *camera = new (std::nothrow) VirtualCamera(std::move(store), sourceClass);
    return *camera ? S_OK : E_OUTOFMEMORY;
}

}  // namespace
}  // namespace ravlo::standin

extern "C" HRESULT WINAPI MFCreateVirtualCamera(ravlo::VirtualCameraType type, ravlo::VirtualCameraLifetime lifetime,
                                                ravlo::VirtualCameraAccess access, LPCWSTR friendlyName,
                                                LPCWSTR sourceId, const GUID* categories, ULONG categoryCount,
                                                IMFVirtualCamera** camera) {
    if (!friendlyName || !sourceId || !camera) {
        return E_POINTER;
    }
    *camera = nullptr;
    const std::wstring arguments = L"type=" + std::to_wstring(static_cast<int>(type)) + L" lifetime=" +
                                   std::to_wstring(static_cast<int>(lifetime)) + L" access=" +
                                   std::to_wstring(static_cast<int>(access)) + L" name=" + friendlyName + L" source=" +
                                   sourceId + L" categories=" + (categories ? L"" : L"null,") +
                                   std::to_wstring(categoryCount);
    const HRESULT staged = ravlo::standin::Enter(L"MFCreateVirtualCamera", arguments);
    return FAILED(staged) ? staged : ravlo::standin::Create(sourceId, camera);
}

extern "C" HRESULT WINAPI MFIsVirtualCameraTypeSupported(ravlo::VirtualCameraType type, BOOL* supported) {
    if (!supported) {
        return E_POINTER;
    }
    *supported = FALSE;
    const HRESULT staged =
        ravlo::standin::Enter(L"MFIsVirtualCameraTypeSupported", L"type=" + std::to_wstring(static_cast<int>(type)));
    if (SUCCEEDED(staged)) {
        *supported = ravlo::standin::IsAsked(L"RAVLO_STANDIN_NO_VIRTUAL_CAMERA") ? FALSE : TRUE;
    }
    return staged;
}
