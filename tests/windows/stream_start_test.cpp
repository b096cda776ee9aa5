#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/pattern.h"
#include "windows/hooked_clock.h"
#include "windows/stream_object.h"

// Start of the stream: its lines, its event, what a restart resets, and what may come between its two halves.
namespace ravlo::test {
namespace {

class StreamStart : public ModuleTest {};

TEST_F(StreamStart, WritesTheCallTheApartmentAndTheResultInThisOrder) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    const std::string apartment =
        "APARTMENT Start tid=" + std::to_string(GetCurrentThreadId()) + " hr=0x00000000 apt=1 aptq=0";
    ASSERT_TRUE(m_log.HasMessage("CALL STM.Start")) << m_log.Text();
    ASSERT_TRUE(m_log.HasMessage(apartment)) << m_log.Text();
    ASSERT_TRUE(m_log.HasMessage("RET STM.Start hr=0x00000000")) << m_log.Text();
    EXPECT_LT(m_log.Find("CALL STM.Start"), m_log.Find(apartment));
    EXPECT_LT(m_log.Find(apartment), m_log.Find("RET STM.Start"));
    camera.Start();
    EXPECT_EQ(2u, m_log.CountLines("APARTMENT Start"));
}

TEST_F(StreamStart, QueuesMEStreamStartedWithoutAValue) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    const PropVariant position;
    ASSERT_EQ(S_OK, camera.Source()->Start(PresentationOf(camera.Source()).Get(), nullptr, position.Get()));
    const std::optional<Event> event = NextEvent(camera.Stream(), 0);
    ASSERT_TRUE(event);
    EXPECT_EQ(202u, event->type);
    EXPECT_EQ(GUID_NULL, event->extendedType);
    EXPECT_EQ(S_OK, event->status);
    EXPECT_EQ(VT_EMPTY, event->value.Type());
    EXPECT_FALSE(NextEvent(camera.Stream(), 0));
}

TEST_F(StreamStart, ARestartBeginsANewGridNewCountsAndThePatternAnew) {
    HookedClock clock(m_module.Handle());
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    for (int i = 0; i < 12; ++i) {
        camera.Pull();
    }
    clock.Advance(1'234'567);
    const LONGLONG base = clock.Now();
    camera.Start();
    const Sample first = camera.Pull();
    EXPECT_EQ(base, first.time);
    EXPECT_EQ(base + 166'666, clock.Now());
    EXPECT_TRUE(IsTestPattern(first.bytes, 0, 64, 36));
    EXPECT_EQ(base + 166'666, camera.Pull().time);
    camera.Stop();
    EXPECT_TRUE(m_log.HasMessage("TS publish-tick clamp fired 0 of 2 samples (0.0%; expected 0)")) << m_log.Text();
}

TEST_F(StreamStart, AFailedEventResetLeavesTheStreamStopped) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    {
        RAVLO_HOOK(ResetEvent) resets(m_module.Handle());
        resets.FailEvery(FALSE, ERROR_INVALID_HANDLE);
        const PropVariant position;
        EXPECT_EQ(static_cast<HRESULT>(0x80070006),
                  camera.Source()->Start(PresentationOf(camera.Source()).Get(), nullptr, position.Get()));
    }
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start hr=0x80070006")) << m_log.Text();
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, camera.Stream()->RequestSample(nullptr));
}

/// The stream object in the test program; its queue lets the test step in between the two halves of a Start.
class StreamStartSteps : public AnchoredTest {
protected:
    static HMODULE Program() { return GetModuleHandleW(nullptr); }
};

TEST_F(StreamStartSteps, AStopBetweenTheEventAndTheSecondLockMakesItWrongState) {
    RvMediaStream* stream = nullptr;
    HRESULT stopped = E_PENDING;
    const EventQueueHook queues(Program(), {}, [&](MediaEventType type) {
        if (type == MEStreamStarted && stream) {
            // Another thread, as it would be: it can only pass because Start queues without a lock.
            std::thread([&] { stopped = stream->Stop(); }).join();
        }
    });
    StreamObject object;
    stream = object.Get();
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, object->Start());
    EXPECT_EQ(S_OK, stopped);
    stream = nullptr;
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start hr=0xC00D3E9B")) << m_log.Text();
    EXPECT_EQ((std::vector<MediaEventType>{MEStreamStarted, MEStreamStopped}), DrainEvents(object.Get()));
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, object->RequestSample(nullptr));
    EXPECT_EQ(S_OK, object->Start());
    EXPECT_EQ(S_OK, object->RequestSample(nullptr));
}

TEST_F(StreamStartSteps, AShutdownBetweenTheEventAndTheSecondLockMakesItShutdown) {
    RvMediaStream* stream = nullptr;
    const EventQueueHook queues(Program(), {}, [&](MediaEventType type) {
        if (type == MEStreamStarted) {
            std::thread([&] { stream->Shutdown(); }).join();
        }
    });
    StreamObject object;
    stream = object.Get();
    EXPECT_EQ(MF_E_SHUTDOWN, object->Start());
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start hr=0xC00D3E85")) << m_log.Text();
}

TEST_F(StreamStartSteps, AnotherStartInBetweenWinsAndTheOlderOneIsWrongState) {
    RvMediaStream* stream = nullptr;
    std::atomic<bool> nested{false};
    HRESULT inner = E_PENDING;
    const EventQueueHook queues(Program(), {}, [&](MediaEventType type) {
        if (type == MEStreamStarted && !nested.exchange(true)) {
            inner = stream->Start();
        }
    });
    StreamObject object;
    stream = object.Get();
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, object->Start());
    EXPECT_EQ(S_OK, inner);
    EXPECT_EQ(S_OK, object->RequestSample(nullptr));
}

TEST_F(StreamStartSteps, NoRequestIsAcceptedBeforeTheEventIsInTheQueue) {
    RvMediaStream* stream = nullptr;
    std::vector<HRESULT> early;
    const EventQueueHook queues(Program(), [&](MediaEventType type) {
        if (type == MEStreamStarted) {
            early.push_back(stream->RequestSample(nullptr));
        }
        return S_OK;
    });
    StreamObject object;
    stream = object.Get();
    ASSERT_EQ(S_OK, object->Start());
    ASSERT_EQ(S_OK, object->Start());  // nor does a restart
    EXPECT_EQ((std::vector<HRESULT>{MF_E_MEDIA_SOURCE_WRONGSTATE, MF_E_MEDIA_SOURCE_WRONGSTATE}), early);
}

TEST_F(StreamStartSteps, AnEventThatCannotBeQueuedLeavesTheStreamStopped) {
    std::atomic<bool> refuse{true};
    const EventQueueHook queues(
        Program(), [&](MediaEventType type) { return type == MEStreamStarted && refuse ? E_OUTOFMEMORY : S_OK; });
    StreamObject object;
    EXPECT_EQ(E_OUTOFMEMORY, object->Start());
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start hr=0x8007000E")) << m_log.Text();
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, object->RequestSample(nullptr));
    refuse = false;
    EXPECT_EQ(S_OK, object->Start());
    EXPECT_EQ(S_OK, object->RequestSample(nullptr));
}

TEST_F(StreamStartSteps, BeforeTheFirstStartARequestIsWrongState) {
    StreamObject object;
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, object->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.RequestSample hr=0xC00D3E9B")) << m_log.Text();
    EXPECT_TRUE(DrainEvents(object.Get()).empty());
}

TEST_F(StreamStartSteps, AfterShutdownItIsShutdown) {
    StreamObject object;
    ASSERT_EQ(S_OK, object->Shutdown());
    EXPECT_EQ(MF_E_SHUTDOWN, object->Start());
    EXPECT_EQ(1u, m_log.CountLines("APARTMENT Start"));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start hr=0xC00D3E85")) << m_log.Text();
}

}  // namespace
}  // namespace ravlo::test
