#include <gtest/gtest.h>

#include <string>

#include "support/camera.h"
#include "support/fixtures.h"
#include "windows/stream_object.h"

// The look at the current media type that precedes a Start.
namespace ravlo::test {
namespace {

class StreamMediaType : public ModuleTest {
protected:
    HRESULT Start() {
        const PropVariant position;
        return m_camera.Source()->Start(PresentationOf(m_camera.Source()).Get(), nullptr, position.Get());
    }
    ComPtr<IMFMediaTypeHandler> Handler() {
        BOOL selected = FALSE;
        ComPtr<IMFStreamDescriptor> descriptor;
        Require(PresentationOf(m_camera.Source())->GetStreamDescriptorByIndex(0, &selected, descriptor.Put()),
                "GetStreamDescriptorByIndex");
        ComPtr<IMFMediaTypeHandler> handler;
        Require(descriptor->GetMediaTypeHandler(handler.Put()), "GetMediaTypeHandler");
        return handler;
    }
    void Select(const FrameGeometry& geometry) {
        ComPtr<IMFMediaType> type;
        Require(RvCreateVideoMediaType(geometry, type.Put()), "RvCreateVideoMediaType");
        Require(Handler()->SetCurrentMediaType(type.Get()), "SetCurrentMediaType");
    }

    Camera m_camera{m_module, {.geometry = L"64x36@60/1"}};
};

TEST_F(StreamMediaType, AnyDifferenceRefusesTheStartWithBothGeometriesNamed) {
    const struct {
        FrameGeometry geometry;
        const char* text;
    } others
        [] =
            {
                {{66, 36, 60, 1}, "66x36 @ 60/1"},   {{64, 38, 60, 1}, "64x38 @ 60/1"},
                {{64, 36, 30, 1}, "64x36 @ 30/1"},   {{64, 36, 60, 2}, "64x36 @ 60/2"},
                {{64, 36, 120, 2}, "64x36 @ 120/2"},  // the same rate in other numbers is another rate
            };
    for (const auto& other : others) {
        m_log.Restart();
        Select(other.geometry);
        EXPECT_EQ(static_cast<HRESULT>(0xC00D36B4), Start()) << other.text;
        EXPECT_TRUE(m_log.HasMessage(std::string("FAIL STM.Start current media type ") + other.text +
                                     " does not match the geometry this stream was constructed with (64x36 @ 60/1) - "
                                     "a media-type change requires a NEW stream object, not a mutated one"))
            << m_log.Text();
        EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start/geometry-mismatch hr=0xC00D36B4")) << m_log.Text();
        EXPECT_FALSE(m_log.HasMessage("CALL STM.Start")) << m_log.Text();
    }
}

TEST_F(StreamMediaType, TheRightTypeStartsAfterAWrongOneWasRefused) {
    Select({640, 360, 30, 1});
    ASSERT_EQ(MF_E_INVALIDMEDIATYPE, Start());
    Select({64, 36, 60, 1});
    EXPECT_EQ(S_OK, Start());
    EXPECT_TRUE(m_log.HasMessage("RET STM.Start hr=0x00000000")) << m_log.Text();
}

TEST_F(StreamMediaType, ATypeWithoutAFrameSizeStartsUnverified) {
    ComPtr<IMFMediaType> type;
    Require(MFCreateMediaType(type.Put()), "MFCreateMediaType");
    Require(type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video), "SetGUID");
    Require(type->SetGUID(MF_MT_SUBTYPE, MFVideoFormat_NV12), "SetGUID");
    Require(Handler()->SetCurrentMediaType(type.Get()), "SetCurrentMediaType");
    EXPECT_EQ(S_OK, Start());
    EXPECT_TRUE(
        m_log.HasMessage("WARN STM.Start GetCurrentMediaType hr=0xC00D36E6 - proceeding UNVERIFIED with 64x36 @ 60/1"))
        << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET STM.Start hr=0x00000000")) << m_log.Text();
}

TEST_F(StreamMediaType, ATypeWithoutARateStartsUnverified) {
    ComPtr<IMFMediaType> type;
    Require(MFCreateMediaType(type.Put()), "MFCreateMediaType");
    Require(type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video), "SetGUID");
    Require(type->SetGUID(MF_MT_SUBTYPE, MFVideoFormat_NV12), "SetGUID");
    Require(MFSetAttributeSize(type.Get(), MF_MT_FRAME_SIZE, 640, 360), "MFSetAttributeSize");
    Require(Handler()->SetCurrentMediaType(type.Get()), "SetCurrentMediaType");
    EXPECT_EQ(S_OK, Start());
    EXPECT_EQ(1u, m_log.CountLines("proceeding UNVERIFIED with 64x36 @ 60/1"));
}

class StreamTypeCheck : public AnchoredTest {};

TEST_F(StreamTypeCheck, NoCurrentTypeIsUnverifiedAndNoFailure) {
    StreamObject object({64, 36, 30000, 1001}, false);
    EXPECT_EQ(S_OK, object->CheckCurrentMediaType());
    EXPECT_TRUE(m_log.HasMessage(
        "WARN STM.Start GetCurrentMediaType hr=0xC00D36B6 - proceeding UNVERIFIED with 64x36 @ 30000/1001"))
        << m_log.Text();
}

TEST_F(StreamTypeCheck, TheRightTypePassesInSilence) {
    StreamObject object;
    m_log.Restart();
    EXPECT_EQ(S_OK, object->CheckCurrentMediaType());
    EXPECT_EQ(0u, m_log.CountLines("STM.Start")) << m_log.Text();
}

}  // namespace
}  // namespace ravlo::test
