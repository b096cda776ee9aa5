#include <gtest/gtest.h>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/handles.h"
#include "support/heap_faults.h"
#include "support/pipe_client.h"

// What a stream costs, and that all of it comes back.
namespace ravlo::test {
namespace {

class StreamMemory : public ModuleTest {
protected:
    /// A whole life: created, activated, started, fed, pulled from, stopped, shut down, released.
    void LiveOnce() {
        Camera camera(m_module, {.geometry = L"64x36@200/1"});
        PipeClient producer;
        ASSERT_TRUE(producer.Connect(camera.PipeName())) << m_log.Text();
        camera.Start();
        camera.Pull();
        ASSERT_TRUE(producer.SendFrame(64, 36, 5));
        EXPECT_TRUE(camera.PullUntil([](const Sample& s) { return SignatureOf(s.bytes, 64, 36) == 5u; }));
        camera.Stop();
        camera.Start();
        camera.Pull();
        camera.Shutdown();
    }
};

TEST_F(StreamMemory, HandlesAndBlocksAreBackAfterEveryLife) {
    ASSERT_NO_FATAL_FAILURE(LiveOnce());
    ASSERT_NO_FATAL_FAILURE(LiveOnce());
    const HeapFaults heap(m_module.Handle());
    const std::size_t handles = SettledHandles();
    for (int i = 0; i < 5; ++i) {
        ASSERT_NO_FATAL_FAILURE(LiveOnce());
        EXPECT_TRUE(HandlesSettleAt(handles)) << "life " << i << ": " << CountHandles() << " of " << handles;
        EXPECT_EQ(0, heap.LiveBlocks()) << "life " << i;
    }
    EXPECT_GT(heap.Allocations(), 0);
}

TEST_F(StreamMemory, ASourceThatWasNeverActivatedLeavesNothingWithAndWithoutItsShutdown) {
    m_module.CreateSource<IMFActivate>().As<IMFMediaSource>()->Shutdown();
    m_module.CreateSource<IMFActivate>().Reset();  // so the platform stays started from here on
    const HeapFaults heap(m_module.Handle());
    const std::size_t handles = SettledHandles();
    for (int i = 0; i < 5; ++i) {
        m_module.CreateSource<IMFActivate>().As<IMFMediaSource>()->Shutdown();
        m_module.CreateSource<IMFActivate>().Reset();
    }
    EXPECT_GT(heap.Allocations(), 0);
    EXPECT_TRUE(HandlesSettleAt(handles));
    EXPECT_EQ(0, heap.LiveBlocks());
}

TEST_F(StreamMemory, InSteadyStateNoFrameAndNoSampleTakesABlockOfTheModule) {
    Camera camera(m_module, {.geometry = L"64x36@200/1"});
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(camera.PipeName())) << m_log.Text();
    camera.Start();
    const auto feedAndPull = [&](std::uint32_t signature) {
        ASSERT_TRUE(producer.SendFrame(64, 36, signature));
        ASSERT_TRUE(camera.PullUntil([&](const Sample& s) { return SignatureOf(s.bytes, 64, 36) == signature; }));
    };
    for (std::uint32_t signature = 1; signature < 10; ++signature) {
        ASSERT_NO_FATAL_FAILURE(feedAndPull(signature));
    }
    // The gate's pipe is made at a pass of its thread, and making it takes blocks.
    ASSERT_TRUE(m_log.WaitForLine("GATE serving ")) << m_log.Text();
    RAVLO_HOOK(MFCreateSample) samples(m_module.Handle());
    RAVLO_HOOK(MFCreateMemoryBuffer) buffers(m_module.Handle());
    const HeapFaults heap(m_module.Handle());
    for (std::uint32_t signature = 100; signature < 150; ++signature) {
        ASSERT_NO_FATAL_FAILURE(feedAndPull(signature));
    }
    EXPECT_EQ(0, heap.Allocations());
    // The sample and its buffer are the platform's, one of each per request.
    EXPECT_GE(samples.Count(), 50u);
    EXPECT_EQ(samples.Count(), buffers.Count());
}

TEST_F(StreamMemory, AnIdleCameraTakesNoBlockEither) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    GateClient gate;
    ASSERT_TRUE(WaitForPipe(camera.PipeName()));
    ASSERT_TRUE(gate.Connect(camera.PipeName())) << m_log.Text();
    ASSERT_TRUE(gate.Read()) << m_log.Text();
    const HeapFaults heap(m_module.Handle());
    EXPECT_TRUE(gate.Read());  // the next pass of the gate thread, and ten of the reader's
    EXPECT_EQ(0, heap.Allocations());
}

}  // namespace
}  // namespace ravlo::test
