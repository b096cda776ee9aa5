#include <gtest/gtest.h>

#include "stream/video_media_type.h"
#include "support/camera.h"
#include "support/fixtures.h"

// The one media type of a stream, built from a geometry.
namespace ravlo::test {
namespace {

constexpr GUID kStreamId = {0x11BD5120, 0xD124, 0x446B, {0x88, 0xE6, 0x17, 0x06, 0x02, 0x57, 0xFF, 0xF9}};
constexpr GUID kStreamCategory = {0x2939E7B8, 0xA62E, 0x4579, {0xB6, 0x74, 0xD4, 0x07, 0x3D, 0xFA, 0xBB, 0xBA}};
constexpr GUID kVideoCapture = {0xFB6C4281, 0x0353, 0x11D1, {0x90, 0x5F, 0x00, 0x00, 0xC0, 0xCC, 0x16, 0xBA}};

class StreamVideoType : public AnchoredTest {
protected:
    static void ExpectPair(IMFMediaType* type, REFGUID key, std::uint64_t high, std::uint64_t low) {
        UINT64 value = 0;
        EXPECT_EQ(S_OK, type->GetUINT64(key, &value));
        EXPECT_EQ(high << 32 | low, value);
    }
    static void ExpectNumber(IMFMediaType* type, REFGUID key, UINT32 expected) {
        UINT32 value = 0xFFFFFFFF;
        EXPECT_EQ(S_OK, type->GetUINT32(key, &value));
        EXPECT_EQ(expected, value);
    }
    static void ExpectGuid(IMFMediaType* type, REFGUID key, REFGUID expected) {
        GUID value{};
        EXPECT_EQ(S_OK, type->GetGUID(key, &value));
        EXPECT_EQ(expected, value);
    }
    static void ExpectAllFifteen(IMFMediaType* type, UINT32 width, UINT32 height, UINT32 numerator, UINT32 denominator,
                                 UINT32 frameBytes) {
        UINT32 count = 0;
        EXPECT_EQ(S_OK, type->GetCount(&count));
        EXPECT_EQ(15u, count);
        ExpectGuid(type, MF_MT_MAJOR_TYPE, MFMediaType_Video);
        ExpectGuid(type, MF_MT_SUBTYPE, MFVideoFormat_NV12);
        ExpectPair(type, MF_MT_FRAME_SIZE, width, height);
        ExpectPair(type, MF_MT_FRAME_RATE, numerator, denominator);
        ExpectPair(type, MF_MT_FRAME_RATE_RANGE_MAX, numerator, denominator);
        ExpectPair(type, MF_MT_FRAME_RATE_RANGE_MIN, numerator, denominator);
        ExpectPair(type, MF_MT_PIXEL_ASPECT_RATIO, 1, 1);
        ExpectNumber(type, MF_MT_INTERLACE_MODE, 2);
        ExpectNumber(type, MF_MT_VIDEO_NOMINAL_RANGE, 2);
        ExpectNumber(type, MF_MT_ALL_SAMPLES_INDEPENDENT, 1);
        ExpectNumber(type, MF_MT_FIXED_SIZE_SAMPLES, 1);
        ExpectNumber(type, MF_MT_SAMPLE_SIZE, frameBytes);
        ExpectNumber(type, MF_MT_DEFAULT_STRIDE, width);
        ExpectNumber(type, kStreamId, 0);
        ExpectGuid(type, kStreamCategory, kVideoCapture);
    }
};

TEST_F(StreamVideoType, HasItsFifteenAttributes) {
    ComPtr<IMFMediaType> type;
    ASSERT_EQ(S_OK, RvCreateVideoMediaType({1920, 1080, 60, 1}, type.Put()));
    ExpectAllFifteen(type.Get(), 1920, 1080, 60, 1, 3'110'400);
    EXPECT_EQ(1u, ReferenceCount(type.Get()));
    EXPECT_TRUE(m_log.HasMessage("CALL MEDIATYPE.Create 1920x1080 @60/1 NV12")) << m_log.Text();
    ASSERT_EQ(S_OK, RvCreateVideoMediaType({2, 2, 30000, 1001}, type.Put()));
    ExpectAllFifteen(type.Get(), 2, 2, 30000, 1001, 6);
    ASSERT_EQ(S_OK, RvCreateVideoMediaType({16384, 16384, 1, 1}, type.Put()));
    ExpectAllFifteen(type.Get(), 16384, 16384, 1, 1, 402'653'184);
}

TEST_F(StreamVideoType, IsWhatTheCameraAdvertises) {
    const ModuleUnderTest module;
    const Camera camera(module, {.geometry = L"642x362@30000/1001"});
    ExpectAllFifteen(MediaTypeOf(camera.Source()).Get(), 642, 362, 30000, 1001, 348'606);
}

TEST_F(StreamVideoType, AnInvalidGeometryLeavesTheOutputAloneAndIsTracedAllTheSame) {
    IMFMediaType* const untouched = reinterpret_cast<IMFMediaType*>(this);
    for (const FrameGeometry& geometry :
         {FrameGeometry{16386, 2, 60, 1}, FrameGeometry{1920, 1081, 60, 1}, FrameGeometry{0, 1080, 60, 1},
          FrameGeometry{1920, 0, 60, 1}, FrameGeometry{1919, 1080, 60, 1}, FrameGeometry{2, 16386, 60, 1},
          FrameGeometry{1920, 1080, 0, 1}, FrameGeometry{1920, 1080, 60, 0}}) {
        IMFMediaType* type = untouched;
        EXPECT_EQ(E_INVALIDARG, RvCreateVideoMediaType(geometry, &type));
        EXPECT_EQ(untouched, type);
    }
    EXPECT_TRUE(m_log.HasMessage("CALL MEDIATYPE.Create 16386x2 @60/1 NV12")) << m_log.Text();
    EXPECT_EQ(8u, m_log.CountLines("CALL MEDIATYPE.Create"));
}

TEST_F(StreamVideoType, ANullOutputComesBeforeTheGeometryAndIsTraced) {
    EXPECT_EQ(E_POINTER, RvCreateVideoMediaType({1, 1, 60, 1}, nullptr));
    EXPECT_TRUE(m_log.HasMessage("CALL MEDIATYPE.Create 1x1 @60/1 NV12")) << m_log.Text();
}

TEST_F(StreamVideoType, APlatformFailureIsTheResultAndTheOutputNull) {
    RAVLO_HOOK(MFCreateMediaType) types(GetModuleHandleW(nullptr));
    types.FailCall(1, E_OUTOFMEMORY);
    IMFMediaType* type = reinterpret_cast<IMFMediaType*>(this);
    EXPECT_EQ(E_OUTOFMEMORY, RvCreateVideoMediaType({64, 36, 60, 1}, &type));
    EXPECT_EQ(nullptr, type);
}

}  // namespace
}  // namespace ravlo::test
