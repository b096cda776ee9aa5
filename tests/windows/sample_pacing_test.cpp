#include <gtest/gtest.h>

#include <vector>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/pattern.h"
#include "support/pipe_client.h"
#include "windows/hooked_clock.h"

// When samples come and which times they carry, with every clock of the module in the test's hand.
namespace ravlo::test {
namespace {

constexpr LONGLONG kPeriod = 166'666;  // 60/1

class SamplePacing : public ModuleTest {
protected:
    /// Pulls a sample and returns how long the request waited, in 100 ns.
    LONGLONG PullAndTime(Camera& camera) {
        const LONGLONG before = m_clock.Now();
        m_last = camera.Pull();
        return m_clock.Now() - before;
    }
    /// The waits of the next `count` requests.
    std::vector<LONGLONG> WaitsOf(Camera& camera, int count) {
        std::vector<LONGLONG> waits;
        for (int i = 0; i < count; ++i) {
            waits.push_back(PullAndTime(camera));
        }
        return waits;
    }
    /// Sends one frame and returns once it is published.
    void SendAndAwait(PipeClient& producer, std::uint32_t signature) {
        ASSERT_TRUE(producer.SendFrame(64, 36, signature));
        ASSERT_TRUE(m_log.WaitForLine("PIPE delivering live frames 64x36")) << m_log.Text();
    }

    HookedClock m_clock{m_module.Handle()};
    Sample m_last;
};

using Units = std::vector<LONGLONG>;

TEST_F(SamplePacing, WithoutAProducerTheTimesAreTheGridFromStartAndThePictureIsThePattern) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    const LONGLONG base = HookedClock::kStart;
    m_clock.Advance(7'777);
    for (std::uint32_t k = 0; k < 80; ++k) {
        const Sample sample = camera.Pull();
        ASSERT_EQ(base + k * kPeriod, sample.time) << k;
        ASSERT_EQ(kPeriod, sample.duration);
        ASSERT_TRUE(IsTestPattern(sample.bytes, k, 64, 36)) << k;
    }
}

TEST_F(SamplePacing, TheFirstPatternWaitsOnePeriodAndTheSecondIsDueWithIt) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    EXPECT_EQ((Units{kPeriod, 0, kPeriod, kPeriod, kPeriod}), WaitsOf(camera, 5));
}

TEST_F(SamplePacing, AFractionalRateKeepsItsTruncatedDurationOnTheGrid) {
    Camera camera(m_module, {.geometry = L"64x36@30000/1001"});
    camera.Start();
    for (std::uint32_t k = 0; k < 20; ++k) {
        const Sample sample = camera.Pull();
        ASSERT_EQ(HookedClock::kStart + k * 333'666LL, sample.time) << k;
        ASSERT_EQ(333'666, sample.duration);
    }
}

TEST_F(SamplePacing, TheWaitIsOnThreeHandlesWithTheTimerArmedForTheRemainder) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    m_clock.Advance(100'000);
    camera.Pull();
    const std::vector<PacingWait> waits = m_clock.TakeWaits();
    ASSERT_EQ(1u, waits.size());
    EXPECT_EQ(3u, waits[0].handles);
    EXPECT_EQ(-66'666, waits[0].dueTime);
    EXPECT_EQ(7u + 17u, waits[0].timeoutMs);  // the remainder rounded up, and the wait bound as a net
    const auto armed = m_clock.Timer().Calls();
    ASSERT_EQ(1u, armed.size());
    EXPECT_EQ(0, std::get<2>(armed[0]));        // no period
    EXPECT_EQ(nullptr, std::get<3>(armed[0]));  // no completion routine
    EXPECT_EQ(FALSE, std::get<5>(armed[0]));    // no resume
}

TEST_F(SamplePacing, TheLastTickOfAWaitIsOneHundredNanosecondsAndOneMillisecond) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    m_clock.Advance(kPeriod - 1);
    camera.Pull();
    const std::vector<PacingWait> waits = m_clock.TakeWaits();
    ASSERT_EQ(1u, waits.size());
    EXPECT_EQ(-1, waits[0].dueTime);
    EXPECT_EQ(1u + 17u, waits[0].timeoutMs);
}

TEST_F(SamplePacing, AtTheDueTimeItselfNothingIsWaitedFor) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    m_clock.Advance(kPeriod);
    camera.Pull();
    EXPECT_TRUE(m_clock.TakeWaits().empty());
}

TEST_F(SamplePacing, AClockThatJumpsBackWaitsNoMoreThanThePeriodsBoundAtATime) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    m_clock.Advance(-300 * 10'000);
    camera.Pull();
    const std::vector<PacingWait> waits = m_clock.TakeWaits();
    ASSERT_EQ(1u, waits.size());
    EXPECT_EQ(-(kPeriod + 3'000'000), waits[0].dueTime);
    EXPECT_EQ(17u + 17u, waits[0].timeoutMs);
}

TEST_F(SamplePacing, ASlowRateWaitsAtMostASecondAtATime) {
    Camera camera(m_module, {.geometry = L"64x36@1/5"});
    camera.Start();
    m_clock.BreakTimer();
    EXPECT_EQ(50'000'000, PullAndTime(camera));
    const std::vector<PacingWait> waits = m_clock.TakeWaits();
    ASSERT_EQ(5u, waits.size());
    for (const PacingWait& wait : waits) {
        EXPECT_EQ(2u, wait.handles);
        EXPECT_EQ(1000u, wait.timeoutMs);
    }
}

TEST_F(SamplePacing, WithATimerThatCannotBeArmedTheMillisecondTimeoutPacesOnTwoHandles) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    m_clock.BreakTimer();
    // Whole milliseconds, rounded up; the third wait is a shorter one, because the grid itself does not drift.
    EXPECT_EQ((Units{170'000, 0, 170'000, 160'000}), WaitsOf(camera, 4));
    const std::vector<PacingWait> waits = m_clock.TakeWaits();
    ASSERT_FALSE(waits.empty());
    EXPECT_EQ(2u, waits[0].handles);
    EXPECT_EQ(17u, waits[0].timeoutMs);
}

TEST_F(SamplePacing, AFreshFrameIsServedAtOnceByTheFirstRequestAndThenAtThePeriod) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(camera.PipeName())) << m_log.Text();
    ASSERT_NO_FATAL_FAILURE(SendAndAwait(producer, 5));
    camera.Start();
    EXPECT_EQ(0, PullAndTime(camera));
    EXPECT_EQ(HookedClock::kStart, m_last.time);
    EXPECT_EQ(5u, SignatureOf(m_last.bytes, 64, 36));
    EXPECT_EQ((Units{kPeriod, kPeriod, kPeriod}), WaitsOf(camera, 3));
    EXPECT_EQ(5u, SignatureOf(m_last.bytes, 64, 36));
    EXPECT_EQ(HookedClock::kStart + 3 * kPeriod, m_last.time);
}

TEST_F(SamplePacing, APauseOfManyPeriodsGivesOneSampleAtOnceAndThenThePeriodAgain) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    WaitsOf(camera, 4);
    m_clock.Advance(100 * kPeriod);
    // The step after a re-anchor is due together with the one that follows it, as after Start.
    EXPECT_EQ((Units{0, kPeriod, 0, kPeriod, kPeriod, kPeriod}), WaitsOf(camera, 6));
    EXPECT_EQ(HookedClock::kStart + 9 * kPeriod, m_last.time);
}

TEST_F(SamplePacing, FourPeriodsBehindIsStillCaughtUpWith) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    WaitsOf(camera, 2);
    m_clock.Advance(6 * kPeriod);  // after the next sample the due time lies exactly 4 periods back
    EXPECT_EQ((Units{0, 0, 0, 0, 0, 0, kPeriod, kPeriod}), WaitsOf(camera, 8));
}

TEST_F(SamplePacing, OneTickMoreThanFourPeriodsBehindIsReanchored) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    WaitsOf(camera, 2);
    m_clock.Advance(6 * kPeriod + 1);
    EXPECT_EQ((Units{0, kPeriod, 0, kPeriod, kPeriod}), WaitsOf(camera, 5));
}

}  // namespace
}  // namespace ravlo::test
