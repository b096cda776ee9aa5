#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>

#include "support/camera.h"
#include "support/fixtures.h"

// The stream as a COM object: its interfaces, its getters and its event methods.
namespace ravlo::test {
namespace {

constexpr GUID kInProcFreeMarshaler = {0x0000033A, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

/// An address as the log shows it.
std::string Pointer(const void* address) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llX", reinterpret_cast<unsigned long long>(address));
    return text;
}

class StreamFaces : public ModuleTest {
protected:
    StreamFaces() { m_camera.Start(); }
    IMFMediaStream* Stream() const { return m_camera.Stream(); }

    Camera m_camera{m_module, {.geometry = L"64x36@60/1"}};
};

TEST_F(StreamFaces, ItsThreeInterfacesAreOneObjectAndEachAnswerIsReported) {
    RAVLO_HOOK(OutputDebugStringW) debugger(m_module.Handle());
    const struct {
        GUID iid;
        const char* text;
        const wchar_t* wide;
    } faces[] = {
        {IID_IUnknown, "{00000000-0000-0000-C000-000000000046}", L"{00000000-0000-0000-C000-000000000046}"},
        {IID_IMFMediaEventGenerator, "{2CD0BD52-BCD5-4B89-B62C-EADC0C031E7D}",
         L"{2CD0BD52-BCD5-4B89-B62C-EADC0C031E7D}"},
        {IID_IMFMediaStream, "{D182108F-4EC6-443F-AA42-A71106EC825F}", L"{D182108F-4EC6-443F-AA42-A71106EC825F}"},
    };
    for (const auto& face : faces) {
        m_log.Restart();
        debugger.ForgetCalls();
        ComPtr<IUnknown> object;
        EXPECT_EQ(S_OK, Stream()->QueryInterface(face.iid, object.PutVoid()));
        EXPECT_EQ(Stream(), object.Get());
        EXPECT_TRUE(m_log.HasMessage(std::string("QI-STM ") + face.text + " hr=0x00000000")) << m_log.Text();
        ASSERT_EQ(1u, debugger.Count());
        EXPECT_EQ(std::wstring(L"RAVLO-QI: RvMediaStream QI ") + face.wide + L" -> S_OK\n",
                  std::get<0>(debugger.Calls()[0]));
    }
}

TEST_F(StreamFaces, AnUnknownInterfaceIsRefusedNulledAndReported) {
    RAVLO_HOOK(OutputDebugStringW) debugger(m_module.Handle());
    void* object = &debugger;
    EXPECT_EQ(E_NOINTERFACE, Stream()->QueryInterface(IID_IMFMediaSource, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_TRUE(m_log.HasMessage("FAIL QI-STM {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x80004002")) << m_log.Text();
    ASSERT_EQ(1u, debugger.Count());
    EXPECT_EQ(L"RAVLO-QI: RvMediaStream QI {279A808D-AEC7-40C8-9C6B-A6B492C78A66} -> E_NOINTERFACE\n",
              std::get<0>(debugger.Calls()[0]));
}

TEST_F(StreamFaces, ANullOutputIsAPointerError) {
    EXPECT_EQ(E_POINTER, Stream()->QueryInterface(IID_IUnknown, nullptr));
    EXPECT_EQ(E_POINTER, Stream()->QueryInterface(IID_IMarshal, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL QI-STM {00000000-0000-0000-C000-000000000046} hr=0x80004003")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL QI-STM {00000003-0000-0000-C000-000000000046} hr=0x80004003")) << m_log.Text();
    EXPECT_EQ(E_POINTER, Stream()->GetMediaSource(nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.GetMediaSource hr=0x80004003")) << m_log.Text();
    EXPECT_EQ(E_POINTER, Stream()->GetStreamDescriptor(nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.GetStreamDescriptor hr=0x80004003")) << m_log.Text();
    EXPECT_EQ(E_POINTER, Stream()->GetEvent(0, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.GetEvent hr=0x80004003")) << m_log.Text();
    EXPECT_EQ(E_POINTER, Stream()->EndGetEvent(nullptr, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.EndGetEvent hr=0x80004003")) << m_log.Text();
}

TEST_F(StreamFaces, ItIsMarshaledByTheFreeThreadedMarshaler) {
    ComPtr<IMarshal> marshal;
    ASSERT_EQ(S_OK, Stream()->QueryInterface(IID_IMarshal, marshal.PutVoid()));
    EXPECT_TRUE(m_log.HasMessage("QI-STM IMarshal {00000003-0000-0000-C000-000000000046} hr=0x00000000"))
        << m_log.Text();
    CLSID classId{};
    EXPECT_EQ(S_OK, marshal->GetUnmarshalClass(IID_IMFMediaStream, Stream(), MSHCTX_INPROC, nullptr, MSHLFLAGS_NORMAL,
                                               &classId));
    EXPECT_EQ(kInProcFreeMarshaler, classId);
    EXPECT_TRUE(IsSameObject(marshal.Get(), Stream()));
}

TEST_F(StreamFaces, WithoutAMarshalerThereIsNoMarshaling) {
    const ComPtr<IMFActivate> activate = m_module.CreateSource<IMFActivate>();
    Require(activate->SetString(kPipeNameAttribute, UniquePipeName().c_str()), "SetString");
    ComPtr<IMFMediaSource> source;
    {
        RAVLO_HOOK(CoCreateFreeThreadedMarshaler) marshalers(m_module.Handle());
        marshalers.FailEvery(S_OK);  // success, and nothing in the output
        ASSERT_EQ(S_OK, activate->ActivateObject(__uuidof(IMFMediaSource), source.PutVoid()));
    }
    const PropVariant position;
    ASSERT_EQ(S_OK, source->Start(PresentationOf(source.Get()).Get(), nullptr, position.Get()));
    const std::optional<Event> event = NextEvent(source.Get());
    ASSERT_TRUE(event);
    const ComPtr<IMFMediaStream> stream = event->Object<IMFMediaStream>();
    ASSERT_TRUE(stream);
    void* object = &object;
    EXPECT_EQ(E_NOINTERFACE, stream->QueryInterface(IID_IMarshal, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_TRUE(m_log.HasMessage("FAIL QI-STM IMarshal {00000003-0000-0000-C000-000000000046} hr=0x80004002"))
        << m_log.Text();
    source->Shutdown();
}

TEST_F(StreamFaces, GivesOutItsSourceAndItsDescriptorWithReferences) {
    ComPtr<IMFMediaSource> source;
    ASSERT_EQ(S_OK, Stream()->GetMediaSource(source.Put()));
    EXPECT_TRUE(IsSameObject(source.Get(), m_camera.Source()));
    EXPECT_TRUE(m_log.HasMessage("CALL STM.GetMediaSource")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET STM.GetMediaSource hr=0x00000000")) << m_log.Text();

    ComPtr<IMFStreamDescriptor> descriptor;
    ASSERT_EQ(S_OK, Stream()->GetStreamDescriptor(descriptor.Put()));
    EXPECT_TRUE(m_log.HasMessage("CALL STM.GetStreamDescriptor")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET STM.GetStreamDescriptor hr=0x00000000")) << m_log.Text();
    BOOL selected = FALSE;
    ComPtr<IMFStreamDescriptor> presented;
    Require(PresentationOf(m_camera.Source())->GetStreamDescriptorByIndex(0, &selected, presented.Put()),
            "GetStreamDescriptorByIndex");
    EXPECT_TRUE(IsSameObject(descriptor.Get(), presented.Get()));
}

TEST_F(StreamFaces, AnEventThatIsQueuedComesOutAgain) {
    const PropVariant value(LONGLONG{42});
    EXPECT_EQ(S_OK, Stream()->QueueEvent(MEStreamTick, kSourceClassId, E_FAIL, value.Get()));
    EXPECT_TRUE(
        m_log.HasMessage("CALL STM.QueueEvent met=214 ext={5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} "
                         "hrStatus=0x80004005"))
        << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET STM.QueueEvent hr=0x00000000")) << m_log.Text();
    const std::optional<Event> event = NextEvent(Stream(), 0);
    ASSERT_TRUE(event);
    EXPECT_EQ(MEStreamTick, event->type);
    EXPECT_EQ(kSourceClassId, event->extendedType);
    EXPECT_EQ(E_FAIL, event->status);
    EXPECT_EQ(42, event->value->hVal.QuadPart);
    EXPECT_TRUE(m_log.HasMessage("RET STM.GetEvent hr=0x00000000")) << m_log.Text();
}

TEST_F(StreamFaces, AnEmptyQueueIsNamedWithoutWaiting) {
    IMFMediaEvent* event = reinterpret_cast<IMFMediaEvent*>(this);
    EXPECT_EQ(MF_E_NO_EVENTS_AVAILABLE, Stream()->GetEvent(MF_EVENT_FLAG_NO_WAIT, &event));
    EXPECT_EQ(nullptr, event);
    EXPECT_TRUE(m_log.HasMessage("CALL STM.GetEvent dwFlags=0x00000001")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.GetEvent hr=0xC00D3E80")) << m_log.Text();
}

TEST_F(StreamFaces, AGetEventThatBlocksHoldsNoLockAndEndsWithTheStream) {
    HRESULT hr = S_OK;
    std::thread reader([&] {
        ComPtr<IMFMediaEvent> event;
        hr = Stream()->GetEvent(0, event.Put());
    });
    EXPECT_TRUE(m_log.WaitForLine("CALL STM.GetEvent dwFlags=0x00000000")) << m_log.Text();
    EXPECT_EQ(S_OK, Stream()->RequestSample(nullptr));
    reader.join();
    EXPECT_EQ(S_OK, hr);
    std::thread blocked([&] {
        ComPtr<IMFMediaEvent> event;
        hr = Stream()->GetEvent(0, event.Put());
    });
    EXPECT_TRUE(m_log.WaitForCount("CALL STM.GetEvent dwFlags=0x00000000", 2)) << m_log.Text();
    m_camera.Shutdown();
    blocked.join();
    EXPECT_EQ(MF_E_SHUTDOWN, hr);
}

/// Completes with an event of one stream.
class Callback final : public IMFAsyncCallback {
public:
    explicit Callback(IMFMediaEventGenerator* generator) : m_generator(generator) {}
    ~Callback() { CloseHandle(m_done); }

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        *object = riid == IID_IUnknown || riid == IID_IMFAsyncCallback ? this : nullptr;
        return *object ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }  // lives on the test's stack
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetParameters(DWORD*, DWORD*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(IMFAsyncResult* result) override {
        m_result = m_generator->EndGetEvent(result, m_event.Put());
        m_state = result->GetStateNoAddRef();
        m_asyncResult = result;
        SetEvent(m_done);
        return S_OK;
    }

    bool Wait() const { return WaitForSingleObject(m_done, kPatienceMs) == WAIT_OBJECT_0; }

    HRESULT m_result = E_PENDING;
    IUnknown* m_state = nullptr;
    IMFAsyncResult* m_asyncResult = nullptr;  ///< only its address counts
    ComPtr<IMFMediaEvent> m_event;

private:
    IMFMediaEventGenerator* m_generator;
    HANDLE m_done = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

TEST_F(StreamFaces, BeginAndEndGetEventHandOverOneEvent) {
    Callback callback(Stream());
    ASSERT_EQ(S_OK, Stream()->BeginGetEvent(&callback, m_camera.Source()));
    ASSERT_EQ(S_OK, Stream()->RequestSample(nullptr));
    ASSERT_TRUE(callback.Wait());
    EXPECT_EQ(S_OK, callback.m_result);
    EXPECT_EQ(static_cast<IUnknown*>(m_camera.Source()), callback.m_state);
    MediaEventType type = MEUnknown;
    ASSERT_EQ(S_OK, callback.m_event->GetType(&type));
    EXPECT_EQ(MEMediaSample, type);
    EXPECT_TRUE(m_log.HasMessage("CALL STM.BeginGetEvent pCallback=" + Pointer(&callback) +
                                 " pState=" + Pointer(m_camera.Source())))
        << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET STM.BeginGetEvent hr=0x00000000")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("CALL STM.EndGetEvent pResult=" + Pointer(callback.m_asyncResult))) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET STM.EndGetEvent hr=0x00000000")) << m_log.Text();
}

TEST_F(StreamFaces, AfterShutdownEveryMethodIsShutdownAndNullsItsOutput) {
    m_camera.Shutdown();
    IMFMediaSource* source = reinterpret_cast<IMFMediaSource*>(this);
    EXPECT_EQ(MF_E_SHUTDOWN, Stream()->GetMediaSource(&source));
    EXPECT_EQ(nullptr, source);
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.GetMediaSource hr=0xC00D3E85")) << m_log.Text();
    IMFStreamDescriptor* descriptor = reinterpret_cast<IMFStreamDescriptor*>(this);
    EXPECT_EQ(MF_E_SHUTDOWN, Stream()->GetStreamDescriptor(&descriptor));
    EXPECT_EQ(nullptr, descriptor);
    IMFMediaEvent* event = reinterpret_cast<IMFMediaEvent*>(this);
    EXPECT_EQ(MF_E_SHUTDOWN, Stream()->GetEvent(0, &event));
    EXPECT_EQ(nullptr, event);
    Callback callback(Stream());
    EXPECT_EQ(MF_E_SHUTDOWN, Stream()->BeginGetEvent(&callback, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.BeginGetEvent hr=0xC00D3E85")) << m_log.Text();
    event = reinterpret_cast<IMFMediaEvent*>(this);
    EXPECT_EQ(MF_E_SHUTDOWN, Stream()->EndGetEvent(nullptr, &event));
    EXPECT_EQ(nullptr, event);
    EXPECT_EQ(MF_E_SHUTDOWN, Stream()->QueueEvent(MEStreamTick, GUID_NULL, S_OK, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.QueueEvent hr=0xC00D3E85")) << m_log.Text();
    // The interfaces and the null checks stay.
    EXPECT_TRUE(ComPtr<IMFMediaStream>::Share(Stream()).As<IMFMediaEventGenerator>());
    EXPECT_EQ(E_POINTER, Stream()->GetEvent(0, nullptr));
    EXPECT_EQ(E_POINTER, Stream()->GetMediaSource(nullptr));
}

}  // namespace
}  // namespace ravlo::test
