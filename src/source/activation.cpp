#include "source/media_source.h"

#include <mfapi.h>
#include <mferror.h>

#include <utility>

#include "platform/mf_ids.h"
#include "ravlo/ids.h"
#include "source/attribute_dump.h"
#include "source/geometry_request.h"
#include "source/identity_lines.h"
#include "stream/media_type_attributes.h"
#include "stream/video_media_type.h"
#include "trace/trace.h"

// The activation: which geometry the camera has, and the one stream that is built for it.
namespace ravlo {
namespace {

/// The fixed second type: built to prove that it can be, and not advertised.
HRESULT CreateFixedMediaType(IMFMediaType** mediaType) noexcept {
    using Attribute = MediaTypeAttribute;
    constexpr FrameGeometry kFixed{640, 360, 30, 1};
    const Attribute attributes[] = {
        Attribute::Identifier(MF_MT_MAJOR_TYPE, MFMediaType_Video),
        Attribute::Identifier(MF_MT_SUBTYPE, MFVideoFormat_NV12),
        Attribute::Pair(MF_MT_FRAME_SIZE, kFixed.width, kFixed.height),
        Attribute::Pair(MF_MT_FRAME_RATE, kFixed.rateNumerator, kFixed.rateDenominator),
        Attribute::Pair(MF_MT_FRAME_RATE_RANGE_MIN, kFixed.rateNumerator, kFixed.rateDenominator),
        Attribute::Pair(MF_MT_FRAME_RATE_RANGE_MAX, kFixed.rateNumerator, kFixed.rateDenominator),
        Attribute::Pair(MF_MT_PIXEL_ASPECT_RATIO, 1, 1),
        Attribute::Number(MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive),
        Attribute::Number(MF_MT_VIDEO_NOMINAL_RANGE, MFNominalRange_16_235),
        Attribute::Number(MF_MT_ALL_SAMPLES_INDEPENDENT, TRUE),
        Attribute::Number(MF_MT_FIXED_SIZE_SAMPLES, TRUE),
        Attribute::Number(MF_MT_SAMPLE_SIZE, static_cast<UINT32>(FrameBytes(kFixed))),
        Attribute::Number(MF_MT_DEFAULT_STRIDE, DefaultStride(kFixed)),
        Attribute::Number(kDeviceStreamId, 0),
        Attribute::Identifier(kDeviceStreamCategory, kPinVideoCapture),
    };
    return CreateMediaType(attributes, mediaType);
}

HRESULT CreateDescriptors(IMFMediaType* mediaType, IMFStreamDescriptor** streamDescriptor,
                          IMFPresentationDescriptor** presentation) noexcept {
    HRESULT hr = MFCreateStreamDescriptor(0, 1, &mediaType, streamDescriptor);
    if (SUCCEEDED(hr)) {
        hr = (*streamDescriptor)->SetUINT32(kDeviceStreamId, 0);
    }
    if (SUCCEEDED(hr)) {
        hr = (*streamDescriptor)->SetGUID(kDeviceStreamCategory, kPinVideoCapture);
    }
    ComPtr<IMFMediaTypeHandler> handler;
    if (SUCCEEDED(hr)) {
        hr = (*streamDescriptor)->GetMediaTypeHandler(handler.Put());
    }
    if (SUCCEEDED(hr)) {
        hr = handler->SetCurrentMediaType(mediaType);
    }
    if (SUCCEEDED(hr)) {
        hr = MFCreatePresentationDescriptor(1, streamDescriptor, presentation);
    }
    if (SUCCEEDED(hr)) {
        hr = (*presentation)->SelectStream(0);
    }
    return hr;
}

}  // namespace

HRESULT RvMediaSource::ActivateObject(REFIID riid, void** object) noexcept {
    RvTraceGuidHr("CALL SRC.ActivateObject riid", &riid, S_OK);
    TraceIdentity();
    DumpAttributes("ACTATTR", "source", ReferenceActivationStore().Get());
    if (object == nullptr) {
        return RvTraceResult("SRC.ActivateObject", E_POINTER);
    }
    *object = nullptr;
    if (!m_csInitialized) {
        return RvTraceResult("SRC.ActivateObject", MF_E_SHUTDOWN);
    }
    const ScopedLock transition(m_csTransition);
    const HRESULT hr = EnsureStream();
    return RvTraceResult("SRC.ActivateObject", SUCCEEDED(hr) ? QueryInterface(riid, object) : hr);
}

/// Builds the stream unless there is one: the geometry of the first activation stays.
HRESULT RvMediaSource::EnsureStream() noexcept {
    ScopedLock lock(m_cs);
    const bool isShutDown = m_state == State::ShutDown;
    const bool hasStream = static_cast<bool>(m_stream);
    lock.Unlock();
    if (isShutDown) {
        return MF_E_SHUTDOWN;
    }
    if (hasStream) {
        return S_OK;
    }
    const RequestedGeometry requested = SelectGeometry();
    const FrameGeometry& geometry = requested.geometry;
    RvTrace("CALL SRC.ActivateObject geometry=%ux%u @%u/%u source=%s", geometry.width, geometry.height,
            geometry.rateNumerator, geometry.rateDenominator, requested.source);
    return BuildStreamForGeometry(geometry);
}

/// The requested geometry, or the default. A request that cannot be honoured never fails the activation.
RvMediaSource::RequestedGeometry RvMediaSource::SelectGeometry() noexcept {
    const RequestedGeometry fallback{kDefaultGeometry, "default"};
    const ComPtr<IMFAttributes> store = ReferenceActivationStore();
    if (!store) {
        return fallback;
    }
    wchar_t text[kGeometryRequestCapacity]{};
    if (FAILED(store->GetString(RV_GEOMETRY_ATTRIBUTE, text, static_cast<UINT32>(kGeometryRequestCapacity), nullptr))) {
        return fallback;
    }
    text[kGeometryRequestCapacity - 1] = L'\0';
    RequestedGeometry requested{{}, "client-attribute"};
    if (!ParseGeometryRequest(text, requested.geometry) || !IsAcceptableGeometry(requested.geometry)) {
        return fallback;
    }
    return requested;
}

HRESULT RvMediaSource::BuildStreamForGeometry(const FrameGeometry& geometry) noexcept {
    const char* label = "SRC.BuildStreamForGeometry/RvCreateVideoMediaType";
    HRESULT hr = E_UNEXPECTED;
    {
        ComPtr<IMFMediaType> mediaType;
        ComPtr<IMFMediaType> fixedType;
        hr = RvCreateVideoMediaType(geometry, mediaType.Put());
        if (SUCCEEDED(hr)) {
            label = "SRC.BuildStreamForGeometry/RvCreateVideoMediaTypeB";
            hr = CreateFixedMediaType(fixedType.Put());
        }
        if (SUCCEEDED(hr)) {
            label = "SRC.BuildStreamForGeometry";
            hr = BuildAndInstall(geometry, mediaType.Get());
        }
    }
    return RvTraceResult(label, hr);
}

HRESULT RvMediaSource::BuildAndInstall(const FrameGeometry& geometry, IMFMediaType* mediaType) noexcept {
    ComPtr<IMFStreamDescriptor> streamDescriptor;
    ComPtr<IMFPresentationDescriptor> presentation;
    ComPtr<RvMediaStream> stream;
    HRESULT hr = CreateDescriptors(mediaType, streamDescriptor.Put(), presentation.Put());
    if (SUCCEEDED(hr)) {
        hr = RvMediaStream::Create(this, streamDescriptor.Get(), geometry, stream.Put());
    }
    if (SUCCEEDED(hr)) {
        hr = InstallStream(presentation, stream);
    }
    if (stream) {
        // Not installed: its threads run already, and it holds a reference on this source.
        stream->Shutdown();
    }
    return hr;
}

/// Hands both objects to the source unless it was shut down, or got a stream, meanwhile; they are left alone then.
HRESULT RvMediaSource::InstallStream(ComPtr<IMFPresentationDescriptor>& presentation,
                                     ComPtr<RvMediaStream>& stream) noexcept {
    const ScopedLock lock(m_cs);
    if (m_state == State::ShutDown) {
        return MF_E_SHUTDOWN;
    }
    if (!m_stream) {
        m_presentationDescriptor = std::move(presentation);
        m_stream = std::move(stream);
    }
    return S_OK;
}

HRESULT RvMediaSource::ShutdownObject() noexcept {
    RvTrace("CALL SRC.ShutdownObject");
    // The pipeline ends the source through IMFMediaSource::Shutdown.
    return RvTraceResult("SRC.ShutdownObject", E_NOTIMPL);
}

HRESULT RvMediaSource::DetachObject() noexcept {
    RvTrace("CALL SRC.DetachObject");
    return RvTraceResult("SRC.DetachObject", E_NOTIMPL);
}

}  // namespace ravlo
