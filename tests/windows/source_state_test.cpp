// What every method of the source gives in each of its states, and the checks of Start in their order.
#include "support/fixtures.h"
#include "windows/log_text.h"

namespace ravlo::test {
namespace {

constexpr GUID kTimeFormat = {0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};

/// A descriptor that is not the source's: its contents are not looked at.
ComPtr<IMFPresentationDescriptor> ForeignPresentation() {
    ComPtr<IMFMediaType> type;
    Require(MFCreateMediaType(type.Put()), "MFCreateMediaType");
    IMFMediaType* types[] = {type.Get()};
    ComPtr<IMFStreamDescriptor> stream;
    Require(MFCreateStreamDescriptor(7, 1, types, stream.Put()), "MFCreateStreamDescriptor");
    IMFStreamDescriptor* streams[] = {stream.Get()};
    ComPtr<IMFPresentationDescriptor> presentation;
    Require(MFCreatePresentationDescriptor(1, streams, presentation.Put()), "MFCreatePresentationDescriptor");
    return presentation;
}

class SourceState : public ModuleTest {
protected:
    static constexpr const wchar_t* kSmall = L"64x36@60/1";

    ComPtr<IMFPresentationDescriptor> m_presentation = ForeignPresentation();
    PropVariant m_empty;
};

void ExpectStoppedOrStarted(IMFMediaSourceEx* source) {
    DWORD characteristics = 0;
    EXPECT_EQ(S_OK, source->GetCharacteristics(&characteristics));
    EXPECT_EQ(1u, characteristics);
    ComPtr<IMFPresentationDescriptor> presentation;
    EXPECT_EQ(S_OK, source->CreatePresentationDescriptor(presentation.Put()));
    EXPECT_EQ(MF_E_INVALID_STATE_TRANSITION, source->Pause());
    ComPtr<IMFAttributes> attributes;
    EXPECT_EQ(S_OK, source->GetSourceAttributes(attributes.Put()));
    EXPECT_EQ(S_OK, source->GetStreamAttributes(0, attributes.Put()));
    EXPECT_EQ(E_NOTIMPL, source->SetD3DManager(nullptr));
    EXPECT_EQ(E_NOTIMPL, source->SetD3DManager(source));
}

TEST_F(SourceState, StoppedAfterActivation) {
    Camera camera(m_module, {.geometry = kSmall});
    ExpectStoppedOrStarted(camera.Source());
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.GetCharacteristics"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.GetCharacteristics chars=0x00000001 hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.GetCharacteristics hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.CreatePresentationDescriptor"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.CreatePresentationDescriptor hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.Pause"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.Pause hr=0xC00D3E82"));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.GetSourceAttributes"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.GetSourceAttributes hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.GetStreamAttributes id=0"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.GetStreamAttributes hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.SetD3DManager pManager=" + PointerText(camera.Source())));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.SetD3DManager hr=0x80004001"));
}

TEST_F(SourceState, StartedAndPauseChangesNothing) {
    Camera camera(m_module, {.geometry = kSmall});
    camera.Start();
    ExpectStoppedOrStarted(camera.Source());
    EXPECT_EQ(S_OK, camera.Stream()->RequestSample(nullptr));
    EXPECT_TRUE(DrainEvents(camera.Source()).empty());
}

TEST_F(SourceState, StoppedAgain) {
    Camera camera(m_module, {.geometry = kSmall});
    camera.Start();
    camera.Stop();
    ExpectStoppedOrStarted(camera.Source());
}

TEST_F(SourceState, NeverActivated) {
    const ComPtr<IMFMediaSourceEx> source = m_module.CreateSource<IMFMediaSourceEx>();
    auto* presentation = reinterpret_cast<IMFPresentationDescriptor*>(std::uintptr_t{1});
    EXPECT_EQ(MF_E_NOT_INITIALIZED, source->CreatePresentationDescriptor(&presentation));
    EXPECT_EQ(nullptr, presentation);
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.CreatePresentationDescriptor hr=0xC00D36B6"));
    EXPECT_EQ(MF_E_NOT_INITIALIZED, source->Start(m_presentation.Get(), nullptr, m_empty.Get()));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.Start hr=0xC00D36B6"));
    EXPECT_EQ(MF_E_INVALID_STATE_TRANSITION, source->Pause());
    DWORD characteristics = 0;
    EXPECT_EQ(S_OK, source->GetCharacteristics(&characteristics));
    EXPECT_EQ(1u, characteristics);
    EXPECT_TRUE(DrainEvents(source.Get()).empty());
    source->Shutdown();
}

TEST_F(SourceState, NeverActivatedItStopsAsWell) {
    const ComPtr<IMFMediaSourceEx> source = m_module.CreateSource<IMFMediaSourceEx>();
    EXPECT_EQ(S_OK, source->Stop());
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.Stop"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Stop hr=0x00000000"));
    const std::optional<Event> stopped = NextEvent(source.Get());
    ASSERT_TRUE(stopped);
    EXPECT_EQ(MediaEventType{MESourceStopped}, stopped->type);
    EXPECT_EQ(S_OK, stopped->status);
    EXPECT_EQ(VT_EMPTY, stopped->value.Type());
    source->Shutdown();
}

TEST_F(SourceState, AfterShutdownEverythingElseIsRefused) {
    Camera camera(m_module, {.geometry = kSmall});
    camera.Start();
    IMFMediaSourceEx* const source = camera.Source();
    EXPECT_EQ(S_OK, source->Shutdown());
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.Shutdown"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Shutdown hr=0x00000000"));
    EXPECT_EQ(S_OK, source->Shutdown());
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Shutdown (repeat) hr=0x00000000"));

    DWORD characteristics = 99;
    EXPECT_EQ(MF_E_SHUTDOWN, source->GetCharacteristics(&characteristics));
    EXPECT_EQ(0u, characteristics);
    auto* presentation = reinterpret_cast<IMFPresentationDescriptor*>(std::uintptr_t{1});
    EXPECT_EQ(MF_E_SHUTDOWN, source->CreatePresentationDescriptor(&presentation));
    EXPECT_EQ(nullptr, presentation);
    EXPECT_EQ(MF_E_SHUTDOWN, source->Start(m_presentation.Get(), nullptr, m_empty.Get()));
    EXPECT_EQ(MF_E_SHUTDOWN, source->Stop());
    EXPECT_EQ(MF_E_SHUTDOWN, source->Pause());
    auto* attributes = reinterpret_cast<IMFAttributes*>(std::uintptr_t{1});
    EXPECT_EQ(MF_E_SHUTDOWN, source->GetSourceAttributes(&attributes));
    EXPECT_EQ(nullptr, attributes);
    attributes = reinterpret_cast<IMFAttributes*>(std::uintptr_t{1});
    EXPECT_EQ(MF_E_SHUTDOWN, source->GetStreamAttributes(0, &attributes));
    EXPECT_EQ(nullptr, attributes);
    EXPECT_EQ(MF_E_SHUTDOWN, source->GetStreamAttributes(1, &attributes)) << "before the stream's number is looked at";
    EXPECT_EQ(MF_E_SHUTDOWN, source->SetD3DManager(nullptr));
    for (const char* method : {"GetCharacteristics", "CreatePresentationDescriptor", "Start", "Stop", "Pause",
                               "GetSourceAttributes", "GetStreamAttributes", "SetD3DManager"}) {
        EXPECT_TRUE(m_log.HasMessage("FAIL SRC." + std::string(method) + " hr=0xC00D3E85")) << method;
    }
    EXPECT_TRUE(camera.Source()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&attributes)) == S_OK)
        << "identity does not depend on the state";
    attributes->Release();
}

TEST_F(SourceState, ShutdownFromStoppedAndBeforeActivation) {
    const ComPtr<IMFMediaSourceEx> fresh = m_module.CreateSource<IMFMediaSourceEx>();
    EXPECT_EQ(S_OK, fresh->Shutdown());
    EXPECT_EQ(MF_E_SHUTDOWN, fresh->Pause());
    Camera camera(m_module, {.geometry = kSmall});
    EXPECT_EQ(S_OK, camera.Source()->Shutdown());
    EXPECT_EQ(MF_E_SHUTDOWN, camera.Source()->Pause());
}

TEST_F(SourceState, NullOutputPointersAreRefusedInEveryState) {
    Camera camera(m_module, {.geometry = kSmall});
    for (int round = 0; round < 2; ++round) {
        m_log.Restart();
        EXPECT_EQ(E_POINTER, camera.Source()->GetCharacteristics(nullptr));
        EXPECT_EQ(E_POINTER, camera.Source()->CreatePresentationDescriptor(nullptr));
        EXPECT_EQ(E_POINTER, camera.Source()->GetSourceAttributes(nullptr));
        EXPECT_EQ(E_POINTER, camera.Source()->GetStreamAttributes(1, nullptr));
        EXPECT_TRUE(m_log.HasMessage("CALL SRC.GetStreamAttributes id=1"));
        for (const char* method :
             {"GetCharacteristics", "CreatePresentationDescriptor", "GetSourceAttributes", "GetStreamAttributes"}) {
            EXPECT_TRUE(m_log.HasMessage("FAIL SRC." + std::string(method) + " hr=0x80004003")) << method;
        }
        camera.Shutdown();
    }
}

TEST_F(SourceState, ThereIsOneStream) {
    Camera camera(m_module, {.geometry = kSmall});
    auto* attributes = reinterpret_cast<IMFAttributes*>(std::uintptr_t{1});
    EXPECT_EQ(MF_E_INVALIDSTREAMNUMBER, camera.Source()->GetStreamAttributes(1, &attributes));
    EXPECT_EQ(nullptr, attributes);
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.GetStreamAttributes hr=0xC00D36B3"));
    EXPECT_EQ(MF_E_INVALIDSTREAMNUMBER, camera.Source()->GetStreamAttributes(0xFFFFFFFF, &attributes));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.GetStreamAttributes id=4294967295"));
}

TEST_F(SourceState, TheAttributeStoresAreTheSameObjectEveryTime) {
    Camera camera(m_module, {.geometry = kSmall});
    ComPtr<IMFAttributes> first;
    ComPtr<IMFAttributes> second;
    ASSERT_EQ(S_OK, camera.Source()->GetSourceAttributes(first.Put()));
    const ULONG references = ReferenceCount(first.Get());
    ASSERT_EQ(S_OK, camera.Source()->GetSourceAttributes(second.Put()));
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_EQ(references + 1, ReferenceCount(first.Get()));
    ASSERT_EQ(S_OK, camera.Source()->GetStreamAttributes(0, first.Put()));
    ASSERT_EQ(S_OK, camera.Source()->GetStreamAttributes(0, second.Put()));
    EXPECT_EQ(first.Get(), second.Get());
}

TEST_F(SourceState, APresentationDescriptorIsACopyEveryTime) {
    Camera camera(m_module, {.geometry = kSmall});
    const ComPtr<IMFPresentationDescriptor> first = PresentationOf(camera.Source());
    const ComPtr<IMFPresentationDescriptor> second = PresentationOf(camera.Source());
    EXPECT_FALSE(IsSameObject(first.Get(), second.Get()));
    BOOL selected = FALSE;
    ComPtr<IMFStreamDescriptor> stream;
    EXPECT_EQ(S_OK, first->GetStreamDescriptorByIndex(0, &selected, stream.Put()));
    EXPECT_TRUE(selected) << "stream 0 comes selected";
    EXPECT_EQ(S_OK, first->DeselectStream(0));
    const ComPtr<IMFPresentationDescriptor> third = PresentationOf(camera.Source());
    EXPECT_EQ(S_OK, third->GetStreamDescriptorByIndex(0, &selected, stream.Put()));
    EXPECT_TRUE(selected) << "what a client does to its copy stays there";
}

TEST_F(SourceState, StartChecksTheDescriptorFirst) {
    const ComPtr<IMFMediaSourceEx> source = m_module.CreateSource<IMFMediaSourceEx>();
    PropVariant real;
    real->vt = VT_R8;
    EXPECT_EQ(E_INVALIDARG, source->Start(nullptr, &kTimeFormat, real.Get()));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.Start hr=0x80070057"));
    EXPECT_FALSE(m_log.Contains("time format"));
    source->Shutdown();
    EXPECT_EQ(MF_E_SHUTDOWN, source->Start(nullptr, nullptr, nullptr)) << "a source that is gone says so first";
}

TEST_F(SourceState, StartRefusesATimeFormatBeforeAnyEvent) {
    Camera camera(m_module, {.geometry = kSmall});
    EXPECT_EQ(MF_E_UNSUPPORTED_TIME_FORMAT, camera.Source()->Start(m_presentation.Get(), &kTimeFormat, m_empty.Get()));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.Start pPD=" + PointerText(m_presentation.Get()) +
                                 " pguidTimeFormat=" + PointerText(&kTimeFormat) + " vt=0"))
        << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.Start time format {01234567-89AB-CDEF-0123-456789ABCDEF} hr=0xC00D36C5"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.Start hr=0xC00D36C5"));
    EXPECT_TRUE(DrainEvents(camera.Source()).empty());
}

TEST_F(SourceState, StartRefusesOtherPositionsThanNoneAndATime) {
    Camera camera(m_module, {.geometry = kSmall});
    for (const VARTYPE type : {VT_R8, VT_UI8, VT_I4, VT_NULL}) {
        PropVariant position;
        position->vt = type;
        EXPECT_EQ(MF_E_UNSUPPORTED_TIME_FORMAT,
                  camera.Source()->Start(m_presentation.Get(), &GUID_NULL, position.Get()))
            << type;
    }
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.Start pPD=" + PointerText(m_presentation.Get()) +
                                 " pguidTimeFormat=" + PointerText(&GUID_NULL) + " vt=5"));
    EXPECT_TRUE(DrainEvents(camera.Source()).empty());
    EXPECT_FALSE(m_log.Contains("CALL STM.Start"));
}

}  // namespace
}  // namespace ravlo::test
