#include "stream/media_stream.h"

#include <mfapi.h>
#include <mferror.h>

#include <new>

#include "platform/hresult.h"
#include "platform/timer_flags.h"
#include "trace/debugger_line.h"
#include "trace/trace.h"

namespace ravlo {
namespace {

AdvertisedSize AdvertisedSizeOf(const FrameGeometry& geometry) noexcept {
    return {geometry.width, geometry.height, static_cast<std::uint32_t>(FrameBytes(geometry))};
}

}  // namespace

HRESULT RvMediaStream::Create(StreamOwner* owner, IMFStreamDescriptor* descriptor, const FrameGeometry& geometry,
                              RvMediaStream** stream) noexcept {
    if (stream == nullptr) {
        return E_POINTER;
    }
    *stream = nullptr;
    if (owner == nullptr || descriptor == nullptr) {
        return E_INVALIDARG;
    }
    ComPtr<RvMediaStream> created = ComPtr<RvMediaStream>::Attach(new (std::nothrow) RvMediaStream(*owner, geometry));
    if (!created) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = created->Initialize(owner->AsMediaSource(), descriptor);
    if (SUCCEEDED(hr)) {
        *stream = created.Detach();
    }
    return hr;
}

RvMediaStream::RvMediaStream(ActivationStore& ownerStore, const FrameGeometry& geometry) noexcept
    : m_ownerStore(ownerStore),
      m_geometry(geometry),
      m_publisher(m_framePool, geometry),
      m_names(*this),
      m_threads(m_names, m_publisher, m_framePool, AdvertisedSizeOf(geometry), m_demand) {
}

RvMediaStream::~RvMediaStream() {
    // The marshaler may take and drop references on this object while it goes; they must not reach 0 again.
    m_refCount.store(0x40000000);
    m_freeThreadedMarshaler.Reset();
    if (m_timer) {
        CancelWaitableTimer(m_timer.Get());
    }
}

HRESULT RvMediaStream::Initialize(IMFMediaSource* source, IMFStreamDescriptor* descriptor) noexcept {
    HRESULT hr = CreateLocks();
    if (SUCCEEDED(hr)) {
        hr = CreateWaitHandles();
    }
    if (SUCCEEDED(hr)) {
        hr = CoCreateFreeThreadedMarshaler(this, m_freeThreadedMarshaler.Put());
    }
    if (SUCCEEDED(hr)) {
        hr = MFCreateEventQueue(m_eventQueue.Put());
    }
    if (FAILED(hr)) {
        return hr;
    }
    m_source = ComPtr<IMFMediaSource>::Share(source);
    m_descriptor = ComPtr<IMFStreamDescriptor>::Share(descriptor);
    hr = AllocateFramePool();
    if (FAILED(hr)) {
        return hr;
    }
    m_publisher.SetFrameArrivalEvent(m_frameArrival.Get());
    // Its failures are traced where they happen: without the threads the camera still serves the test pattern.
    (void)m_threads.StartPipeThreads(m_frameArrival.Get());
    return S_OK;
}

HRESULT RvMediaStream::CreateLocks() noexcept {
    if (!m_stateLock.Initialize()) {
        return HresultFromLastError();
    }
    if (!m_pacingLock.Initialize()) {
        const HRESULT hr = HresultFromLastError();
        m_stateLock.Destroy();
        return hr;
    }
    m_initialized = true;
    return S_OK;
}

HRESULT RvMediaStream::CreateWaitHandles() noexcept {
    m_frameArrival.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!m_frameArrival) {
        return HresultFromLastError();
    }
    m_timer.Reset(CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION,
                                         SYNCHRONIZE | TIMER_MODIFY_STATE));
    if (!m_timer) {
        RvTrace("PACING high-resolution timer unavailable (err=%lu); falling back to the millisecond timeout",
                GetLastError());
    }
    m_notRunning.Reset(CreateEventW(nullptr, TRUE, TRUE, nullptr));
    if (!m_notRunning) {
        const HRESULT hr = HresultFromLastError();
        m_timer.Reset();
        m_frameArrival.Reset();
        return hr;
    }
    return S_OK;
}

HRESULT RvMediaStream::AllocateFramePool() noexcept {
    // The pool serves the largest geometry whatever this stream's is, so that a camera's memory does not depend on it.
    if (!IsValidGeometry(kLargestGeometry) || !IsValidGeometry(m_geometry) ||
        FrameBytes(m_geometry) > FrameBytes(kLargestGeometry)) {
        return E_UNEXPECTED;
    }
    return m_framePool.Allocate(FrameBytes(kLargestGeometry)) ? S_OK : E_OUTOFMEMORY;
}

HRESULT RvMediaStream::QueryInterface(REFIID riid, void** object) noexcept {
    if (object == nullptr) {
        return RvTraceInterfaceQuery(L"RvMediaStream", "QI-STM", "FAIL QI-STM", riid, E_POINTER);
    }
    *object = nullptr;
    if (riid == IID_IMarshal) {
        const HRESULT hr =
            m_freeThreadedMarshaler ? m_freeThreadedMarshaler->QueryInterface(riid, object) : E_NOINTERFACE;
        return RvTraceInterfaceQuery(L"RvMediaStream", "QI-STM IMarshal", "FAIL QI-STM IMarshal", riid, hr);
    }
    HRESULT hr = E_NOINTERFACE;
    if (riid == IID_IUnknown || riid == IID_IMFMediaEventGenerator || riid == IID_IMFMediaStream) {
        *object = static_cast<IMFMediaStream*>(this);
        AddRef();
        hr = S_OK;
    }
    return RvTraceInterfaceQuery(L"RvMediaStream", "QI-STM", "FAIL QI-STM", riid, hr);
}

ULONG RvMediaStream::AddRef() noexcept {
    return static_cast<ULONG>(m_refCount.fetch_add(1) + 1);
}

ULONG RvMediaStream::Release() noexcept {
    const LONG count = m_refCount.fetch_sub(1) - 1;
    if (count != 0) {
        return static_cast<ULONG>(count);
    }
    m_threads.StopPipeThreads(m_notRunning.Get());
    if (m_threads.IsAbandoned()) {
        RvTrace(
            "FAIL PIPE the last reference to this stream went away while the reader thread was still running (the "
            "join timed out). THE OBJECT IS NOT DESTROYED: no destructor runs, the frame slots and the pipe are not "
            "freed, and this DLL is not unloaded - the thread is still executing code inside it. Everything is "
            "reclaimed when the Frame Server restarts");
        return 0;
    }
    delete this;
    return 0;
}

HRESULT RvMediaStream::GetMediaSource(IMFMediaSource** source) noexcept {
    RvTrace("CALL STM.GetMediaSource");
    if (source == nullptr) {
        return RvTraceResult("STM.GetMediaSource", E_POINTER);
    }
    *source = nullptr;
    ScopedLock lock(m_stateLock);
    ComPtr<IMFMediaSource> held = m_state != State::ShutDown ? m_source : nullptr;
    lock.Unlock();
    *source = held.Detach();
    return RvTraceResult("STM.GetMediaSource", *source != nullptr ? S_OK : MF_E_SHUTDOWN);
}

HRESULT RvMediaStream::GetStreamDescriptor(IMFStreamDescriptor** descriptor) noexcept {
    RvTrace("CALL STM.GetStreamDescriptor");
    if (descriptor == nullptr) {
        return RvTraceResult("STM.GetStreamDescriptor", E_POINTER);
    }
    *descriptor = nullptr;
    ScopedLock lock(m_stateLock);
    ComPtr<IMFStreamDescriptor> held = m_state != State::ShutDown ? m_descriptor : nullptr;
    lock.Unlock();
    *descriptor = held.Detach();
    return RvTraceResult("STM.GetStreamDescriptor", *descriptor != nullptr ? S_OK : MF_E_SHUTDOWN);
}

ComPtr<IMFAttributes> RvMediaStream::ReferenceActivationStore() noexcept {
    ScopedLock lock(m_stateLock);
    // The reference keeps the owner, and with it its store, alive while it is asked.
    const ComPtr<IMFMediaSource> source = m_state != State::ShutDown ? m_source : nullptr;
    lock.Unlock();
    return source ? m_ownerStore.ReferenceActivationStore() : nullptr;
}

ComPtr<IMFMediaEventQueue> RvMediaStream::ReferenceQueue() noexcept {
    const ScopedLock lock(m_stateLock);
    return m_state != State::ShutDown ? m_eventQueue : nullptr;
}

}  // namespace ravlo
