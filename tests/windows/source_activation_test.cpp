// The activation: what it gives, what it builds and what it publishes.
#include "windows/activation_fixture.h"

#include <vector>

namespace ravlo::test {
namespace {

constexpr GUID kStreamId = {0x11BD5120, 0xD124, 0x446B, {0x88, 0xE6, 0x17, 0x06, 0x02, 0x57, 0xFF, 0xF9}};
constexpr GUID kStreamCategory = {0x2939E7B8, 0xA62E, 0x4579, {0xB6, 0x74, 0xD4, 0x07, 0x3D, 0xFA, 0xBB, 0xBA}};
constexpr GUID kFrameSourceTypes = {0x17145FD1, 0x1B2B, 0x423C, {0x80, 0x01, 0x2B, 0x68, 0x33, 0xED, 0x35, 0x88}};
constexpr GUID kVideoCapturePin = {0xFB6C4281, 0x0353, 0x11D1, {0x90, 0x5F, 0x00, 0x00, 0xC0, 0xCC, 0x16, 0xBA}};

class SourceActivation : public ActivationTest {};

TEST_F(SourceActivation, ItReturnsTheSourceItself) {
    Create();
    ComPtr<IMFMediaSourceEx> source;
    EXPECT_EQ(S_OK, m_activate->ActivateObject(IID_IMFMediaSourceEx, source.PutVoid()));
    EXPECT_TRUE(IsSameObject(m_activate.Get(), source.Get()));
    std::size_t at = 0;
    for (const char* text :
         {"CALL SRC.ActivateObject riid {3C9B2EB9-86D5-4514-A394-F56664F9F0D8} hr=0x00000000", "WHOAMI pid=",
          "ACTATTR source count=5", "CALL SRC.ActivateObject geometry=64x36 @60/1 source=client-attribute",
          "CALL MEDIATYPE.Create 64x36 @60/1 NV12", "RET SRC.BuildStreamForGeometry hr=0x00000000",
          "QI-SRC {3C9B2EB9-86D5-4514-A394-F56664F9F0D8} hr=0x00000000", "RET SRC.ActivateObject hr=0x00000000"}) {
        const auto found = m_log.Find(text, at);
        ASSERT_TRUE(found) << text << "\n" << m_log.Text();
        at = *found + 1;
    }
}

TEST_F(SourceActivation, ASecondActivationKeepsTheFirstGeometry) {
    Create();
    ASSERT_EQ(S_OK, Activate());
    const ComPtr<IMFMediaType> before = MediaTypeOf(m_source.Get());
    Require(m_activate->SetString(kGeometryAttribute, L"640x360@30/1"), "SetString");
    m_log.Restart();
    EXPECT_EQ(S_OK, Activate());
    EXPECT_EQ(before.Get(), MediaTypeOf(m_source.Get()).Get()) << "nothing is rebuilt";
    EXPECT_FALSE(m_log.Contains("geometry="));
    EXPECT_FALSE(m_log.Contains("BuildStreamForGeometry"));
    EXPECT_TRUE(m_log.HasMessage("ACTATTR source count=5"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.ActivateObject hr=0x00000000"));
}

TEST_F(SourceActivation, AnInterfaceThatTheSourceLacksIsRefusedButTheStreamIsBuilt) {
    Create();
    void* out = m_source.Get();
    EXPECT_EQ(E_NOINTERFACE, m_activate->ActivateObject(IID_IMFMediaStream, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.ActivateObject hr=0x80004002"));
    EXPECT_TRUE(PresentationOf(m_source.Get()));
}

TEST_F(SourceActivation, ANullOutputIsAPointerErrorAndBuildsNothing) {
    Create();
    EXPECT_EQ(E_POINTER, m_activate->ActivateObject(IID_IMFMediaSource, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.ActivateObject hr=0x80004003"));
    EXPECT_FALSE(m_log.Contains("geometry="));
}

TEST_F(SourceActivation, ARefusalLeavesNoPointerInTheOutput) {
    Create();
    m_source->Shutdown();
    void* object = this;
    EXPECT_EQ(MF_E_SHUTDOWN, m_activate->ActivateObject(IID_IMFMediaSource, &object));
    EXPECT_EQ(nullptr, object);
}

TEST_F(SourceActivation, AfterShutdownItIsRefused) {
    Create();
    m_source->Shutdown();
    EXPECT_EQ(MF_E_SHUTDOWN, Activate());
    EXPECT_TRUE(m_log.HasMessage("ACTATTR source store=NULL"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.ActivateObject hr=0xC00D3E85"));
    EXPECT_FALSE(m_log.Contains("geometry="));
}

TEST_F(SourceActivation, AnActivatedSourceIsRefusedAfterShutdownToo) {
    Create();
    ASSERT_EQ(S_OK, Activate());
    m_source->Shutdown();
    EXPECT_EQ(MF_E_SHUTDOWN, Activate());
}

TEST_F(SourceActivation, ShuttingDownOrDetachingTheObjectDoesNothing) {
    Create();
    ASSERT_EQ(S_OK, Activate());
    EXPECT_EQ(E_NOTIMPL, m_activate->ShutdownObject());
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.ShutdownObject"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.ShutdownObject hr=0x80004001"));
    EXPECT_EQ(E_NOTIMPL, m_activate->DetachObject());
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.DetachObject"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.DetachObject hr=0x80004001"));
    EXPECT_EQ(S_OK, m_source->Start(PresentationOf(m_source.Get()).Get(), nullptr, nullptr));
    EXPECT_EQ(S_OK, Activate());
}

/// What an attribute store holds, in its order: key, type and value as text.
struct Item {
    GUID key;
    VARTYPE type;
    UINT64 number;
    GUID guid;

    bool operator==(const Item& other) const {
        return key == other.key && type == other.type && number == other.number && guid == other.guid;
    }
};

std::vector<Item> ItemsOf(IMFAttributes* store) {
    UINT32 count = 0;
    Require(store->GetCount(&count), "GetCount");
    std::vector<Item> items;
    for (UINT32 index = 0; index < count; ++index) {
        Item item{};
        PropVariant value;
        Require(store->GetItemByIndex(index, &item.key, value.Put()), "GetItemByIndex");
        item.type = value.Type();
        if (item.type == VT_UI4) {
            item.number = value->ulVal;
        } else if (item.type == VT_UI8) {
            item.number = value->uhVal.QuadPart;
        } else if (item.type == VT_CLSID) {
            item.guid = *value->puuid;
        }
        items.push_back(item);
    }
    return items;
}

Item Number(const GUID& key, UINT32 value) {
    return {key, VT_UI4, value, {}};
}
Item Pair(const GUID& key, UINT32 high, UINT32 low) {
    return {key, VT_UI8, UINT64{high} << 32 | low, {}};
}
Item Identifier(const GUID& key, const GUID& value) {
    return {key, VT_CLSID, 0, value};
}

TEST_F(SourceActivation, TheStreamOffersOneTypeWithItsFifteenAttributesInOrder) {
    Create(L"1280x720@30000/1001");
    ASSERT_EQ(S_OK, Activate());
    const std::vector<Item> expected = {
        Identifier(MF_MT_MAJOR_TYPE, MFMediaType_Video),
        Identifier(MF_MT_SUBTYPE, MFVideoFormat_NV12),
        Pair(MF_MT_FRAME_SIZE, 1280, 720),
        Pair(MF_MT_FRAME_RATE, 30000, 1001),
        Pair(MF_MT_FRAME_RATE_RANGE_MAX, 30000, 1001),
        Pair(MF_MT_FRAME_RATE_RANGE_MIN, 30000, 1001),
        Pair(MF_MT_PIXEL_ASPECT_RATIO, 1, 1),
        Number(MF_MT_INTERLACE_MODE, 2),
        Number(MF_MT_VIDEO_NOMINAL_RANGE, 2),
        Number(MF_MT_ALL_SAMPLES_INDEPENDENT, 1),
        Number(MF_MT_FIXED_SIZE_SAMPLES, 1),
        Number(MF_MT_SAMPLE_SIZE, 1382400),
        Number(MF_MT_DEFAULT_STRIDE, 1280),
        Number(kStreamId, 0),
        Identifier(kStreamCategory, kVideoCapturePin),
    };
    EXPECT_EQ(expected, ItemsOf(MediaTypeOf(m_source.Get()).Get()));
    EXPECT_TRUE(m_log.HasMessage("CALL MEDIATYPE.Create 1280x720 @30000/1001 NV12"));

    const ComPtr<IMFPresentationDescriptor> presentation = PresentationOf(m_source.Get());
    DWORD streams = 0;
    EXPECT_EQ(S_OK, presentation->GetStreamDescriptorCount(&streams));
    EXPECT_EQ(1u, streams);
    BOOL selected = FALSE;
    ComPtr<IMFStreamDescriptor> stream;
    ASSERT_EQ(S_OK, presentation->GetStreamDescriptorByIndex(0, &selected, stream.Put()));
    EXPECT_TRUE(selected);
    DWORD identifier = 99;
    EXPECT_EQ(S_OK, stream->GetStreamIdentifier(&identifier));
    EXPECT_EQ(0u, identifier);
    EXPECT_EQ((std::vector<Item>{Number(kStreamId, 0), Identifier(kStreamCategory, kVideoCapturePin)}),
              ItemsOf(stream.Get()));
    ComPtr<IMFMediaTypeHandler> handler;
    ASSERT_EQ(S_OK, stream->GetMediaTypeHandler(handler.Put()));
    DWORD types = 0;
    EXPECT_EQ(S_OK, handler->GetMediaTypeCount(&types));
    EXPECT_EQ(1u, types);
    ComPtr<IMFMediaType> offered;
    EXPECT_EQ(S_OK, handler->GetMediaTypeByIndex(0, offered.Put()));
    EXPECT_TRUE(IsSameObject(offered.Get(), MediaTypeOf(m_source.Get()).Get())) << "it is the current type as well";
}

TEST_F(SourceActivation, TheStreamsIdentityIsPublishedInOrder) {
    Create();
    ComPtr<IMFAttributes> attributes;
    ASSERT_EQ(S_OK, m_source->GetStreamAttributes(0, attributes.Put()));
    EXPECT_EQ((std::vector<Item>{Number(kStreamId, 0), Identifier(kStreamCategory, kVideoCapturePin),
                                 Number(kFrameSourceTypes, 1)}),
              ItemsOf(attributes.Get()));
}

TEST_F(SourceActivation, TheFixedTypeIsBuiltInItsOwnOrderAndDropped) {
    std::vector<ComPtr<IMFMediaType>> types;
    RAVLO_HOOK(MFCreateMediaType) creations(m_module.Handle());
    creations.Replace([&](IMFMediaType** out) {
        const HRESULT hr = decltype(creations)::CallOriginal(out);
        types.push_back(ComPtr<IMFMediaType>::Share(*out));
        return hr;
    });
    Create();
    ASSERT_EQ(S_OK, Activate());
    ASSERT_EQ(2u, types.size());
    const std::vector<Item> expected = {
        Identifier(MF_MT_MAJOR_TYPE, MFMediaType_Video),
        Identifier(MF_MT_SUBTYPE, MFVideoFormat_NV12),
        Pair(MF_MT_FRAME_SIZE, 640, 360),
        Pair(MF_MT_FRAME_RATE, 30, 1),
        Pair(MF_MT_FRAME_RATE_RANGE_MIN, 30, 1),
        Pair(MF_MT_FRAME_RATE_RANGE_MAX, 30, 1),
        Pair(MF_MT_PIXEL_ASPECT_RATIO, 1, 1),
        Number(MF_MT_INTERLACE_MODE, 2),
        Number(MF_MT_VIDEO_NOMINAL_RANGE, 2),
        Number(MF_MT_ALL_SAMPLES_INDEPENDENT, 1),
        Number(MF_MT_FIXED_SIZE_SAMPLES, 1),
        Number(MF_MT_SAMPLE_SIZE, 345600),
        Number(MF_MT_DEFAULT_STRIDE, 640),
        Number(kStreamId, 0),
        Identifier(kStreamCategory, kVideoCapturePin),
    };
    EXPECT_EQ(expected, ItemsOf(types[1].Get()));
    EXPECT_EQ(1u, ReferenceCount(types[1].Get()));
    EXPECT_LT(1u, ReferenceCount(types[0].Get()));
}

TEST_F(SourceActivation, AnActivatedSourceThatIsOnlyReleasedLivesOnThroughItsStream) {
    ComPtr<IMFMediaStream> stream;
    {
        Camera camera(m_module, {.geometry = kSmall});
        camera.Start();
        stream = ComPtr<IMFMediaStream>::Share(camera.Stream());
        camera.ReleaseAll();
    }
    EXPECT_FALSE(m_log.Contains("SRC.Shutdown"));
    EXPECT_EQ(S_FALSE, m_module.CanUnloadNow());
    ComPtr<IMFMediaSource> source;
    ASSERT_EQ(S_OK, stream->GetMediaSource(source.Put()));
    EXPECT_EQ(S_OK, stream->RequestSample(nullptr)) << "it still serves";
    EXPECT_EQ(S_OK, source->Shutdown());
}

}  // namespace
}  // namespace ravlo::test
