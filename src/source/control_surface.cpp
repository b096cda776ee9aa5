#include "source/media_source.h"

#include <cguid.h>
#include <mferror.h>

#include "platform/hresult.h"
#include "platform/mf_ids.h"
#include "trace/trace.h"

// What the camera pipeline may ask of the camera besides pictures: a way to the source itself, and kernel-streaming
// requests, of which the camera supports none. Each is answered at once and leaves a line in the log.
namespace ravlo {
namespace {

constexpr HRESULT kSetNotFound = HresultFromWin32(ERROR_SET_NOT_FOUND);
constexpr ULONG kIdentifierBytes = sizeof(KSIDENTIFIER);
static_assert(kIdentifierBytes == 24);

/// One kernel-streaming request.
struct ControlRequest {
    const char* label;
    const KSIDENTIFIER* identifier;
    ULONG identifierLength;
    const void* data;
    ULONG dataLength;
    ULONG* bytesReturned;
    bool identifierOptional;
};

HRESULT AnswerRequest(const ControlRequest& request) noexcept {
    if (request.bytesReturned != nullptr) {
        *request.bytesReturned = 0;
    }
    if (request.identifier == nullptr && request.identifierOptional) {
        RvTrace("FAIL %s identifier=NULL(optional) hr=0x%08X", request.label, kSetNotFound);
        return kSetNotFound;
    }
    if (request.identifier == nullptr) {
        RvTrace("FAIL %s identifier=NULL hr=0x%08X", request.label, E_INVALIDARG);
        return E_INVALIDARG;
    }
    if (request.identifierLength < kIdentifierBytes) {
        RvTrace("FAIL %s identifier-len=%u < %u hr=0x%08X", request.label, request.identifierLength, kIdentifierBytes,
                E_INVALIDARG);
        return E_INVALIDARG;
    }
    if (request.dataLength != 0 && request.data == nullptr) {
        RvTrace("FAIL %s data=NULL len=%u hr=0x%08X", request.label, request.dataLength, E_INVALIDARG);
        return E_INVALIDARG;
    }
    RvTrace("FAIL %s set=%G id=%u flags=0x%08X datalen=%u hr=0x%08X", request.label, &request.identifier->Set,
            request.identifier->Id, request.identifier->Flags, request.dataLength, kSetNotFound);
    return kSetNotFound;
}

}  // namespace

HRESULT RvMediaSource::GetService(REFGUID service, REFIID riid, LPVOID* object) noexcept {
    RvTraceGuidHr("CALL SRC.GetService svc", &service, S_OK);
    RvTraceGuidHr("CALL SRC.GetService riid", &riid, S_OK);
    if (object == nullptr) {
        return RvTraceResult("SRC.GetService", E_POINTER);
    }
    *object = nullptr;
    ScopedLock lock(m_cs);
    const bool isShutDown = m_state == State::ShutDown;
    lock.Unlock();
    if (isShutDown) {
        return RvTraceResult("SRC.GetService", MF_E_SHUTDOWN);
    }
    if (service != kMediaSourceService && service != GUID_NULL) {
        RvTraceGuidHr("FAIL SRC.GetService unsupported-service", &service, MF_E_UNSUPPORTED_SERVICE);
        return RvTraceResult("SRC.GetService", MF_E_UNSUPPORTED_SERVICE);
    }
    const HRESULT hr = QueryInterface(riid, object);
    RvTraceGuidHr(FAILED(hr) ? "FAIL SRC.GetService delegated-riid" : "SRC.GetService delegated-riid", &riid, hr);
    return RvTraceResult("SRC.GetService", hr);
}

HRESULT RvMediaSource::KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data, ULONG dataLength,
                                  ULONG* bytesReturned) noexcept {
    RvTrace("CALL SRC.KsProperty proplen=%u datalen=%u", propertyLength, dataLength);
    return AnswerRequest({"SRC.KsProperty", property, propertyLength, data, dataLength, bytesReturned, false});
}

HRESULT RvMediaSource::KsMethod(PKSMETHOD method, ULONG methodLength, void* data, ULONG dataLength,
                                ULONG* bytesReturned) noexcept {
    RvTrace("CALL SRC.KsMethod methodlen=%u datalen=%u", methodLength, dataLength);
    return AnswerRequest({"SRC.KsMethod", method, methodLength, data, dataLength, bytesReturned, false});
}

HRESULT RvMediaSource::KsEvent(PKSEVENT event, ULONG eventLength, void* data, ULONG dataLength,
                               ULONG* bytesReturned) noexcept {
    RvTrace("CALL SRC.KsEvent eventlen=%u datalen=%u", eventLength, dataLength);
    return AnswerRequest({"SRC.KsEvent", event, eventLength, data, dataLength, bytesReturned, true});
}

}  // namespace ravlo
