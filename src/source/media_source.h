#pragma once

#include <windows.h>

#include <mfidl.h>
#include <mfobjects.h>

#include <atomic>

#include "module/module_count.h"
#include "platform/com_ptr.h"
#include "platform/critical_section.h"
#include "platform/kernel_streaming.h"
#include "stream/geometry.h"
#include "stream/media_stream.h"

namespace ravlo {

/// The camera: media source, its own activation object, service provider and control endpoint, all on one identity. It
/// owns one stream, which is built when it is activated. Free-threaded. Lock order: transition lock, then state lock;
/// no call into the event queue or the stream is made under the state lock.
class RvMediaSource final : public IMFMediaSourceEx,
                            public IMFActivate,
                            public IMFGetService,
                            public IKsControl,
                            private StreamOwner {
public:
    /// Creates and initialises a source and queries it for `riid`.
    static HRESULT CreateInstance(REFIID riid, void** object) noexcept;

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, void** object) noexcept override;
    STDMETHODIMP_(ULONG) AddRef() noexcept override;
    STDMETHODIMP_(ULONG) Release() noexcept override;

    // IMFMediaEventGenerator (media_source_events.cpp)
    STDMETHODIMP GetEvent(DWORD flags, IMFMediaEvent** event) noexcept override;
    STDMETHODIMP BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) noexcept override;
    STDMETHODIMP EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) noexcept override;
    STDMETHODIMP QueueEvent(MediaEventType type, REFGUID extendedType, HRESULT status,
                            const PROPVARIANT* value) noexcept override;

    // IMFMediaSource and IMFMediaSourceEx (media_source_state.cpp, media_source_transitions.cpp)
    STDMETHODIMP GetCharacteristics(DWORD* characteristics) noexcept override;
    STDMETHODIMP CreatePresentationDescriptor(IMFPresentationDescriptor** descriptor) noexcept override;
    STDMETHODIMP Start(IMFPresentationDescriptor* descriptor, const GUID* timeFormat,
                       const PROPVARIANT* startPosition) noexcept override;
    STDMETHODIMP Stop() noexcept override;
    STDMETHODIMP Pause() noexcept override;
    STDMETHODIMP Shutdown() noexcept override;
    STDMETHODIMP GetSourceAttributes(IMFAttributes** attributes) noexcept override;
    STDMETHODIMP GetStreamAttributes(DWORD streamId, IMFAttributes** attributes) noexcept override;
    STDMETHODIMP SetD3DManager(IUnknown* manager) noexcept override;

    // IMFActivate (activation.cpp)
    STDMETHODIMP ActivateObject(REFIID riid, void** object) noexcept override;
    STDMETHODIMP ShutdownObject() noexcept override;
    STDMETHODIMP DetachObject() noexcept override;

    // IMFAttributes, all thirty on the source's attribute store (activation_attributes.cpp)
    STDMETHODIMP GetItem(REFGUID key, PROPVARIANT* value) noexcept override;
    STDMETHODIMP GetItemType(REFGUID key, MF_ATTRIBUTE_TYPE* type) noexcept override;
    STDMETHODIMP CompareItem(REFGUID key, REFPROPVARIANT value, BOOL* result) noexcept override;
    STDMETHODIMP Compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE type, BOOL* result) noexcept override;
    STDMETHODIMP GetUINT32(REFGUID key, UINT32* value) noexcept override;
    STDMETHODIMP GetUINT64(REFGUID key, UINT64* value) noexcept override;
    STDMETHODIMP GetDouble(REFGUID key, double* value) noexcept override;
    STDMETHODIMP GetGUID(REFGUID key, GUID* value) noexcept override;
    STDMETHODIMP GetStringLength(REFGUID key, UINT32* length) noexcept override;
    STDMETHODIMP GetString(REFGUID key, LPWSTR value, UINT32 size, UINT32* length) noexcept override;
    STDMETHODIMP GetAllocatedString(REFGUID key, LPWSTR* value, UINT32* length) noexcept override;
    STDMETHODIMP GetBlobSize(REFGUID key, UINT32* size) noexcept override;
    STDMETHODIMP GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* blobSize) noexcept override;
    STDMETHODIMP GetAllocatedBlob(REFGUID key, UINT8** buffer, UINT32* size) noexcept override;
    STDMETHODIMP GetUnknown(REFGUID key, REFIID riid, LPVOID* object) noexcept override;
    STDMETHODIMP SetItem(REFGUID key, REFPROPVARIANT value) noexcept override;
    STDMETHODIMP DeleteItem(REFGUID key) noexcept override;
    STDMETHODIMP DeleteAllItems() noexcept override;
    STDMETHODIMP SetUINT32(REFGUID key, UINT32 value) noexcept override;
    STDMETHODIMP SetUINT64(REFGUID key, UINT64 value) noexcept override;
    STDMETHODIMP SetDouble(REFGUID key, double value) noexcept override;
    STDMETHODIMP SetGUID(REFGUID key, REFGUID value) noexcept override;
    STDMETHODIMP SetString(REFGUID key, LPCWSTR value) noexcept override;
    STDMETHODIMP SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) noexcept override;
    STDMETHODIMP SetUnknown(REFGUID key, IUnknown* object) noexcept override;
    STDMETHODIMP LockStore() noexcept override;
    STDMETHODIMP UnlockStore() noexcept override;
    STDMETHODIMP GetCount(UINT32* count) noexcept override;
    STDMETHODIMP GetItemByIndex(UINT32 index, GUID* key, PROPVARIANT* value) noexcept override;
    STDMETHODIMP CopyAllItems(IMFAttributes* destination) noexcept override;

    // IMFGetService and IKsControl (control_surface.cpp)
    STDMETHODIMP GetService(REFGUID service, REFIID riid, LPVOID* object) noexcept override;
    STDMETHODIMP KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data, ULONG dataLength,
                            ULONG* bytesReturned) noexcept override;
    STDMETHODIMP KsMethod(PKSMETHOD method, ULONG methodLength, void* data, ULONG dataLength,
                          ULONG* bytesReturned) noexcept override;
    STDMETHODIMP KsEvent(PKSEVENT event, ULONG eventLength, void* data, ULONG dataLength,
                         ULONG* bytesReturned) noexcept override;

private:
    enum class State : LONG { Stopped = 0, Started = 1, ShutDown = 2 };

    struct RequestedGeometry {
        FrameGeometry geometry;
        const char* source;  ///< "default" or "client-attribute"
    };

    RvMediaSource() noexcept = default;
    ~RvMediaSource();

    HRESULT Initialize() noexcept;
    HRESULT CreateLocks() noexcept;
    HRESULT CreatePlatformObjects() noexcept;
    HRESULT CreateStreamAttributes() noexcept;

    IMFMediaSource* AsMediaSource() noexcept override { return this; }
    ComPtr<IMFAttributes> ReferenceActivationStore() noexcept override;
    ComPtr<IMFMediaEventQueue> ReferenceQueue() noexcept;

    HRESULT RunStart(IMFPresentationDescriptor* descriptor, const GUID* timeFormat,
                     const PROPVARIANT* startPosition) noexcept;
    HRESULT RunStop() noexcept;

    HRESULT EnsureStream() noexcept;
    RequestedGeometry SelectGeometry() noexcept;
    HRESULT BuildStreamForGeometry(const FrameGeometry& geometry) noexcept;
    HRESULT BuildAndInstall(const FrameGeometry& geometry, IMFMediaType* mediaType) noexcept;
    HRESULT InstallStream(ComPtr<IMFPresentationDescriptor>& presentation, ComPtr<RvMediaStream>& stream) noexcept;

    /// Runs one attribute operation on the source's store.
    template <class Operation>
    HRESULT OnStore(Operation operation) noexcept;

    const ModuleReference m_moduleReference;
    std::atomic<LONG> m_refCount{1};
    CriticalSection m_cs;            ///< the state and every interface pointer below
    CriticalSection m_csTransition;  ///< Start, Stop and activation, each from end to end
    bool m_csInitialized = false;    ///< both locks exist
    bool m_mfStarted = false;        ///< a Shutdown owes the platform an MFShutdown
    State m_state = State::Stopped;
    ComPtr<IMFMediaEventQueue> m_eventQueue;
    ComPtr<IMFAttributes> m_sourceAttributes;  ///< also the store of the activation face
    ComPtr<IMFAttributes> m_streamAttributes;
    ComPtr<IMFPresentationDescriptor> m_presentationDescriptor;
    ComPtr<RvMediaStream> m_stream;
    bool m_startedOnce = false;  ///< the next Start announces an updated stream instead of a new one
    ComPtr<IUnknown> m_freeThreadedMarshaler;
};

}  // namespace ravlo
