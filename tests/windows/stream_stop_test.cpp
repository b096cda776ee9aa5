#include <gtest/gtest.h>

#include <thread>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/pipe_client.h"
#include "windows/hooked_clock.h"
#include "windows/stream_object.h"

// Stop and Shutdown of the stream, and the release that follows or replaces them.
namespace ravlo::test {
namespace {

class StreamStop : public ModuleTest {
protected:
    HookedClock m_clock{m_module.Handle()};
    Camera m_camera{m_module, {.geometry = L"64x36@60/1"}};
};

TEST_F(StreamStop, WritesCallAndResultAndQueuesItsEventWithoutAValue) {
    m_camera.Start();
    ASSERT_EQ(S_OK, m_camera.Source()->Stop());
    EXPECT_TRUE(m_log.HasMessage("CALL STM.Stop")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET STM.Stop hr=0x00000000")) << m_log.Text();
    const std::optional<Event> event = NextEvent(m_camera.Stream(), 0);
    ASSERT_TRUE(event);
    EXPECT_EQ(208u, event->type);
    EXPECT_EQ(GUID_NULL, event->extendedType);
    EXPECT_EQ(S_OK, event->status);
    EXPECT_EQ(VT_EMPTY, event->value.Type());
}

TEST_F(StreamStop, WritesTheClampLineWithTheSamplesOfThisRun) {
    m_camera.Start();
    for (int i = 0; i < 3; ++i) {
        m_camera.Pull();
    }
    m_camera.Stop();
    EXPECT_TRUE(m_log.HasMessage("TS publish-tick clamp fired 0 of 3 samples (0.0%; expected 0)")) << m_log.Text();
    m_camera.Start();
    m_camera.Pull();
    m_camera.Stop();
    EXPECT_TRUE(m_log.HasMessage("TS publish-tick clamp fired 0 of 1 samples (0.0%; expected 0)")) << m_log.Text();
    EXPECT_EQ(2u, m_log.CountLines("clamp fired"));
}

TEST_F(StreamStop, WithoutASampleThereIsNoClampLine) {
    m_camera.Start();
    m_camera.Stop();
    EXPECT_EQ(0u, m_log.CountLines("clamp fired"));
}

TEST_F(StreamStop, ASecondStopQueuesItsEventAgain) {
    m_camera.Start();
    m_camera.Stop();
    ASSERT_EQ(S_OK, m_camera.Source()->Stop());
    EXPECT_EQ(std::vector<MediaEventType>{MEStreamStopped}, DrainEvents(m_camera.Stream()));
    EXPECT_EQ(2u, m_log.CountLines("RET STM.Stop hr=0x00000000"));
}

TEST_F(StreamStop, LeavesTheReaderRunningSoThatAFrameIsThereAtTheNextStart) {
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_camera.PipeName())) << m_log.Text();
    m_camera.Start();
    m_camera.Stop();
    ASSERT_TRUE(producer.SendFrame(64, 36, 31));
    ASSERT_TRUE(m_log.WaitForLine("PIPE delivering live frames 64x36 seq=31")) << m_log.Text();
    EXPECT_FALSE(m_log.Contains("PIPE reader thread exiting"));
    m_camera.Start();
    const LONGLONG before = m_clock.Now();
    EXPECT_EQ(31u, SignatureOf(m_camera.Pull().bytes, 64, 36));
    EXPECT_EQ(before, m_clock.Now());
}

class StreamShutdown : public AnchoredTest {};

TEST_F(StreamShutdown, WritesItsLinesAndEndsBothThreads) {
    StreamObject object;
    EXPECT_EQ(S_OK, object->Shutdown());
    for (const char* line : {"CALL STM.Shutdown", "PIPE reader thread exiting",
                             "PIPE reader thread stopped by Shutdown", "RET STM.Shutdown hr=0x00000000"}) {
        EXPECT_TRUE(m_log.HasMessage(line)) << line << "\n" << m_log.Text();
    }
    EXPECT_LT(m_log.Find("PIPE reader thread exiting"), m_log.Find("PIPE reader thread stopped by Shutdown"));
    EXPECT_TRUE(m_log.Contains("GATE thread exiting"));
}

TEST_F(StreamShutdown, ARepeatIsSuccessWithALineOfItsOwn) {
    StreamObject object;
    EXPECT_EQ(S_OK, object->Shutdown());
    EXPECT_FALSE(m_log.Contains("(repeat)"));
    EXPECT_EQ(S_OK, object->Shutdown());
    EXPECT_TRUE(m_log.HasMessage("RET STM.Shutdown (repeat) hr=0x00000000")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("stopped by Shutdown"));
}

TEST_F(StreamShutdown, StopAndRequestsAndTheTypeCheckAreShutdownAfterwards) {
    StreamObject object;
    ASSERT_EQ(S_OK, object->Start());
    ASSERT_EQ(S_OK, object->Shutdown());
    EXPECT_EQ(MF_E_SHUTDOWN, object->Stop());
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Stop hr=0xC00D3E85")) << m_log.Text();
    EXPECT_EQ(MF_E_SHUTDOWN, object->RequestSample(nullptr));
    EXPECT_EQ(MF_E_SHUTDOWN, object->CheckCurrentMediaType());
}

TEST_F(StreamShutdown, LetsGoOfTheDescriptor) {
    StreamObject object;
    EXPECT_EQ(2u, ReferenceCount(object.Descriptor()));
    object->Shutdown();
    EXPECT_EQ(1u, ReferenceCount(object.Descriptor()));
}

TEST_F(StreamShutdown, AStreamThatNeverStartedCanBeStopped) {
    StreamObject object;
    EXPECT_EQ(S_OK, object->Stop());
    EXPECT_EQ(std::vector<MediaEventType>{MEStreamStopped}, DrainEvents(object.Get()));
}

TEST_F(StreamShutdown, AStopWhoseEventCannotBeQueuedStillStops) {
    const EventQueueHook queues(GetModuleHandleW(nullptr),
                                [](MediaEventType type) { return type == MEStreamStopped ? E_OUTOFMEMORY : S_OK; });
    StreamObject object;
    ASSERT_EQ(S_OK, object->Start());
    ASSERT_EQ(S_OK, object->RequestSample(nullptr));
    EXPECT_EQ(E_OUTOFMEMORY, object->Stop());
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, object->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage("TS publish-tick clamp fired 0 of 1 samples (0.0%; expected 0)")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Stop hr=0x8007000E")) << m_log.Text();
}

TEST_F(StreamShutdown, TheLastReleaseAloneEndsTheThreadsAndCancelsTheTimer) {
    StreamObject object;
    RAVLO_HOOK(CancelWaitableTimer) cancels(GetModuleHandleW(nullptr));
    object.Release();
    EXPECT_EQ(1u, cancels.Count());
    EXPECT_TRUE(m_log.HasMessage("PIPE reader thread exiting")) << m_log.Text();
    EXPECT_FALSE(m_log.Contains("STM.Shutdown"));
}

TEST_F(StreamShutdown, StartsStopsAndRequestsOfManyThreadsEndWithAShutdown) {
    StreamObject object({64, 36, 200, 1});
    std::vector<std::thread> threads;
    std::atomic<bool> unexpected{false};
    std::atomic<bool> ended{false};
    const auto use = [&](auto&& call) {
        threads.emplace_back([&, call] {
            while (!ended) {
                const HRESULT hr = call();
                ended = ended || hr == MF_E_SHUTDOWN;
                unexpected = unexpected || (hr != S_OK && hr != MF_E_SHUTDOWN && hr != MF_E_MEDIA_SOURCE_WRONGSTATE);
            }
        });
    };
    use([&] { return object->Start(); });
    use([&] { return object->RequestSample(nullptr); });
    use([&] { return object->RequestSample(nullptr); });
    use([&] { return object->Stop(); });
    EXPECT_TRUE(m_log.WaitForCount("RET STM.Stop hr=0x00000000", 20));
    EXPECT_EQ(S_OK, object->Shutdown());
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(unexpected);
}

}  // namespace
}  // namespace ravlo::test
