// What rvhost makes of times: distributions, stamps, rates, and which samples become pictures.
#include "rvhost/delay_distribution.h"
#include "rvhost/picture_cadence.h"
#include "rvhost/rate_meter.h"
#include "rvhost/stamp_statistics.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <optional>
#include <vector>

namespace ravlo::test {
namespace {

constexpr std::int64_t kMs = 10'000;

TEST(DelayDistribution, PercentilesAreNearestRanks) {
    DelayDistribution delays;
    for (std::int64_t ms = 100; ms >= 1; --ms) {
        delays.Add(ms * kMs);
    }
    EXPECT_EQ(delays.Count(), 100U);
    EXPECT_EQ(delays.Smallest(), 1 * kMs);
    EXPECT_EQ(delays.Largest(), 100 * kMs);
    EXPECT_EQ(delays.Percentile(1), 1 * kMs);
    EXPECT_EQ(delays.Percentile(50), 50 * kMs);
    EXPECT_EQ(delays.Percentile(99), 99 * kMs);
    EXPECT_EQ(delays.Percentile(100), 100 * kMs);
}

TEST(DelayDistribution, DelaysAreRoundedDownToTenMicrosecondsAlsoBelowZero) {
    DelayDistribution delays;
    delays.Add(199);
    EXPECT_EQ(delays.Largest(), 100);
    delays.Add(-1);
    EXPECT_EQ(delays.Smallest(), -100);
    delays.Add(-200);
    EXPECT_EQ(delays.Smallest(), -200);
    EXPECT_EQ(delays.Count(), 3U);
}

TEST(DelayDistribution, WithoutDelaysEverythingIsZero) {
    const DelayDistribution none;
    EXPECT_EQ(none.Percentile(99), 0);
    EXPECT_EQ(none.Smallest(), 0);
    EXPECT_EQ(none.Largest(), 0);
    for (const DelayBucket& bucket : none.Buckets(0)) {
        EXPECT_EQ(bucket.count, 0U);
    }
}

TEST(DelayDistribution, BarsDoubleFromATenthOfAMillisecondAndTheLastTakesTheRest) {
    DelayDistribution delays;
    constexpr std::int64_t kOrigin = 5 * kMs;
    constexpr std::int64_t kHuge = std::numeric_limits<std::int64_t>::max() / 2;
    for (const std::int64_t delay :
         std::initializer_list<std::int64_t>{0, 900, 1'000, 1'900, 2'000, 4'095'900, 8'191'900, 8'192'000, kHuge}) {
        delays.Add(kOrigin + delay);
    }
    const std::vector<DelayBucket> buckets = delays.Buckets(kOrigin);
    ASSERT_EQ(buckets.size(), 15U);
    EXPECT_EQ(buckets[0], (DelayBucket{1'000, 2}));
    EXPECT_EQ(buckets[1], (DelayBucket{2'000, 2}));
    EXPECT_EQ(buckets[2], (DelayBucket{4'000, 1}));
    EXPECT_EQ(buckets[12], (DelayBucket{4'096'000, 1}));
    EXPECT_EQ(buckets[13], (DelayBucket{8'192'000, 1}));
    EXPECT_EQ(buckets[14], (DelayBucket{kNoBound, 2}));
}

TEST(StampStatistics, AFrameIsTimedOnceAndMissingNumbersAreCounted) {
    StampStatistics stamps;
    EXPECT_EQ(stamps.Add({10, 1'000 * kMs}, 1'020 * kMs), 20 * kMs);
    EXPECT_EQ(stamps.Add({10, 1'000 * kMs}, 1'053 * kMs), 53 * kMs) << "what the preview shows grows";
    EXPECT_EQ(stamps.Add({13, 1'100 * kMs}, 1'140 * kMs), 40 * kMs);
    EXPECT_EQ(stamps.Stamped(), 3U);
    EXPECT_EQ(stamps.Repeated(), 1U);
    EXPECT_EQ(stamps.Skipped(), 2U);
    EXPECT_EQ(stamps.Latency().Count(), 2U);
    EXPECT_EQ(stamps.Latency().Largest(), 40 * kMs);
}

TEST(StampStatistics, ACountThatBeginsAnewSkipsNothing) {
    StampStatistics stamps;
    stamps.Add({900, 0}, 0);
    stamps.Add({1, 0}, 0);
    stamps.Add({2, 0}, 0);
    EXPECT_EQ(stamps.Skipped(), 0U);
    EXPECT_EQ(stamps.Repeated(), 0U);
}

TEST(StampStatistics, TimesThatCannotBeTrueAreNoLatency) {
    StampStatistics stamps;
    EXPECT_EQ(stamps.Add({1, 1'001}, 1'000), std::nullopt) << "from the future";
    EXPECT_EQ(stamps.Add({2, 1'000}, 1'000), 0);
    EXPECT_EQ(stamps.Add({3, 0}, 100'000'000), 100'000'000) << "ten seconds";
    EXPECT_EQ(stamps.Add({4, 0}, 100'000'001), std::nullopt) << "longer";
    EXPECT_EQ(stamps.Add({5, std::numeric_limits<std::int64_t>::min()}, 1'000), std::nullopt);
    EXPECT_EQ(stamps.Add({6, std::numeric_limits<std::int64_t>::max()}, 1'000), std::nullopt);
    EXPECT_EQ(stamps.Stamped(), 6U);
    EXPECT_EQ(stamps.Latency().Count(), 2U);
}

TEST(RateMeter, CountsWhatCameWithinTwoSeconds) {
    RateMeter meter;
    EXPECT_EQ(meter.Rate(0), 0);
    for (int k = 0; k < 100; ++k) {
        meter.Add(k * 100 * kMs);  // ten a second at first
    }
    EXPECT_DOUBLE_EQ(meter.Rate(9'900 * kMs), 10);
    for (int k = 1; k <= 200; ++k) {
        meter.Add((9'900 + k * 20) * kMs);  // then fifty, for four seconds
    }
    EXPECT_DOUBLE_EQ(meter.Rate(13'900 * kMs), 50);
}

TEST(RateMeter, ASlowStreamHasARateAndAStreamThatStopsLosesIt) {
    RateMeter meter;
    meter.Add(0);
    EXPECT_EQ(meter.Rate(0), 0);
    meter.Add(4'000 * kMs);
    EXPECT_DOUBLE_EQ(meter.Rate(4'000 * kMs), 0.25);
    EXPECT_DOUBLE_EQ(meter.Rate(8'000 * kMs), 0.25) << "the next one is due but not yet missing";
    EXPECT_DOUBLE_EQ(meter.Rate(16'000 * kMs), 0.0625);
}

TEST(PictureCadence, CountsSamples) {
    PictureCadence cadence(3, 1'000);
    std::vector<std::uint64_t> due;
    for (std::uint64_t before = 0; before < 10; ++before) {
        if (cadence.IsDue(before, 0)) {
            due.push_back(before);
        }
    }
    EXPECT_EQ(due, (std::vector<std::uint64_t>{0, 3, 6, 9}));
}

TEST(PictureCadence, CountsTimeAndDoesNotMakeUpForWhatWasMissed) {
    PictureCadence cadence(std::nullopt, 100);
    std::vector<std::int64_t> due;
    for (const std::int64_t elapsedMs : {0, 33, 66, 99, 100, 133, 450, 466, 499, 500}) {
        if (cadence.IsDue(7, elapsedMs)) {
            due.push_back(elapsedMs);
        }
    }
    EXPECT_EQ(due, (std::vector<std::int64_t>{0, 100, 450, 500}));
}

}  // namespace
}  // namespace ravlo::test
