#include "rvfeeder/frame_clock.h"

#include <gtest/gtest.h>

namespace ravlo::test {
namespace {

using Kind = FrameStep::Kind;
constexpr std::int64_t kStart = 1'000'000'000;

TEST(FrameClock, TheFirstFrameIsDueAtOnceAndStartsTheClock) {
    FrameClock clock(25, 1);
    EXPECT_EQ(clock.Judge(kStart, {kStart, kStart}).kind, Kind::Send);
    clock.Advance();
    const FrameStep second = clock.Judge(kStart, {kStart, kStart});
    EXPECT_EQ(second.kind, Kind::Wait);
    EXPECT_EQ(second.wait, 400'000);
    EXPECT_EQ(clock.Judge(kStart + 399'999, {kStart, kStart}).wait, 1);
    EXPECT_EQ(clock.Judge(kStart + 400'000, {kStart, kStart}).kind, Kind::Send);
}

TEST(FrameClock, FractionalRatesDoNotDriftOverHours) {
    FrameClock clock(30000, 1001);
    clock.Judge(kStart, {kStart, kStart});
    for (int frame = 0; frame < 30000 * 12; ++frame) {
        clock.Advance();
    }
    // 360,000 frames at 30000/1001 a second last exactly 12,012 seconds.
    EXPECT_EQ(clock.Judge(kStart, {kStart, kStart}).wait, 120'120'000'000);
}

TEST(FrameClock, HighRatesDoNotOverflowWithinAYear) {
    FrameClock clock(1'000'000, 1001);
    clock.Judge(kStart, {kStart, kStart});
    constexpr std::int64_t kYear = 315'360'000'000'000;
    for (int frame = 0; frame < 1'000'000; ++frame) {
        clock.Advance();
    }
    EXPECT_EQ(clock.Judge(kStart, {kStart, kStart}).wait, 10'010'000'000);
    EXPECT_EQ(clock.Judge(kStart + kYear, {kStart, kStart}).kind, Kind::Drop);
}

TEST(FrameClock, RatesOfManyDigitsDoNotOverflow) {
    FrameClock clock(999'999'999, 33'333'333);
    clock.Judge(kStart, {kStart, kStart});
    for (int frame = 0; frame < 30'000; ++frame) {
        clock.Advance();
    }
    // 30,000 x 33,333,333 / 999,999,999 seconds, in whole ticks.
    EXPECT_EQ(clock.Judge(kStart, {kStart, kStart}).wait, 9'999'999'909);
}

TEST(FrameClock, UpToOnePeriodOfDelayIsCaughtUpWithoutMovingTheClockOrLosingAFrame) {
    FrameClock clock(25, 1);
    clock.Judge(kStart, {kStart, kStart});
    clock.Advance();
    EXPECT_EQ(clock.Judge(kStart + 800'000, {kStart, kStart}).kind, Kind::Send);
    clock.Advance();
    EXPECT_EQ(clock.Judge(kStart + 800'001, {kStart, kStart}).kind, Kind::Send);
    clock.Advance();
    EXPECT_EQ(clock.Judge(kStart + 800'001, {kStart, kStart}).wait, 399'999);
    EXPECT_EQ(clock.Restarts(), 0U);
}

TEST(FrameClock, FramesThatWaitedTooLongHereAreDroppedUntilOneIsDue) {
    FrameClock clock(25, 1);
    clock.Judge(kStart, {kStart, kStart});
    clock.Advance();
    const std::int64_t late = kStart + 2'050'000;  // a write took five periods
    int dropped = 0;
    while (clock.Judge(late, {kStart, kStart}).kind == Kind::Drop) {
        ++dropped;
        clock.Advance();
    }
    EXPECT_EQ(dropped, 4) << "those due at 40, 80, 120 and 160 ms";
    EXPECT_EQ(clock.Judge(late, {kStart, kStart}).kind, Kind::Send);
    EXPECT_EQ(clock.Restarts(), 0U);
}

TEST(FrameClock, AfterADelayHereAnInputThatIsAheadIsBroughtBackToItsPlace) {
    FrameClock clock(25, 1);
    clock.Judge(kStart, {kStart, kStart});
    clock.Advance();
    std::int64_t now = kStart + 10'000'000;  // a write took 25 periods
    int dropped = 0;
    for (FrameStep step = clock.Judge(now, {kStart, kStart}); step.kind == Kind::Drop;) {
        ++dropped;
        clock.Advance();
        const std::int64_t asked = now;
        now += 200'000;  // the input brings the next one twice as fast as they are due
        step = clock.Judge(now, {asked, now});
    }
    EXPECT_EQ(dropped, 46) << "the one due at 1880 ms is there one period late";
    EXPECT_EQ(clock.Judge(now, {kStart, now}).kind, Kind::Send);
    clock.Advance();
    EXPECT_EQ(clock.Judge(now, {kStart, now}).kind, Kind::Send) << "due now";
    clock.Advance();
    EXPECT_EQ(clock.Judge(now, {kStart, now}).wait, 400'000) << "the clock has not moved";
    EXPECT_EQ(clock.Restarts(), 0U);
}

TEST(FrameClock, AfterADelayHereAnInputThatKeepsItsRateIsNotDroppedForEver) {
    FrameClock clock(25, 1);
    clock.Judge(kStart, {kStart, kStart});
    clock.Advance();
    std::int64_t now = kStart + 10'000'000;
    EXPECT_EQ(clock.Judge(now, {kStart, kStart}).kind, Kind::Drop);
    clock.Advance();
    const std::int64_t asked = now;
    now += 400'000;
    EXPECT_EQ(clock.Judge(now, {asked, now}).kind, Kind::Send);
    EXPECT_EQ(clock.Restarts(), 1U);
    clock.Advance();
    EXPECT_EQ(clock.Judge(now, {asked, now}).wait, 400'000) << "no burst";
}

TEST(FrameClock, AnInputThatDriftsBehindItsRateLosesNoFrame) {
    FrameClock clock(25, 1);
    std::int64_t arrived = kStart;
    for (int frame = 0; frame < 10'000; ++frame) {
        const std::int64_t asked = arrived;
        arrived += frame == 0 ? 0 : 400'400;  // 0.1 % slower than it says, and looked at a millisecond later
        ASSERT_EQ(clock.Judge(arrived + 10'000, {asked, arrived}).kind, Kind::Send) << frame;
        clock.Advance();
    }
    EXPECT_EQ(clock.Restarts(), 9U) << "one a period";
}

TEST(FrameClock, AnInputThatCameLateStartsTheClockAnewInsteadOfABurst) {
    FrameClock clock(25, 1);
    clock.Judge(kStart, {kStart, kStart});
    clock.Advance();
    const std::int64_t late = kStart + 10'000'000;
    EXPECT_EQ(clock.Judge(late, {kStart, late}).kind, Kind::Send);
    EXPECT_EQ(clock.Restarts(), 1U);
    clock.Advance();
    EXPECT_EQ(clock.Judge(late, {kStart, late}).wait, 400'000);
}

TEST(FrameClock, AfterAPauseThatWasMeantTheNextFrameIsDueAtOnceAndNoneInABurst) {
    FrameClock clock(25, 1);
    clock.Judge(kStart, {kStart, kStart});
    clock.Advance();
    clock.Restart();
    const std::int64_t back = kStart + 123'456'789;
    EXPECT_EQ(clock.Judge(back, {kStart, kStart}).kind, Kind::Send);
    clock.Advance();
    EXPECT_EQ(clock.Judge(back, {kStart, kStart}).wait, 400'000);
    EXPECT_EQ(clock.Restarts(), 0U);
}

TEST(FrameClock, ThousandsOfFramesOverAnUnevenInputNeverComeFasterThanTheRate) {
    FrameClock clock(60, 1);
    std::int64_t now = kStart;
    std::int64_t sentInWindow = 0;
    std::int64_t windowStart = now;
    for (int frame = 0; frame < 10'000; ++frame) {
        if (frame % 97 == 0) {
            now += 3'000'000;  // the input stalls for 18 periods
        }
        FrameStep step = clock.Judge(now, {kStart, now});
        while (step.kind == Kind::Wait) {
            now += step.wait;
            step = clock.Judge(now, {kStart, now});
        }
        sentInWindow += step.kind == Kind::Send ? 1 : 0;
        clock.Advance();
        if (now - windowStart >= 10'000'000) {
            EXPECT_LE(sentInWindow, (now - windowStart) * 60 / 10'000'000 + 2);
            windowStart = now;
            sentInWindow = 0;
        }
    }
    EXPECT_EQ(clock.Restarts(), 103U) << "one a stall; the first frame finds no clock to restart";
}

}  // namespace
}  // namespace ravlo::test
