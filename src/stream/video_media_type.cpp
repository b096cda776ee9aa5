#include "stream/video_media_type.h"

#include "platform/mf_ids.h"
#include "stream/media_type_attributes.h"
#include "trace/trace.h"

namespace ravlo {

HRESULT RvCreateVideoMediaType(const FrameGeometry& geometry, IMFMediaType** mediaType) noexcept {
    RvTrace("CALL MEDIATYPE.Create %ux%u @%u/%u NV12", geometry.width, geometry.height, geometry.rateNumerator,
            geometry.rateDenominator);
    if (mediaType == nullptr) {
        return E_POINTER;
    }
    if (!IsValidGeometry(geometry)) {
        return E_INVALIDARG;
    }
    using Attribute = MediaTypeAttribute;
    const UINT32 numerator = geometry.rateNumerator;
    const UINT32 denominator = geometry.rateDenominator;
    const Attribute attributes[] = {
        Attribute::Identifier(MF_MT_MAJOR_TYPE, MFMediaType_Video),
        Attribute::Identifier(MF_MT_SUBTYPE, MFVideoFormat_NV12),
        Attribute::Pair(MF_MT_FRAME_SIZE, geometry.width, geometry.height),
        Attribute::Pair(MF_MT_FRAME_RATE, numerator, denominator),
        // Both ends of the range are the one rate: another rate means another stream object.
        Attribute::Pair(MF_MT_FRAME_RATE_RANGE_MAX, numerator, denominator),
        Attribute::Pair(MF_MT_FRAME_RATE_RANGE_MIN, numerator, denominator),
        Attribute::Pair(MF_MT_PIXEL_ASPECT_RATIO, 1, 1),
        Attribute::Number(MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive),
        Attribute::Number(MF_MT_VIDEO_NOMINAL_RANGE, MFNominalRange_16_235),
        Attribute::Number(MF_MT_ALL_SAMPLES_INDEPENDENT, TRUE),
        Attribute::Number(MF_MT_FIXED_SIZE_SAMPLES, TRUE),
        Attribute::Number(MF_MT_SAMPLE_SIZE, static_cast<UINT32>(FrameBytes(geometry))),
        Attribute::Number(MF_MT_DEFAULT_STRIDE, DefaultStride(geometry)),
        Attribute::Number(kDeviceStreamId, 0),
        Attribute::Identifier(kDeviceStreamCategory, kPinVideoCapture),
    };
    return CreateMediaType(attributes, mediaType);
}

}  // namespace ravlo
