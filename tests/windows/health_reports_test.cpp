#include <gtest/gtest.h>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/pipe_client.h"
#include "windows/hooked_clock.h"

// The health reports as the built camera writes them.
namespace ravlo::test {
namespace {

class HealthReports : public ModuleTest {
protected:
    /// Sends a frame and returns once it is published and its reports are written.
    void Send(PipeClient& producer, std::uint32_t signature) {
        const std::size_t published = m_published.Count();
        ASSERT_TRUE(producer.SendFrame(64, 36, signature));
        ASSERT_TRUE(m_published.WaitForCalls(published + 1));
    }

    HookedClock m_clock{m_module.Handle()};
    using SetEventHook = RAVLO_HOOK(SetEvent);
    SetEventHook m_published{m_module.Handle()};
    Camera m_camera{m_module, {.geometry = L"64x36@60/1"}};
};

TEST_F(HealthReports, TheCadenceIsBrokenAboveAHundredMillisecondsAndRecoversAtAHundred) {
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_camera.PipeName())) << m_log.Text();
    ASSERT_NO_FATAL_FAILURE(Send(producer, 1));
    m_clock.AdvanceMs(100);
    ASSERT_NO_FATAL_FAILURE(Send(producer, 2));
    EXPECT_EQ(0u, m_log.CountLines("cadence")) << m_log.Text();
    m_clock.AdvanceMs(101);
    ASSERT_NO_FATAL_FAILURE(Send(producer, 3));
    EXPECT_TRUE(m_log.HasMessage(
        "PIPE 101 ms passed between frames - longer than the 100 ms cadence bound, so a due request in the gap would "
        "have served the paced test pattern. The last real picture was NOT repeated and the client was NOT dropped"))
        << m_log.Text();
    m_clock.AdvanceMs(100);
    ASSERT_NO_FATAL_FAILURE(Send(producer, 4));
    EXPECT_TRUE(m_log.HasMessage("PIPE frame cadence recovered")) << m_log.Text();
    EXPECT_EQ(2u, m_log.CountLines("cadence"));
}

TEST_F(HealthReports, TheLiveLineComesOncePerClient) {
    for (const std::uint32_t signature : {10u, 20u}) {
        PipeClient producer;
        ASSERT_TRUE(producer.Connect(m_camera.PipeName())) << m_log.Text();
        ASSERT_NO_FATAL_FAILURE(Send(producer, signature));
        ASSERT_NO_FATAL_FAILURE(Send(producer, signature + 1));
        ASSERT_TRUE(m_log.WaitForLine("PIPE delivering live frames 64x36 seq=" + std::to_string(signature)))
            << m_log.Text();
        producer.Close();
        ASSERT_TRUE(m_log.WaitForCount("PIPE the writer closed the pipe", signature / 10)) << m_log.Text();
    }
    EXPECT_EQ(2u, m_log.CountLines("PIPE delivering live frames"));
}

TEST_F(HealthReports, TheLiveLineComesAgainAfterAGeometryMismatch) {
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_camera.PipeName())) << m_log.Text();
    ASSERT_NO_FATAL_FAILURE(Send(producer, 1));
    ASSERT_TRUE(producer.SendFrame(32, 18, 2));
    ASSERT_TRUE(m_log.WaitForLine("PIPE geometry mismatch")) << m_log.Text();
    ASSERT_NO_FATAL_FAILURE(Send(producer, 3));
    EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 64x36 seq=3")) << m_log.Text();
    EXPECT_EQ(2u, m_log.CountLines("PIPE delivering live frames"));
}

TEST_F(HealthReports, EveryThreeHundredthSampleReportsTheClamps) {
    m_camera.Start();
    IMFMediaStream* const stream = m_camera.Stream();
    for (int i = 0; i < 299; ++i) {
        ASSERT_EQ(S_OK, stream->RequestSample(nullptr)) << i;
    }
    EXPECT_EQ(0u, m_log.CountLines("TS pacing clamp"));
    ASSERT_EQ(S_OK, stream->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage("TS pacing clamp fired 0 of 300 samples (0.0%; expected 0)")) << m_log.Text();
    // The line comes before the result of the request that caused it.
    EXPECT_LT(m_log.Find("TS pacing clamp"), m_log.Lines().size() - 1);
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(S_OK, stream->RequestSample(nullptr)) << i;
    }
    EXPECT_TRUE(m_log.HasMessage("TS pacing clamp fired 0 of 600 samples (0.0%; expected 0)")) << m_log.Text();
    EXPECT_EQ(2u, m_log.CountLines("TS pacing clamp"));
    EXPECT_EQ(600u, DrainEvents(stream).size());
    m_camera.Stop();
    EXPECT_TRUE(m_log.HasMessage("TS publish-tick clamp fired 0 of 600 samples (0.0%; expected 0)")) << m_log.Text();
}

TEST_F(HealthReports, ARestartBeginsTheThreeHundredAnew) {
    m_camera.Start();
    for (int i = 0; i < 299; ++i) {
        ASSERT_EQ(S_OK, m_camera.Stream()->RequestSample(nullptr)) << i;
    }
    EXPECT_EQ(299u, DrainEvents(m_camera.Stream()).size());
    m_camera.Start();
    for (int i = 0; i < 299; ++i) {
        ASSERT_EQ(S_OK, m_camera.Stream()->RequestSample(nullptr)) << i;
    }
    EXPECT_EQ(0u, m_log.CountLines("TS pacing clamp"));
}

TEST_F(HealthReports, ASampleThatCannotBeBuiltIsCountedInTheReport) {
    m_camera.Start();
    for (int i = 0; i < 299; ++i) {
        ASSERT_EQ(S_OK, m_camera.Stream()->RequestSample(nullptr)) << i;
    }
    RAVLO_HOOK(MFCreateSample) samples(m_module.Handle());
    samples.FailEvery(E_OUTOFMEMORY);
    EXPECT_EQ(E_OUTOFMEMORY, m_camera.Stream()->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage("TS pacing clamp fired 0 of 300 samples (0.0%; expected 0)")) << m_log.Text();
}

}  // namespace
}  // namespace ravlo::test
