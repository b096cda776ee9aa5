#include "stream/pacer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace ravlo {
namespace {

constexpr std::int64_t kBase = 1'000'000'000;
constexpr std::int64_t kPeriod = 333'333;
constexpr std::uint64_t kNoStamp = 0;

Pacer StartedPacer(std::int64_t duration = kPeriod) {
    Pacer pacer;
    pacer.Reset(kBase, duration);
    return pacer;
}

/// Asks at `now` without a fresh frame and commits what is due.
PacingDecision StepPattern(Pacer& pacer, std::int64_t now) {
    const PacingDecision decision = pacer.Decide(now, false, kNoStamp);
    pacer.Commit(decision);
    return decision;
}

TEST(Pacer, ResetTakesThePeriodAndItsWaitBound) {
    EXPECT_EQ(StartedPacer(333'333).Period(), 333'333);
    EXPECT_EQ(StartedPacer(333'333).WaitBoundMs(), 34U);
    EXPECT_EQ(StartedPacer(166'666).WaitBoundMs(), 17U);
    EXPECT_EQ(StartedPacer(10'000).WaitBoundMs(), 2U);
    EXPECT_EQ(StartedPacer(1).WaitBoundMs(), 1U);
    EXPECT_EQ(StartedPacer(10'000'000).WaitBoundMs(), 1000U) << "never more than a second";
}

TEST(Pacer, ADurationBelowOneCountsAsThirtyHertz) {
    EXPECT_EQ(StartedPacer(0).Period(), 333'333);
    EXPECT_EQ(StartedPacer(0).WaitBoundMs(), 34U);
    EXPECT_EQ(StartedPacer(-5).Period(), 333'333);
}

TEST(Pacer, WithoutAFrameTheFirstSampleIsDueOnePeriodAfterStart) {
    const Pacer pacer = StartedPacer();
    EXPECT_EQ(pacer.Decide(kBase, false, kNoStamp).kind, PacingKind::Wait);
    EXPECT_EQ(pacer.Decide(kBase + kPeriod - 1, false, kNoStamp).kind, PacingKind::Wait);
    const PacingDecision due = pacer.Decide(kBase + kPeriod, false, kNoStamp);
    EXPECT_EQ(due.kind, PacingKind::Pattern);
    EXPECT_EQ(due.sampleTime, kBase);
    EXPECT_EQ(due.sampleIndex, 0U);
    EXPECT_FALSE(due.clamped);
}

TEST(Pacer, AWaitSaysHowLongExactlyAndRoundedUpToMilliseconds) {
    const Pacer pacer = StartedPacer();
    const PacingDecision full = pacer.Decide(kBase, false, kNoStamp);
    EXPECT_EQ(full.waitRemainder, 333'333);
    EXPECT_EQ(full.waitMs, 34U);
    const PacingDecision tenMs = pacer.Decide(kBase + kPeriod - 100'000, false, kNoStamp);
    EXPECT_EQ(tenMs.waitRemainder, 100'000);
    EXPECT_EQ(tenMs.waitMs, 10U);
    EXPECT_EQ(pacer.Decide(kBase + kPeriod - 100'001, false, kNoStamp).waitMs, 11U);
    const PacingDecision last = pacer.Decide(kBase + kPeriod - 1, false, kNoStamp);
    EXPECT_EQ(last.waitRemainder, 1);
    EXPECT_EQ(last.waitMs, 1U);
}

TEST(Pacer, AWaitNeverExceedsTheBoundThoughTheClockStandsFarBack) {
    const PacingDecision decision = StartedPacer().Decide(kBase - 1'000'000'000, false, kNoStamp);
    EXPECT_EQ(decision.waitMs, 34U);
    EXPECT_EQ(decision.waitRemainder, 1'000'333'333);
}

TEST(Pacer, TheFirstFreshFrameIsServedAtOnce) {
    Pacer pacer = StartedPacer();
    const PacingDecision first = pacer.Decide(kBase + 5, true, 77);
    EXPECT_EQ(first.kind, PacingKind::Live);
    EXPECT_EQ(first.liveStamp, 77U);
    EXPECT_EQ(first.sampleTime, kBase);
    pacer.Commit(first);
    EXPECT_EQ(pacer.Decide(kBase + 6, true, 78).kind, PacingKind::Wait) << "a newer frame does not make a sample due";
    const PacingDecision second = pacer.Decide(kBase + kPeriod, true, 78);
    EXPECT_EQ(second.kind, PacingKind::Live);
    EXPECT_EQ(second.sampleTime, kBase + kPeriod);
}

TEST(Pacer, AFrameServedBeforeIsServedAgainWhenTheNextSampleIsDue) {
    Pacer pacer = StartedPacer();
    pacer.Commit(pacer.Decide(kBase, true, 77));
    EXPECT_EQ(pacer.Decide(kBase + kPeriod - 1, true, 77).kind, PacingKind::Wait);
    const PacingDecision repeated = pacer.Decide(kBase + kPeriod, true, 77);
    EXPECT_EQ(repeated.kind, PacingKind::Live);
    EXPECT_EQ(repeated.liveStamp, 77U);
}

TEST(Pacer, AStampOfZeroIsAStampLikeAnyOther) {
    Pacer pacer = StartedPacer();
    EXPECT_EQ(pacer.Decide(kBase, true, 0).kind, PacingKind::Live);
}

TEST(Pacer, AfterAFirstPatternTheSecondSampleIsDueTogetherWithIt) {
    Pacer pacer = StartedPacer();
    ASSERT_EQ(StepPattern(pacer, kBase + kPeriod).kind, PacingKind::Pattern);
    const PacingDecision second = StepPattern(pacer, kBase + kPeriod);
    EXPECT_EQ(second.kind, PacingKind::Pattern);
    EXPECT_EQ(second.sampleTime, kBase + kPeriod);
    EXPECT_EQ(pacer.Decide(kBase + kPeriod, false, kNoStamp).kind, PacingKind::Wait);
    EXPECT_EQ(StepPattern(pacer, kBase + 2 * kPeriod).sampleTime, kBase + 2 * kPeriod);
}

/// Drives a pacer whose consumer always asks at once, and sleeps exactly as long as it is told.
std::vector<std::int64_t> RunPromptConsumer(std::int64_t duration, int samples) {
    Pacer pacer = StartedPacer(duration);
    std::int64_t now = kBase;
    std::vector<std::int64_t> times;
    while (static_cast<int>(times.size()) < samples) {
        const PacingDecision decision = pacer.Decide(now, false, kNoStamp);
        if (decision.kind == PacingKind::Wait) {
            now += decision.waitRemainder;
            continue;
        }
        times.push_back(decision.sampleTime);
        EXPECT_LE(decision.sampleTime, now) << "no sample comes before its time";
        EXPECT_LE(now - decision.sampleTime, duration) << "and none later than one period after it";
        pacer.Commit(decision);
    }
    EXPECT_EQ(pacer.Clamps(), 0U);
    EXPECT_EQ(pacer.Samples(), static_cast<std::uint64_t>(samples));
    return times;
}

TEST(Pacer, ThousandsOfSamplesStayOnTheGridAtEveryRate) {
    for (const std::int64_t duration : {166'666, 333'333, 333'666, 10'000, 10'000'000}) {
        const std::vector<std::int64_t> times = RunPromptConsumer(duration, 5000);
        for (std::size_t k = 0; k < times.size(); ++k) {
            ASSERT_EQ(times[k], kBase + static_cast<std::int64_t>(k) * duration) << duration << " at " << k;
        }
    }
}

TEST(Pacer, ALateConsumerWithinFourPeriodsCatchesUp) {
    Pacer pacer = StartedPacer();
    pacer.Commit(pacer.Decide(kBase, true, 1));
    // Five periods after the first sample, the second is four periods late: still caught up with, at once.
    const std::int64_t late = kBase + 5 * kPeriod;
    for (std::int64_t k = 1; k <= 5; ++k) {
        const PacingDecision decision = StepPattern(pacer, late);
        ASSERT_EQ(decision.kind, PacingKind::Pattern) << k;
        EXPECT_EQ(decision.sampleTime, kBase + k * kPeriod);
    }
    EXPECT_EQ(pacer.Decide(late, false, kNoStamp).kind, PacingKind::Wait);
}

TEST(Pacer, AConsumerThatPausedLongerGetsOneSampleAtOnceAndThenOneAPeriod) {
    Pacer pacer = StartedPacer();
    pacer.Commit(pacer.Decide(kBase, true, 1));
    const std::int64_t back = kBase + 100 * kPeriod;
    ASSERT_EQ(StepPattern(pacer, back).sampleTime, kBase + kPeriod) << "the grid of sample times goes on";
    EXPECT_EQ(pacer.Decide(back, false, kNoStamp).waitRemainder, kPeriod) << "no burst";
    EXPECT_EQ(StepPattern(pacer, back + kPeriod).sampleTime, kBase + 2 * kPeriod);
}

TEST(Pacer, AfterAReanchorOneStepComesTogetherWithTheNextAndThenThePeriodHolds) {
    Pacer pacer = StartedPacer();
    pacer.Commit(pacer.Decide(kBase, true, 1));
    const std::int64_t back = kBase + 100 * kPeriod;
    StepPattern(pacer, back);
    StepPattern(pacer, back + kPeriod);
    EXPECT_EQ(StepPattern(pacer, back + kPeriod).kind, PacingKind::Pattern);
    EXPECT_EQ(pacer.Decide(back + kPeriod, false, kNoStamp).kind, PacingKind::Wait);
    for (std::int64_t k = 2; k < 50; ++k) {
        ASSERT_EQ(pacer.Decide(back + k * kPeriod - 1, false, kNoStamp).kind, PacingKind::Wait) << k;
        ASSERT_EQ(StepPattern(pacer, back + k * kPeriod).kind, PacingKind::Pattern) << k;
    }
}

TEST(Pacer, TheReanchorBeginsOneTickPastFourPeriods) {
    Pacer within = StartedPacer();
    within.Commit(within.Decide(kBase, true, 1));
    StepPattern(within, kBase + 6 * kPeriod);
    EXPECT_EQ(within.Decide(kBase + 6 * kPeriod, false, kNoStamp).kind, PacingKind::Pattern)
        << "exactly four periods behind the new due time: caught up";
    Pacer beyond = StartedPacer();
    beyond.Commit(beyond.Decide(kBase, true, 1));
    StepPattern(beyond, kBase + 6 * kPeriod + 1);
    EXPECT_EQ(beyond.Decide(kBase + 6 * kPeriod + 1, false, kNoStamp).kind, PacingKind::Wait);
}

TEST(Pacer, ASampleTimeThatWouldStandStillIsMovedOnAndCounted) {
    Pacer pacer = StartedPacer();
    PacingDecision jumped = pacer.Decide(kBase + kPeriod, false, kNoStamp);
    jumped.sampleTime = kBase + 10 * kPeriod;
    pacer.Commit(jumped);
    const PacingDecision clamped = pacer.Decide(kBase + 2 * kPeriod, false, kNoStamp);
    EXPECT_TRUE(clamped.clamped);
    EXPECT_EQ(clamped.sampleTime, kBase + 11 * kPeriod);
    pacer.Commit(clamped);
    EXPECT_EQ(pacer.Clamps(), 1U);
    EXPECT_EQ(pacer.Samples(), 2U);
    EXPECT_EQ(pacer.LastSampleTime(), kBase + 11 * kPeriod);
}

TEST(Pacer, CommittingAWaitChangesNothing) {
    Pacer pacer = StartedPacer();
    pacer.Commit(pacer.Decide(kBase, false, kNoStamp));
    EXPECT_EQ(pacer.Samples(), 0U);
    EXPECT_EQ(pacer.LastSampleTime(), -1);
}

TEST(Pacer, ResetForgetsEverything) {
    Pacer pacer = StartedPacer();
    pacer.Commit(pacer.Decide(kBase, true, 77));
    pacer.Commit(pacer.Decide(kBase + kPeriod, true, 78));
    pacer.Reset(kBase + 50, 166'666);
    EXPECT_EQ(pacer.Samples(), 0U);
    EXPECT_EQ(pacer.LastSampleTime(), -1);
    const PacingDecision first = pacer.Decide(kBase + 50, true, 78);
    EXPECT_EQ(first.kind, PacingKind::Live) << "the frame is new to the new run";
    EXPECT_EQ(first.sampleTime, kBase + 50);
}

TEST(Pacer, TheSampleIndexCountsSamples) {
    Pacer pacer = StartedPacer();
    for (std::uint32_t k = 0; k < 20; ++k) {
        EXPECT_EQ(StepPattern(pacer, kBase + (k + 1) * kPeriod).sampleIndex, k);
    }
}

}  // namespace
}  // namespace ravlo
