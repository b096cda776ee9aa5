#include <gtest/gtest.h>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/pattern.h"
#include "support/pipe_client.h"
#include "windows/hooked_clock.h"

// Which picture a sample carries while a producer comes, goes and falls silent.
namespace ravlo::test {
namespace {

class SampleLive : public ModuleTest {
protected:
    SampleLive() {
        if (!m_producer.Connect(m_camera.PipeName())) {
            throw std::runtime_error("no connection to the camera's pipe");
        }
    }

    /// Sends a frame and returns once it is published, with the tick that it was stamped with.
    std::uint64_t Send(std::uint32_t signature) {
        const std::size_t published = m_published.Count();
        EXPECT_TRUE(m_producer.SendFrame(64, 36, signature));
        // The frame-arrival event is set after each publish.
        EXPECT_TRUE(m_published.WaitForCalls(published + 1));
        return m_clock.Tick();
    }
    std::optional<std::uint32_t> PullSignature() { return SignatureOf(m_camera.Pull().bytes, 64, 36); }
    bool PullIsPattern(std::uint32_t index) { return IsTestPattern(m_camera.Pull().bytes, index, 64, 36); }
    void AdvanceToAge(std::uint64_t stamp, LONGLONG ms) {
        m_clock.AdvanceMs(ms - static_cast<LONGLONG>(m_clock.Tick() - stamp));
    }

    HookedClock m_clock{m_module.Handle()};
    using SetEventHook = RAVLO_HOOK(SetEvent);
    SetEventHook m_published{m_module.Handle()};
    Camera m_camera{m_module, {.geometry = L"64x36@60/1"}};
    PipeClient m_producer;
};

TEST_F(SampleLive, AFrameIsCopiedByteForByte) {
    Send(3);
    m_camera.Start();
    EXPECT_EQ(MakeFrame(64, 36, 3), m_camera.Pull().bytes);
}

TEST_F(SampleLive, EachSampleCarriesTheNewestFrame) {
    m_camera.Start();
    for (std::uint32_t signature = 1; signature < 20; ++signature) {
        m_clock.AdvanceMs(20);
        Send(signature);
        Send(signature + 100);
        EXPECT_EQ(signature + 100, PullSignature());
    }
}

TEST_F(SampleLive, AFrameRepeatsAsLiveUntilItIsAThousandMillisecondsOld) {
    const std::uint64_t stamp = Send(4);
    m_camera.Start();
    EXPECT_EQ(4u, PullSignature());
    AdvanceToAge(stamp, 500);
    EXPECT_EQ(4u, PullSignature());
    AdvanceToAge(stamp, 1000);
    EXPECT_EQ(4u, PullSignature());
    EXPECT_EQ(1000u, m_clock.Tick() - stamp);
}

TEST_F(SampleLive, AtAThousandAndOneMillisecondsThePatternTakesOver) {
    const std::uint64_t stamp = Send(4);
    m_camera.Start();
    EXPECT_EQ(4u, PullSignature());
    AdvanceToAge(stamp, 1001);
    EXPECT_TRUE(PullIsPattern(1));  // the index goes on: one sample was served before
    EXPECT_EQ(1001u, m_clock.Tick() - stamp);
    EXPECT_TRUE(PullIsPattern(2));
}

TEST_F(SampleLive, AStaleFrameDoesNotHurryTheFirstRequest) {
    const std::uint64_t stamp = Send(4);
    AdvanceToAge(stamp, 1001);
    m_camera.Start();
    const LONGLONG before = m_clock.Now();
    EXPECT_TRUE(PullIsPattern(0));
    EXPECT_EQ(before + 166'666, m_clock.Now());
}

TEST_F(SampleLive, ThePictureComesBackWithTheNextFrame) {
    const std::uint64_t stamp = Send(4);
    m_camera.Start();
    AdvanceToAge(stamp, 1500);
    EXPECT_TRUE(PullIsPattern(0));
    Send(5);
    EXPECT_EQ(5u, PullSignature());
}

TEST_F(SampleLive, AFrameThatWentStaleAfterTheDecisionCostsAPatternAndNoFailure) {
    m_camera.Start();
    Send(6);
    RAVLO_HOOK(MFCreateSample) samples(m_module.Handle());
    samples.Replace([&](IMFSample** sample) -> HRESULT {
        m_clock.AdvanceMs(1001);
        return decltype(samples)::CallOriginal(sample);
    });
    EXPECT_TRUE(PullIsPattern(0));
}

TEST_F(SampleLive, AFrameThatCameAfterTheDecisionIsTheOneServed) {
    m_camera.Start();
    Send(6);
    bool sent = false;
    RAVLO_HOOK(MFCreateSample) samples(m_module.Handle());
    samples.Replace([&](IMFSample** sample) -> HRESULT {
        if (!sent) {
            sent = true;
            m_clock.AdvanceMs(1);
            Send(7);
        }
        return decltype(samples)::CallOriginal(sample);
    });
    EXPECT_EQ(7u, PullSignature());
}

TEST_F(SampleLive, ANewFrameDoesNotBreakThePace) {
    Send(8);
    m_camera.Start();
    EXPECT_EQ(8u, PullSignature());
    m_clock.AdvanceMs(1);
    Send(9);
    const LONGLONG before = m_clock.Now();
    EXPECT_EQ(9u, PullSignature());
    EXPECT_EQ(before + 156'666, m_clock.Now());  // the rest of the period, though a frame came
}

TEST_F(SampleLive, AfterTheProducerIsGoneItsLastFrameRepeatsAndThenThePatternComes) {
    const std::uint64_t stamp = Send(10);
    m_camera.Start();
    m_producer.Close();
    EXPECT_TRUE(m_log.WaitForLine("PIPE the writer closed the pipe")) << m_log.Text();
    EXPECT_EQ(10u, PullSignature());
    AdvanceToAge(stamp, 999);
    EXPECT_EQ(10u, PullSignature());
    AdvanceToAge(stamp, 1001);
    EXPECT_TRUE(PullIsPattern(2));
}

TEST_F(SampleLive, AFrameOfAnotherSizeNeverReachesASample) {
    m_camera.Start();
    ASSERT_TRUE(m_producer.SendFrame(32, 18, 11));
    EXPECT_TRUE(m_log.WaitForLine("PIPE geometry mismatch: wire 32x18, advertised 64x36 - pattern")) << m_log.Text();
    EXPECT_TRUE(PullIsPattern(0));
}

class SampleLiveNarrow : public ModuleTest {};

TEST_F(SampleLiveNarrow, ALiveFrameIsServedEvenWhereNoPatternFits) {
    HookedClock clock(m_module.Handle());
    Camera camera(m_module, {.geometry = L"6x4@60/1"});
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(camera.PipeName())) << m_log.Text();
    ASSERT_TRUE(producer.SendFrame(6, 4, 2));
    ASSERT_TRUE(m_log.WaitForLine("PIPE delivering live frames 6x4 seq=2")) << m_log.Text();
    camera.Start();
    EXPECT_EQ(2u, SignatureOf(camera.Pull().bytes, 6, 4));
}

}  // namespace
}  // namespace ravlo::test
