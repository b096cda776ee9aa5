#include "source/media_source.h"

#include <mfapi.h>

#include <new>

#include "platform/hresult.h"
#include "platform/mf_ids.h"
#include "platform/registry_names.h"
#include "source/attribute_dump.h"
#include "source/identity_lines.h"
#include "source/sensor_profiles.h"
#include "trace/debugger_line.h"
#include "trace/trace.h"

// The object itself: creation, initialisation in two phases, identity, and the end.
namespace ravlo {
namespace {

constexpr UINT32 kInitialAttributes = 4;

}  // namespace

HRESULT RvMediaSource::CreateInstance(REFIID riid, void** object) noexcept {
    RvTraceGuidHr("CALL SRC.CreateInstance riid", &riid, S_OK);
    if (object == nullptr) {
        return RvTraceResult("SRC.CreateInstance", E_POINTER);
    }
    *object = nullptr;
    auto* const source = new (std::nothrow) RvMediaSource();
    if (source == nullptr) {
        return RvTraceResult("SRC.CreateInstance", E_OUTOFMEMORY);
    }
    HRESULT hr = source->Initialize();
    if (SUCCEEDED(hr)) {
        hr = source->QueryInterface(riid, object);
    }
    if (FAILED(hr)) {
        // Balances MFStartup, which the destructor leaves to an explicit Shutdown.
        source->Shutdown();
    }
    source->Release();
    return RvTraceResult("SRC.CreateInstance", hr);
}

HRESULT RvMediaSource::Initialize() noexcept {
    RvTrace("CALL SRC.Initialize");
    TraceIdentity();
    DumpAttributes("INITATTR", "source", m_sourceAttributes.Get());
    HRESULT hr = CreateLocks();
    if (SUCCEEDED(hr)) {
        hr = CreatePlatformObjects();
    }
    if (SUCCEEDED(hr)) {
        hr = CreateStreamAttributes();
    }
    if (FAILED(hr)) {
        return hr;
    }
    DumpAttributes("ATTR", "source", m_sourceAttributes.Get());
    DumpAttributes("ATTR", "stream0", m_streamAttributes.Get());
    return RvTraceResult("SRC.Initialize", S_OK);
}

HRESULT RvMediaSource::CreateLocks() noexcept {
    if (!m_cs.Initialize()) {
        return RvTraceResult("SRC.Initialize/m_cs", HresultFromLastError());
    }
    if (!m_csTransition.Initialize()) {
        const HRESULT hr = HresultFromLastError();
        m_cs.Destroy();
        return RvTraceResult("SRC.Initialize/m_csTransition", hr);
    }
    m_csInitialized = true;
    return S_OK;
}

HRESULT RvMediaSource::CreatePlatformObjects() noexcept {
    HRESULT hr = CoCreateFreeThreadedMarshaler(static_cast<IMFMediaSourceEx*>(this), m_freeThreadedMarshaler.Put());
    if (FAILED(hr)) {
        return RvTraceResult("SRC.Initialize/CoCreateFreeThreadedMarshaler", hr);
    }
    hr = MFStartup(MF_VERSION, MFSTARTUP_LITE);
    if (FAILED(hr)) {
        return RvTraceResult("SRC.Initialize/MFStartup", hr);
    }
    m_mfStarted = true;
    hr = MFCreateEventQueue(m_eventQueue.Put());
    if (FAILED(hr)) {
        return RvTraceResult("SRC.Initialize/MFCreateEventQueue", hr);
    }
    hr = MFCreateAttributes(m_sourceAttributes.Put(), kInitialAttributes);
    if (FAILED(hr)) {
        return RvTraceResult("SRC.Initialize/MFCreateAttributes(source)", hr);
    }
    hr = m_sourceAttributes->SetString(MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME, kFriendlyName);
    if (SUCCEEDED(hr)) {
        hr = m_sourceAttributes->SetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE,
                                         MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID);
    }
    if (FAILED(hr)) {
        return RvTraceResult("SRC.Initialize/source identity attributes", hr);
    }
    hr = PublishSensorProfileCollection(m_sourceAttributes.Get());
    return FAILED(hr) ? RvTraceResult("SRC.Initialize/PublishSensorProfileCollection", hr) : S_OK;
}

HRESULT RvMediaSource::CreateStreamAttributes() noexcept {
    HRESULT hr = MFCreateAttributes(m_streamAttributes.Put(), kInitialAttributes);
    if (FAILED(hr)) {
        return RvTraceResult("SRC.Initialize/MFCreateAttributes(stream0)", hr);
    }
    hr = m_streamAttributes->SetUINT32(kDeviceStreamId, 0);
    if (SUCCEEDED(hr)) {
        hr = m_streamAttributes->SetGUID(kDeviceStreamCategory, kPinVideoCapture);
    }
    if (SUCCEEDED(hr)) {
        hr = m_streamAttributes->SetUINT32(kDeviceStreamFrameSourceTypes, kFrameSourceColor);
    }
    return FAILED(hr) ? RvTraceResult("SRC.Initialize/stream0 identity attributes", hr) : S_OK;
}

RvMediaSource::~RvMediaSource() {
    // References that are taken and dropped on the way down must never reach 0 a second time.
    m_refCount.store(0x40000000);
    if (m_stream) {
        m_stream->Shutdown();
        m_stream.Reset();
    }
    if (m_eventQueue) {
        m_eventQueue->Shutdown();
        m_eventQueue.Reset();
    }
    m_presentationDescriptor.Reset();
    m_streamAttributes.Reset();
    m_sourceAttributes.Reset();
    m_freeThreadedMarshaler.Reset();
    // No MFShutdown here: only an explicit Shutdown balances the MFStartup of the initialisation.
    m_csInitialized = false;
    m_csTransition.Destroy();
    m_cs.Destroy();
}

HRESULT RvMediaSource::QueryInterface(REFIID riid, void** object) noexcept {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (riid == IID_IMarshal) {
        const HRESULT hr =
            m_freeThreadedMarshaler ? m_freeThreadedMarshaler->QueryInterface(riid, object) : E_NOINTERFACE;
        return RvTraceInterfaceQuery(L"RvMediaSource", "QI-SRC IMarshal", "FAIL QI-SRC IMarshal", riid, hr);
    }
    if (riid == IID_IUnknown || riid == IID_IMFMediaEventGenerator || riid == IID_IMFMediaSource ||
        riid == IID_IMFMediaSourceEx) {
        *object = static_cast<IMFMediaSourceEx*>(this);
    } else if (riid == IID_IMFActivate || riid == IID_IMFAttributes) {
        *object = static_cast<IMFActivate*>(this);
    } else if (riid == IID_IMFGetService) {
        *object = static_cast<IMFGetService*>(this);
    } else if (riid == __uuidof(IKsControl)) {
        *object = static_cast<IKsControl*>(this);
    }
    if (*object != nullptr) {
        AddRef();
    }
    return RvTraceInterfaceQuery(L"RvMediaSource", "QI-SRC", "FAIL QI-SRC", riid,
                                 *object != nullptr ? S_OK : E_NOINTERFACE);
}

ULONG RvMediaSource::AddRef() noexcept {
    return static_cast<ULONG>(m_refCount.fetch_add(1) + 1);
}

ULONG RvMediaSource::Release() noexcept {
    const LONG count = m_refCount.fetch_sub(1) - 1;
    if (count == 0) {
        delete this;
    }
    return static_cast<ULONG>(count);
}

ComPtr<IMFAttributes> RvMediaSource::ReferenceActivationStore() noexcept {
    if (!m_csInitialized) {
        return nullptr;
    }
    const ScopedLock lock(m_cs);
    return m_state != State::ShutDown ? m_sourceAttributes : nullptr;
}

ComPtr<IMFMediaEventQueue> RvMediaSource::ReferenceQueue() noexcept {
    const ScopedLock lock(m_cs);
    return m_state != State::ShutDown ? m_eventQueue : nullptr;
}

}  // namespace ravlo
