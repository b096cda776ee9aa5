#include "faults/camera_client.h"

#include "platform/kernel_streaming.h"
#include "support/wait.h"

#include <mfapi.h>
#include <mferror.h>

#include <atomic>
#include <utility>

// The steps of the play that use every face of the camera once.
namespace ravlo::faults {
namespace {

using test::ComPtr;
using test::PropVariant;

constexpr GUID kOwnKey{0x1A2B3C4D, 0x0001, 0x0002, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr DWORD kCallbackMs = 2000;

/// Signals that an event is there; the client ends the operation itself. Born with one reference. The queue may call it
/// as late as at its shutdown, when the client has long given up.
class EventCallback final : public IMFAsyncCallback {
public:
    EventCallback() = default;
    EventCallback(const EventCallback&) = delete;
    EventCallback& operator=(const EventCallback&) = delete;

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        *object = nullptr;
        if (riid != IID_IUnknown && riid != __uuidof(IMFAsyncCallback)) {
            return E_NOINTERFACE;
        }
        AddRef();
        *object = static_cast<IMFAsyncCallback*>(this);
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }
    STDMETHODIMP GetParameters(DWORD*, DWORD*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(IMFAsyncResult* result) override {
        // The result holds this object: once nobody waits any more, keeping it would keep both for ever.
        if (!m_over.exchange(true)) {
            m_result = ComPtr<IMFAsyncResult>::Share(result);
            m_invoked = true;
        }
        return S_OK;
    }

    /// The result of the operation; empty when none came in time.
    ComPtr<IMFAsyncResult> Wait() {
        test::WaitUntil([&] { return m_invoked.load(); }, kCallbackMs, 1);
        if (m_over.exchange(true)) {
            test::WaitUntil([&] { return m_invoked.load(); }, kCallbackMs, 1);
        }
        return std::move(m_result);
    }

    /// Whatever comes now is not kept.
    void GiveUp() { m_over = true; }

private:
    ~EventCallback() = default;

    std::atomic<ULONG> m_references{1};
    std::atomic<bool> m_over{false};     ///< invoked once, or given up
    std::atomic<bool> m_invoked{false};  ///< the result is there
    ComPtr<IMFAsyncResult> m_result;
};

}  // namespace

void CameraClient::UseAttributes(IMFAttributes* store) {
    UINT32 number = 0;
    UINT64 large = 0;
    double real = 0;
    GUID guid{};
    BOOL equal = FALSE;
    MF_ATTRIBUTE_TYPE type{};
    wchar_t text[64]{};
    UINT8 bytes[4]{1, 2, 3, 4};
    PropVariant item(7);
    ComPtr<IUnknown> object;
    ComPtr<IMFAttributes> copy;
    test::Require(MFCreateAttributes(copy.Put(), 1), "MFCreateAttributes");

    Ok("LockStore", [&] { return store->LockStore(); });
    Ok("UnlockStore", [&] { return store->UnlockStore(); });
    Ok("SetUINT32", 3, [&] { return store->SetUINT32(kOwnKey, 3); });
    Ok("GetUINT32", 3, [&] { return store->GetUINT32(kOwnKey, &number); });
    Ok("GetItemType", [&] { return store->GetItemType(kOwnKey, &type); });
    Ok("GetItem", 3, [&] { return store->GetItem(kOwnKey, item.Put()); });
    Ok("CompareItem", [&] { return store->CompareItem(kOwnKey, *item.Get(), &equal); });
    Ok("SetItem", [&] { return store->SetItem(kOwnKey, *item.Get()); });
    Ok("SetUINT64", 3, [&] { return store->SetUINT64(kOwnKey, 4); });
    Ok("GetUINT64", [&] { return store->GetUINT64(kOwnKey, &large); });
    Ok("SetDouble", 3, [&] { return store->SetDouble(kOwnKey, 0.5); });
    Ok("GetDouble", [&] { return store->GetDouble(kOwnKey, &real); });
    Ok("SetGUID", 3, [&] { return store->SetGUID(kOwnKey, kOwnKey); });
    Ok("GetGUID", [&] { return store->GetGUID(kOwnKey, &guid); });
    Ok("SetString", 3, [&] { return store->SetString(kOwnKey, L"text"); });
    Ok("GetStringLength", [&] { return store->GetStringLength(kOwnKey, &number); });
    Ok("GetString", [&] { return store->GetString(kOwnKey, text, 64, &number); });
    wchar_t* allocated = nullptr;
    if (Ok("GetAllocatedString", [&] { return store->GetAllocatedString(kOwnKey, &allocated, &number); })) {
        CoTaskMemFree(allocated);
    }
    Ok("SetBlob", 3, [&] { return store->SetBlob(kOwnKey, bytes, sizeof bytes); });
    Ok("GetBlobSize", [&] { return store->GetBlobSize(kOwnKey, &number); });
    Ok("GetBlob", [&] { return store->GetBlob(kOwnKey, bytes, sizeof bytes, &number); });
    UINT8* blob = nullptr;
    if (Ok("GetAllocatedBlob", [&] { return store->GetAllocatedBlob(kOwnKey, &blob, &number); })) {
        CoTaskMemFree(blob);
    }
    Ok("SetUnknown", 3, [&] { return store->SetUnknown(kOwnKey, m_factory.Get()); });
    Ok("GetUnknown", [&] { return store->GetUnknown(kOwnKey, IID_IUnknown, object.PutVoid()); });
    Ok("GetCount", [&] { return store->GetCount(&number); });
    Ok("GetItemByIndex", [&] { return store->GetItemByIndex(0, &guid, item.Put()); });
    Ok("Compare", [&] { return store->Compare(copy.Get(), MF_ATTRIBUTES_MATCH_ALL_ITEMS, &equal); });
    Ok("DeleteItem", 3, [&] { return store->DeleteItem(kOwnKey); });
    Ok("CopyAllItems", [&] { return store->CopyAllItems(copy.Get()); });
}

void CameraClient::UseControlSurface() {
    ComPtr<IUnknown> object;
    ComPtr<IMarshal> marshal;
    DWORD characteristics = 0;
    ComPtr<IMFAttributes> attributes;
    Ok("QueryInterface(IMarshal)", 3, [&] { return m_source->QueryInterface(IID_IMarshal, marshal.PutVoid()); });
    Ok("GetCharacteristics", [&] { return m_source->GetCharacteristics(&characteristics); });
    Ok("GetSourceAttributes", [&] { return m_source->GetSourceAttributes(attributes.Put()); });
    Ok("GetStreamAttributes", [&] { return m_source->GetStreamAttributes(0, attributes.Put()); });
    Step("Pause", MF_E_INVALID_STATE_TRANSITION, [&] { return m_source->Pause(); });
    Step("SetD3DManager", E_NOTIMPL, [&] { return m_source->SetD3DManager(nullptr); });
    Step("ShutdownObject", E_NOTIMPL, [&] { return m_activate->ShutdownObject(); });
    Step("DetachObject", E_NOTIMPL, [&] { return m_activate->DetachObject(); });
    if (const ComPtr<IMFGetService> services = m_source.As<IMFGetService>()) {
        Ok("GetService", [&] { return services->GetService(GUID_NULL, __uuidof(IMFMediaSource), object.PutVoid()); });
    }
    if (const ComPtr<IKsControl> control = m_source.As<IKsControl>()) {
        KSPROPERTY property{};
        ULONG returned = 0;
        const HRESULT notFound = HRESULT_FROM_WIN32(ERROR_SET_NOT_FOUND);
        Step("KsProperty", notFound,
             [&] { return control->KsProperty(&property, sizeof property, nullptr, 0, &returned); });
        Step("KsMethod", notFound,
             [&] { return control->KsMethod(&property, sizeof property, nullptr, 0, &returned); });
        Step("KsEvent", notFound, [&] { return control->KsEvent(&property, sizeof property, nullptr, 0, &returned); });
    }
}

void CameraClient::UseSourceEvents() {
    for (IMFMediaEventGenerator* const generator :
         {static_cast<IMFMediaEventGenerator*>(m_source.Get()), static_cast<IMFMediaEventGenerator*>(m_stream.Get())}) {
        // Whatever is queued still would be handed out before the event of this step.
        TakeEvent(generator, MEUnknown);
        const auto callback = ComPtr<EventCallback>::Adopt(new EventCallback);
        ComPtr<IMFMediaEvent> event;
        const bool begun = Ok("BeginGetEvent", 3, [&] { return generator->BeginGetEvent(callback.Get(), nullptr); });
        const bool queued =
            Ok("QueueEvent", 3, [&] { return generator->QueueEvent(MEExtendedType, kOwnKey, S_OK, nullptr); });
        if (begun && !queued) {
            callback->GiveUp();
        } else if (begun) {
            const ComPtr<IMFAsyncResult> result = callback->Wait();
            if (result) {
                Ok("EndGetEvent", 3, [&] { return generator->EndGetEvent(result.Get(), event.Put()); });
            } else {
                m_outcome.deviations.push_back({"EventCallback", E_ABORT, false, false});
            }
        }
    }
}

void CameraClient::UseStreamFaces() {
    ComPtr<IMFMediaSource> source;
    ComPtr<IMFStreamDescriptor> descriptor;
    ComPtr<IMarshal> marshal;
    Ok("GetMediaSource", [&] { return m_stream->GetMediaSource(source.Put()); });
    Ok("GetStreamDescriptor", [&] { return m_stream->GetStreamDescriptor(descriptor.Put()); });
    Ok("QueryInterface(IMarshal, stream)", 3,
       [&] { return m_stream->QueryInterface(IID_IMarshal, marshal.PutVoid()); });
}

void CameraClient::UseFaces() {
    UseControlSurface();
    UseStreamFaces();
    UseSourceEvents();
}

}  // namespace ravlo::faults
