// Start and Stop: their events, in order and with their values, and what becomes of failures on the way.
#include "support/fixtures.h"
#include "windows/log_text.h"
#include "windows/watched_queues.h"

namespace ravlo::test {
namespace {

constexpr HRESULT kFailure = static_cast<HRESULT>(0x80041234);

class SourceTransitions : public ModuleTest {
protected:
    static constexpr const wchar_t* kSmall = L"64x36@60/1";

    static HRESULT Start(Camera& camera, const PROPVARIANT* position) {
        return camera.Source()->Start(PresentationOf(camera.Source()).Get(), nullptr, position);
    }

    PropVariant m_empty;
};

TEST_F(SourceTransitions, TheFirstStartAnnouncesTheStreamThenItselfThenTheStreamsStart) {
    WatchedQueues queues(m_module.Handle());
    Camera camera(m_module, {.geometry = kSmall});
    EXPECT_EQ(S_OK, Start(camera, m_empty.Get()));
    EXPECT_EQ((Types{MENewStream, MESourceStarted, MEStreamStarted}), queues.Order());
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Start hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("RET STM.Start hr=0x00000000"));

    const std::optional<Event> announced = NextEvent(camera.Source());
    ASSERT_TRUE(announced);
    EXPECT_EQ(MediaEventType{MENewStream}, announced->type);
    EXPECT_EQ(GUID_NULL, announced->extendedType);
    EXPECT_EQ(S_OK, announced->status);
    const ComPtr<IMFMediaStream> stream = announced->Object<IMFMediaStream>();
    ASSERT_TRUE(stream);
    ComPtr<IMFMediaSource> owner;
    EXPECT_EQ(S_OK, stream->GetMediaSource(owner.Put()));
    EXPECT_TRUE(IsSameObject(camera.Source(), owner.Get()));
    const std::optional<Event> started = NextEvent(camera.Source());
    ASSERT_TRUE(started);
    EXPECT_EQ(MediaEventType{MESourceStarted}, started->type);
    EXPECT_EQ(GUID_NULL, started->extendedType);
    EXPECT_EQ(S_OK, started->status);
    EXPECT_EQ(VT_EMPTY, started->value.Type());
    EXPECT_TRUE(DrainEvents(camera.Source()).empty());
}

TEST_F(SourceTransitions, LaterStartsAnnounceTheSameStreamAsUpdated) {
    WatchedQueues queues(m_module.Handle());
    Camera camera(m_module, {.geometry = kSmall});
    EXPECT_EQ(S_OK, Start(camera, m_empty.Get()));
    const ComPtr<IMFMediaStream> first = NextEvent(camera.Source())->Object<IMFMediaStream>();
    NextEvent(camera.Source());

    EXPECT_EQ(S_OK, Start(camera, m_empty.Get())) << "while it runs";
    const std::optional<Event> updated = NextEvent(camera.Source());
    ASSERT_TRUE(updated);
    EXPECT_EQ(MediaEventType{MEUpdatedStream}, updated->type);
    EXPECT_TRUE(IsSameObject(first.Get(), updated->Object<IMFMediaStream>().Get()));

    EXPECT_EQ(S_OK, camera.Source()->Stop());
    EXPECT_EQ(S_OK, Start(camera, m_empty.Get())) << "after a stop";
    EXPECT_EQ((Types{MENewStream, MESourceStarted, MEStreamStarted, MEUpdatedStream, MESourceStarted, MEStreamStarted,
                     MEStreamStopped, MESourceStopped, MEUpdatedStream, MESourceStarted, MEStreamStarted}),
              queues.Order());
}

TEST_F(SourceTransitions, ATimePositionIsEchoed) {
    Camera camera(m_module, {.geometry = kSmall});
    for (const LONGLONG time : {0LL, 123456789012345LL, -1LL}) {
        const PropVariant position(time);
        EXPECT_EQ(S_OK, Start(camera, position.Get()));
        const std::optional<Event> started = WaitForEvent(camera.Source(), MESourceStarted);
        ASSERT_TRUE(started);
        ASSERT_EQ(VT_I8, started->value.Type());
        EXPECT_EQ(time, started->value->hVal.QuadPart);
    }
    EXPECT_TRUE(m_log.Contains("pguidTimeFormat=0000000000000000 vt=20"));
}

TEST_F(SourceTransitions, ANullPositionCountsAsAnEmptyOne) {
    Camera camera(m_module, {.geometry = kSmall});
    const ComPtr<IMFPresentationDescriptor> presentation = PresentationOf(camera.Source());
    EXPECT_EQ(S_OK, camera.Source()->Start(presentation.Get(), &GUID_NULL, nullptr));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.Start pPD=" + PointerText(presentation.Get()) +
                                 " pguidTimeFormat=" + PointerText(&GUID_NULL) + " vt=65535"))
        << m_log.Text();
    const std::optional<Event> started = WaitForEvent(camera.Source(), MESourceStarted);
    ASSERT_TRUE(started);
    EXPECT_EQ(VT_EMPTY, started->value.Type());
}

TEST_F(SourceTransitions, AStreamThatIsNotSelectedIsStartedAllTheSame) {
    Camera camera(m_module, {.geometry = kSmall});
    const ComPtr<IMFPresentationDescriptor> presentation = PresentationOf(camera.Source());
    EXPECT_EQ(S_OK, presentation->DeselectStream(0));
    EXPECT_EQ(S_OK, camera.Source()->Start(presentation.Get(), nullptr, nullptr));
    EXPECT_EQ((Types{MENewStream, MESourceStarted}), DrainEvents(camera.Source()));
}

TEST_F(SourceTransitions, AStopStopsTheStreamFirst) {
    WatchedQueues queues(m_module.Handle());
    Camera camera(m_module, {.geometry = kSmall});
    camera.Start();
    EXPECT_EQ(S_OK, camera.Source()->Stop());
    EXPECT_EQ((Types{MENewStream, MESourceStarted, MEStreamStarted, MEStreamStopped, MESourceStopped}), queues.Order());
    const std::optional<Event> stopped = NextEvent(camera.Source());
    ASSERT_TRUE(stopped);
    EXPECT_EQ(MediaEventType{MESourceStopped}, stopped->type);
    EXPECT_EQ(GUID_NULL, stopped->extendedType);
    EXPECT_EQ(S_OK, stopped->status);
    EXPECT_EQ(VT_EMPTY, stopped->value.Type());
    EXPECT_NE(S_OK, camera.Stream()->RequestSample(nullptr));
}

TEST_F(SourceTransitions, AStopWhileStoppedStopsTheStreamAgain) {
    WatchedQueues queues(m_module.Handle());
    Camera camera(m_module, {.geometry = kSmall});
    EXPECT_EQ(S_OK, camera.Source()->Stop());
    EXPECT_EQ(S_OK, camera.Source()->Stop());
    EXPECT_EQ((Types{MEStreamStopped, MESourceStopped, MEStreamStopped, MESourceStopped}), queues.Order());
    EXPECT_EQ(2u, m_log.CountLines("CALL STM.Stop"));
}

TEST_F(SourceTransitions, AnotherMediaTypeIsRefusedAndTheEventCarriesTheRefusal) {
    Camera camera(m_module, {.geometry = kSmall});
    ComPtr<IMFMediaType> other;
    Require(MFCreateMediaType(other.Put()), "MFCreateMediaType");
    Require(MediaTypeOf(camera.Source())->CopyAllItems(other.Get()), "CopyAllItems");
    Require(MFSetAttributeSize(other.Get(), MF_MT_FRAME_SIZE, 128, 72), "MFSetAttributeSize");
    const ComPtr<IMFPresentationDescriptor> presentation = PresentationOf(camera.Source());
    BOOL selected = FALSE;
    ComPtr<IMFStreamDescriptor> descriptor;
    ComPtr<IMFMediaTypeHandler> handler;
    Require(presentation->GetStreamDescriptorByIndex(0, &selected, descriptor.Put()), "GetStreamDescriptorByIndex");
    Require(descriptor->GetMediaTypeHandler(handler.Put()), "GetMediaTypeHandler");
    Require(handler->SetCurrentMediaType(other.Get()), "SetCurrentMediaType");

    const PropVariant position(LONGLONG{5});
    EXPECT_EQ(MF_E_INVALIDMEDIATYPE, camera.Source()->Start(presentation.Get(), nullptr, position.Get()));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.Start hr=0xC00D36B4"));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start/geometry-mismatch hr=0xC00D36B4"));
    const std::optional<Event> announced = NextEvent(camera.Source());
    ASSERT_TRUE(announced);
    EXPECT_EQ(MediaEventType{MENewStream}, announced->type);
    const std::optional<Event> started = NextEvent(camera.Source());
    ASSERT_TRUE(started);
    EXPECT_EQ(MediaEventType{MESourceStarted}, started->type);
    EXPECT_EQ(MF_E_INVALIDMEDIATYPE, started->status);
    EXPECT_EQ(VT_EMPTY, started->value.Type()) << "a failed start echoes no position";
    EXPECT_TRUE(DrainEvents(announced->Object<IMFMediaStream>().Get()).empty());

    // The failed start counts as the first one: the stream was announced.
    ComPtr<IMFMediaType> right;
    Require(handler->GetMediaTypeByIndex(0, right.Put()), "GetMediaTypeByIndex");
    Require(handler->SetCurrentMediaType(right.Get()), "SetCurrentMediaType");
    EXPECT_EQ(S_OK, Start(camera, position.Get()));
    EXPECT_EQ((Types{MEUpdatedStream, MESourceStarted}), DrainEvents(camera.Source()));
}

TEST_F(SourceTransitions, AnAnnouncementThatFailsIsCarriedByTheStartedEventAndTheNextStartAnnouncesAgain) {
    bool fail = true;
    WatchedQueues queues(m_module.Handle(), [&](int, const QueuedEvent& event) {
        return fail && event.type == MENewStream ? std::optional<HRESULT>(kFailure) : std::nullopt;
    });
    Camera camera(m_module, {.geometry = kSmall});
    const PropVariant position(LONGLONG{5});
    EXPECT_EQ(kFailure, Start(camera, position.Get()));
    const std::optional<Event> started = NextEvent(camera.Source());
    ASSERT_TRUE(started);
    EXPECT_EQ(MediaEventType{MESourceStarted}, started->type);
    EXPECT_EQ(kFailure, started->status);
    EXPECT_EQ(VT_EMPTY, started->value.Type());
    EXPECT_FALSE(m_log.Contains("CALL STM.Start"));
    fail = false;
    EXPECT_EQ(S_OK, Start(camera, position.Get()));
    EXPECT_EQ((Types{MENewStream, MESourceStarted}), DrainEvents(camera.Source()));
}

TEST_F(SourceTransitions, AStartedEventThatCannotBeQueuedFailsTheStartButNotTheState) {
    WatchedQueues queues(m_module.Handle(), [](int, const QueuedEvent& event) {
        return event.type == MESourceStarted ? std::optional<HRESULT>(kFailure) : std::nullopt;
    });
    Camera camera(m_module, {.geometry = kSmall});
    EXPECT_EQ(kFailure, Start(camera, m_empty.Get()));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.Start hr=0x80041234"));
    EXPECT_FALSE(m_log.Contains("CALL STM.Start"));
    EXPECT_EQ(kFailure, Start(camera, m_empty.Get()));
    EXPECT_EQ((Types{MENewStream, MESourceStarted, MEUpdatedStream, MESourceStarted}), queues.Order())
        << "it is started: the stream was announced";
}

TEST_F(SourceTransitions, AStreamThatDoesNotStartFailsTheStartAfterItsEvents) {
    WatchedQueues queues(m_module.Handle(), [](int queue, const QueuedEvent& event) {
        return queue == 2 && event.type == MEStreamStarted ? std::optional<HRESULT>(kFailure) : std::nullopt;
    });
    Camera camera(m_module, {.geometry = kSmall});
    EXPECT_EQ(kFailure, Start(camera, m_empty.Get()));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start hr=0x80041234"));
    const std::optional<Event> started = WaitForEvent(camera.Source(), MESourceStarted);
    ASSERT_TRUE(started);
    EXPECT_EQ(S_OK, started->status);
}

TEST_F(SourceTransitions, AStreamThatDoesNotStopIsToldInTheStoppedEvent) {
    WatchedQueues queues(m_module.Handle(), [](int, const QueuedEvent& event) {
        return event.type == MEStreamStopped ? std::optional<HRESULT>(kFailure) : std::nullopt;
    });
    Camera camera(m_module, {.geometry = kSmall});
    camera.Start();
    EXPECT_EQ(kFailure, camera.Source()->Stop());
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.Stop hr=0x80041234"));
    const std::optional<Event> stopped = NextEvent(camera.Source());
    ASSERT_TRUE(stopped);
    EXPECT_EQ(MediaEventType{MESourceStopped}, stopped->type);
    EXPECT_EQ(kFailure, stopped->status);
}

TEST_F(SourceTransitions, AStoppedEventThatCannotBeQueuedFailsTheStopUnlessTheStreamDidBefore) {
    HRESULT streamResult = S_OK;
    WatchedQueues queues(m_module.Handle(), [&](int, const QueuedEvent& event) -> std::optional<HRESULT> {
        if (event.type == MEStreamStopped) {
            return streamResult;
        }
        return event.type == MESourceStopped ? std::optional<HRESULT>(kFailure) : std::nullopt;
    });
    Camera camera(m_module, {.geometry = kSmall});
    EXPECT_EQ(kFailure, camera.Source()->Stop());
    streamResult = E_ABORT;
    EXPECT_EQ(E_ABORT, camera.Source()->Stop());
}

TEST_F(SourceTransitions, ShutdownQueuesNoEventAndTakesTheStreamAlong) {
    WatchedQueues queues(m_module.Handle());
    Camera camera(m_module, {.geometry = kSmall});
    EXPECT_EQ(S_OK, camera.Shutdown());
    EXPECT_TRUE(queues.Order().empty());
    const auto stream = m_log.Find("RET STM.Shutdown hr=0x00000000");
    const auto source = m_log.Find("RET SRC.Shutdown hr=0x00000000");
    ASSERT_TRUE(stream && source) << m_log.Text();
    EXPECT_LT(*stream, *source);
}

}  // namespace
}  // namespace ravlo::test
