// The source as an event generator.
#include "support/fixtures.h"
#include "windows/log_text.h"
#include "windows/platform_proxies.h"

#include <thread>

namespace ravlo::test {
namespace {

constexpr GUID kExtendedType = {0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};

class Callback final : public Counted<IMFAsyncCallback> {
public:
    ~Callback() override { CloseHandle(m_called); }
    STDMETHODIMP GetParameters(DWORD*, DWORD*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(IMFAsyncResult* result) override {
        m_result = ComPtr<IMFAsyncResult>::Share(result);
        SetEvent(m_called);
        return S_OK;
    }
    /// Handed out and not kept: the result holds this object.
    ComPtr<IMFAsyncResult> WaitForResult() {
        return WaitForSingleObject(m_called, kPatienceMs) == WAIT_OBJECT_0 ? std::move(m_result) : nullptr;
    }

private:
    HANDLE m_called = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ComPtr<IMFAsyncResult> m_result;
};

class SourceEvents : public ModuleTest {
protected:
    ~SourceEvents() override { m_source->Shutdown(); }

    ComPtr<IMFMediaSource> m_source = m_module.CreateSource<IMFMediaSource>();
    ComPtr<IMFMediaEvent> m_event;
};

TEST_F(SourceEvents, AQueuedEventComesOutAsItWentIn) {
    const PropVariant value(LONGLONG{42});
    EXPECT_EQ(S_OK, m_source->QueueEvent(MEExtendedType, kExtendedType, S_FALSE, value.Get()));
    EXPECT_TRUE(
        m_log.HasMessage("CALL SRC.QueueEvent met=2 ext={01234567-89AB-CDEF-0123-456789ABCDEF} "
                         "hrStatus=0x00000001"))
        << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET SRC.QueueEvent hr=0x00000000"));

    EXPECT_EQ(S_OK, m_source->GetEvent(MF_EVENT_FLAG_NO_WAIT, m_event.Put()));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.GetEvent dwFlags=0x00000001"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.GetEvent hr=0x00000000"));
    ASSERT_TRUE(m_event);
    MediaEventType type = MEUnknown;
    GUID extended{};
    HRESULT status = E_FAIL;
    PropVariant read;
    m_event->GetType(&type);
    m_event->GetExtendedType(&extended);
    m_event->GetStatus(&status);
    m_event->GetValue(read.Put());
    EXPECT_EQ(MediaEventType{MEExtendedType}, type);
    EXPECT_EQ(kExtendedType, extended);
    EXPECT_EQ(S_FALSE, status);
    ASSERT_EQ(VT_I8, read.Type());
    EXPECT_EQ(42, read->hVal.QuadPart);
}

TEST_F(SourceEvents, AnEmptyQueueSaysSoAndTheOutputIsNull) {
    auto* out = reinterpret_cast<IMFMediaEvent*>(std::uintptr_t{1});
    EXPECT_EQ(MF_E_NO_EVENTS_AVAILABLE, m_source->GetEvent(MF_EVENT_FLAG_NO_WAIT, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.GetEvent hr=0xC00D3E80"));
}

TEST_F(SourceEvents, ABlockedGetEventLeavesTheSourceFree) {
    ComPtr<IMFMediaEvent> event;
    HRESULT result = E_FAIL;
    std::thread waiting([&] { result = m_source->GetEvent(0, event.Put()); });
    EXPECT_TRUE(m_log.WaitForLine("CALL SRC.GetEvent dwFlags=0x00000000"));
    DWORD characteristics = 0;
    EXPECT_EQ(S_OK, m_source->GetCharacteristics(&characteristics));
    EXPECT_EQ(S_OK, m_source->QueueEvent(MEError, GUID_NULL, E_FAIL, nullptr));
    waiting.join();
    EXPECT_EQ(S_OK, result);
    HRESULT status = S_OK;
    ASSERT_TRUE(event);
    event->GetStatus(&status);
    EXPECT_EQ(E_FAIL, status);
}

TEST_F(SourceEvents, AShutdownEndsABlockedGetEvent) {
    ComPtr<IMFMediaEvent> event;
    HRESULT result = S_OK;
    std::thread waiting([&] { result = m_source->GetEvent(0, event.Put()); });
    EXPECT_TRUE(m_log.WaitForLine("CALL SRC.GetEvent dwFlags=0x00000000"));
    EXPECT_EQ(S_OK, m_source->Shutdown());
    waiting.join();
    EXPECT_EQ(MF_E_SHUTDOWN, result);
    EXPECT_FALSE(event);
}

TEST_F(SourceEvents, AnAsynchronousGetDeliversTheNextEvent) {
    const auto callback = ComPtr<Callback>::Adopt(new Callback);
    const auto state = ComPtr<IUnknown>::Share(m_source.Get());
    EXPECT_EQ(S_OK, m_source->BeginGetEvent(callback.Get(), state.Get()));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.BeginGetEvent pCallback=" + PointerText(callback.Get()) +
                                 " pState=" + PointerText(state.Get())));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.BeginGetEvent hr=0x00000000"));
    EXPECT_EQ(S_OK, m_source->QueueEvent(MEError, GUID_NULL, E_ABORT, nullptr));
    const ComPtr<IMFAsyncResult> result = callback->WaitForResult();
    ASSERT_TRUE(result);
    EXPECT_EQ(S_OK, m_source->EndGetEvent(result.Get(), m_event.Put()));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.EndGetEvent pResult=" + PointerText(result.Get())));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.EndGetEvent hr=0x00000000"));
    MediaEventType type = MEUnknown;
    m_event->GetType(&type);
    EXPECT_EQ(MediaEventType{MEError}, type);
}

TEST_F(SourceEvents, ASecondAsynchronousGetIsTheQueuesToRefuse) {
    const auto first = ComPtr<Callback>::Adopt(new Callback);
    const auto second = ComPtr<Callback>::Adopt(new Callback);
    EXPECT_EQ(S_OK, m_source->BeginGetEvent(first.Get(), nullptr));
    EXPECT_EQ(MF_E_MULTIPLE_SUBSCRIBERS, m_source->BeginGetEvent(second.Get(), nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.BeginGetEvent hr=0xC00D36DA")) << m_log.Text();
}

TEST_F(SourceEvents, AStartedSourceHandsThemOnAsWell) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    const auto callback = ComPtr<Callback>::Adopt(new Callback);
    EXPECT_EQ(S_OK, camera.Source()->BeginGetEvent(callback.Get(), nullptr));
    EXPECT_EQ(S_OK, camera.Source()->QueueEvent(MEExtendedType, kExtendedType, S_FALSE, nullptr));
    const ComPtr<IMFAsyncResult> result = callback->WaitForResult();
    ASSERT_TRUE(result);
    EXPECT_EQ(S_OK, camera.Source()->EndGetEvent(result.Get(), m_event.Put()));
    GUID extended{};
    m_event->GetExtendedType(&extended);
    EXPECT_EQ(kExtendedType, extended);
    EXPECT_EQ(S_OK, camera.Source()->QueueEvent(MEError, GUID_NULL, E_ABORT, nullptr));
    EXPECT_EQ((std::vector<MediaEventType>{MEError}), DrainEvents(camera.Source()));
}

TEST_F(SourceEvents, NullArgumentsAreRefused) {
    EXPECT_EQ(E_POINTER, m_source->GetEvent(0, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.GetEvent hr=0x80004003"));
    EXPECT_EQ(E_POINTER, m_source->EndGetEvent(nullptr, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.EndGetEvent hr=0x80004003"));
    auto* out = reinterpret_cast<IMFMediaEvent*>(std::uintptr_t{1});
    EXPECT_EQ(E_INVALIDARG, m_source->EndGetEvent(nullptr, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.EndGetEvent pResult=0000000000000000"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.EndGetEvent hr=0x80070057"));
}

TEST_F(SourceEvents, AfterShutdownAllFourAreRefused) {
    m_source->Shutdown();
    auto* out = reinterpret_cast<IMFMediaEvent*>(std::uintptr_t{1});
    EXPECT_EQ(MF_E_SHUTDOWN, m_source->GetEvent(MF_EVENT_FLAG_NO_WAIT, &out));
    EXPECT_EQ(nullptr, out);
    const auto callback = ComPtr<Callback>::Adopt(new Callback);
    EXPECT_EQ(MF_E_SHUTDOWN, m_source->BeginGetEvent(callback.Get(), nullptr));
    out = reinterpret_cast<IMFMediaEvent*>(std::uintptr_t{1});
    EXPECT_EQ(MF_E_SHUTDOWN, m_source->EndGetEvent(nullptr, &out)) << "the shutdown is told before the null result";
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(MF_E_SHUTDOWN, m_source->QueueEvent(MEError, GUID_NULL, S_OK, nullptr));
    for (const char* method : {"GetEvent", "BeginGetEvent", "EndGetEvent", "QueueEvent"}) {
        EXPECT_TRUE(m_log.HasMessage("FAIL SRC." + std::string(method) + " hr=0xC00D3E85")) << method;
    }
    EXPECT_EQ(E_POINTER, m_source->GetEvent(0, nullptr)) << "the output pointer comes first in every state";
}

TEST_F(SourceEvents, TheQueuesOwnResultIsReturnedAndAPositiveOneIsNoFailure) {
    RAVLO_HOOK(MFCreateEventQueue) queues(m_module.Handle());
    queues.Replace([](IMFMediaEventQueue** out) {
        const HRESULT hr = decltype(queues)::CallOriginal(out);
        *out = new QueueProxy(ComPtr<IMFMediaEventQueue>::Adopt(*out),
                              [](const QueuedEvent& event) { return std::optional<HRESULT>(event.status); });
        return hr;
    });
    const ComPtr<IMFMediaSource> source = m_module.CreateSource<IMFMediaSource>();
    EXPECT_EQ(S_FALSE, source->QueueEvent(MEError, GUID_NULL, S_FALSE, nullptr));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.QueueEvent hr=0x00000001"));
    EXPECT_EQ(0x7FFFFFFF, source->QueueEvent(MEError, GUID_NULL, 0x7FFFFFFF, nullptr));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.QueueEvent hr=0x7FFFFFFF"));
    const auto lowest = static_cast<HRESULT>(0x80000000);
    EXPECT_EQ(lowest, source->QueueEvent(MEError, GUID_NULL, lowest, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.QueueEvent hr=0x80000000"));
    source->Shutdown();
}

}  // namespace
}  // namespace ravlo::test
