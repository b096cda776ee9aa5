// The stream object itself, without a source around it, in the test program.
#pragma once

#include "stream/media_stream.h"
#include "stream/video_media_type.h"
#include "support/com.h"
#include "support/import_hooks.h"

#include <functional>

namespace ravlo::test {

/// Stands in for the source: no media source to give out and no activation attributes, so that the stream's
/// reader thread looks for a pipe name for ever and no pipe is made.
class StreamOwnerDouble final : public StreamOwner {
public:
    IMFMediaSource* AsMediaSource() noexcept override { return nullptr; }
    ravlo::ComPtr<IMFAttributes> ReferenceActivationStore() noexcept override { return nullptr; }
};

/// A stream descriptor for the geometry, whose current media type is set when `withCurrentType`.
inline ComPtr<IMFStreamDescriptor> DescriptorFor(const FrameGeometry& geometry, bool withCurrentType = true) {
    ComPtr<IMFMediaType> type;
    Require(RvCreateVideoMediaType(geometry, type.Put()), "RvCreateVideoMediaType");
    IMFMediaType* const types[] = {type.Get()};
    ComPtr<IMFStreamDescriptor> descriptor;
    Require(MFCreateStreamDescriptor(0, 1, const_cast<IMFMediaType**>(types), descriptor.Put()),
            "MFCreateStreamDescriptor");
    if (withCurrentType) {
        ComPtr<IMFMediaTypeHandler> handler;
        Require(descriptor->GetMediaTypeHandler(handler.Put()), "GetMediaTypeHandler");
        Require(handler->SetCurrentMediaType(type.Get()), "SetCurrentMediaType");
    }
    return descriptor;
}

/// A stream object of its own; shut down and released at the end.
class StreamObject {
public:
    explicit StreamObject(const FrameGeometry& geometry = {64, 36, 60, 1}, bool withCurrentType = true)
        : m_descriptor(DescriptorFor(geometry, withCurrentType)) {
        Require(RvMediaStream::Create(&m_owner, m_descriptor.Get(), geometry, m_stream.Put()), "RvMediaStream::Create");
    }
    ~StreamObject() {
        if (m_stream) {
            m_stream->Shutdown();
        }
    }
    StreamObject(const StreamObject&) = delete;
    StreamObject& operator=(const StreamObject&) = delete;

    RvMediaStream* operator->() const { return m_stream.Get(); }
    RvMediaStream* Get() const { return m_stream.Get(); }
    IMFStreamDescriptor* Descriptor() const { return m_descriptor.Get(); }
    /// Lets go of the stream without Shutdown.
    void Release() { m_stream.Reset(); }

private:
    StreamOwnerDouble m_owner;
    ComPtr<IMFStreamDescriptor> m_descriptor;
    ComPtr<RvMediaStream> m_stream;
};

/// An event queue that hands everything to a real one, and lets the test step in when an event is queued.
class EventQueueDouble final : public IMFMediaEventQueue {
public:
    /// Asked before an event is queued; a failure is returned instead of queueing it.
    using Before = std::function<HRESULT(MediaEventType)>;
    /// Called after an event was queued, still inside the call.
    using After = std::function<void(MediaEventType)>;

    EventQueueDouble(IMFMediaEventQueue* real, Before before, After after)
        : m_real(ComPtr<IMFMediaEventQueue>::Adopt(real)), m_before(std::move(before)), m_after(std::move(after)) {}

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        if (riid != IID_IUnknown && riid != IID_IMFMediaEventQueue) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = this;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&m_count)); }
    STDMETHODIMP_(ULONG) Release() override {
        const LONG count = InterlockedDecrement(&m_count);
        if (count == 0) {
            delete this;
        }
        return static_cast<ULONG>(count);
    }
    STDMETHODIMP GetEvent(DWORD flags, IMFMediaEvent** event) override { return m_real->GetEvent(flags, event); }
    STDMETHODIMP BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) override {
        return m_real->BeginGetEvent(callback, state);
    }
    STDMETHODIMP EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) override {
        return m_real->EndGetEvent(result, event);
    }
    STDMETHODIMP QueueEvent(IMFMediaEvent* event) override { return m_real->QueueEvent(event); }
    STDMETHODIMP QueueEventParamVar(MediaEventType type, REFGUID extendedType, HRESULT status,
                                    const PROPVARIANT* value) override {
        const HRESULT refused = m_before ? m_before(type) : S_OK;
        if (FAILED(refused)) {
            return refused;
        }
        const HRESULT hr = m_real->QueueEventParamVar(type, extendedType, status, value);
        if (m_after) {
            m_after(type);
        }
        return hr;
    }
    STDMETHODIMP QueueEventParamUnk(MediaEventType type, REFGUID extendedType, HRESULT status,
                                    IUnknown* value) override {
        return m_real->QueueEventParamUnk(type, extendedType, status, value);
    }
    STDMETHODIMP Shutdown() override { return m_real->Shutdown(); }

private:
    ~EventQueueDouble() = default;

    LONG m_count = 1;
    ComPtr<IMFMediaEventQueue> m_real;
    Before m_before;
    After m_after;
};

/// Makes every event queue that a module creates from now on an EventQueueDouble.
class EventQueueHook {
public:
    EventQueueHook(HMODULE module, EventQueueDouble::Before before, EventQueueDouble::After after = {})
        : m_create(module) {
        m_create.Replace([before, after](IMFMediaEventQueue** queue) -> HRESULT {
            using Hook = RAVLO_HOOK(MFCreateEventQueue);
            const HRESULT hr = Hook::CallOriginal(queue);
            if (SUCCEEDED(hr)) {
                *queue = new EventQueueDouble(*queue, before, after);
            }
            return hr;
        });
    }

private:
    RAVLO_HOOK(MFCreateEventQueue) m_create;
};

}  // namespace ravlo::test
