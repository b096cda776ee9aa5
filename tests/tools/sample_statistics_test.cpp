#include "rvhost/sample_silence.h"
#include "rvhost/sample_statistics.h"

#include <gtest/gtest.h>

#include "common/percentile.h"

namespace ravlo::test {
namespace {

constexpr std::int64_t kPeriod = 333'333;
constexpr std::int64_t kBase = 134'000'000'000'000'000;

TEST(SampleStatistics, TimesOnePeriodApartAreOnTheGrid) {
    SampleStatistics statistics(kPeriod);
    for (std::int64_t k = 0; k < 100; ++k) {
        const PictureKind kind = k < 30 ? PictureKind::Pattern : PictureKind::Live;
        EXPECT_TRUE(statistics.Add(kBase + k * kPeriod + 20, kBase + k * kPeriod, kind).onGrid);
    }
    EXPECT_EQ(statistics.Samples(), 100U);
    EXPECT_EQ(statistics.Live(), 70U);
    EXPECT_EQ(statistics.Pattern(), 30U);
    EXPECT_EQ(statistics.GridErrors(), 0U);
    EXPECT_EQ(statistics.SkippedPeriods(), 0U);
}

TEST(SampleStatistics, OneUnitBesideTheGridIsAnError) {
    SampleStatistics statistics(kPeriod);
    statistics.Add(kBase, kBase, PictureKind::Live);
    EXPECT_FALSE(statistics.Add(kBase, kBase + kPeriod + 1, PictureKind::Live).onGrid);
    EXPECT_FALSE(statistics.Add(kBase, kBase + 2 * kPeriod - 1, PictureKind::Live).onGrid);
    EXPECT_TRUE(statistics.Add(kBase, kBase + 3 * kPeriod, PictureKind::Live).onGrid);
    EXPECT_EQ(statistics.GridErrors(), 2U);
}

TEST(SampleStatistics, ATimeThatDoesNotAdvanceIsAnError) {
    SampleStatistics statistics(kPeriod);
    statistics.Add(kBase, kBase, PictureKind::Live);
    statistics.Add(kBase, kBase + 2 * kPeriod, PictureKind::Live);
    EXPECT_FALSE(statistics.Add(kBase, kBase + 2 * kPeriod, PictureKind::Live).onGrid);
    EXPECT_FALSE(statistics.Add(kBase, kBase + kPeriod, PictureKind::Live).onGrid);
    EXPECT_EQ(statistics.GridErrors(), 2U);
}

TEST(SampleStatistics, MissingPeriodsAreCountedButAreNoGridError) {
    SampleStatistics statistics(kPeriod);
    statistics.Add(kBase, kBase, PictureKind::Live);
    EXPECT_TRUE(statistics.Add(kBase, kBase + 4 * kPeriod, PictureKind::Live).onGrid);
    EXPECT_EQ(statistics.SkippedPeriods(), 3U);
    EXPECT_EQ(statistics.GridErrors(), 0U);
}

TEST(SampleStatistics, LatenessLeavesOutTheConstantOffset) {
    SampleStatistics statistics(kPeriod);
    for (std::int64_t k = 0; k < 100; ++k) {
        statistics.Add(kBase + k * kPeriod + 5'000'000 + k * 100, kBase + k * kPeriod, PictureKind::Live);
    }
    EXPECT_EQ(statistics.Lateness(50), 4'900);
    EXPECT_EQ(statistics.Lateness(99), 9'800);
    EXPECT_EQ(statistics.Lateness(100), 9'900);
}

TEST(SampleStatistics, WithoutSamplesThereIsNoLateness) {
    EXPECT_EQ(SampleStatistics(kPeriod).Lateness(99), 0);
}

TEST(SampleSilence, IsTenSecondsOrThreePeriodsWhicheverIsLonger) {
    EXPECT_EQ(LongestSilenceAt(333'333), 100'000'000);
    EXPECT_EQ(LongestSilenceAt(33'333'333), 100'000'000);
    EXPECT_EQ(LongestSilenceAt(200'000'000), 600'000'000);
    EXPECT_EQ(LongestSilenceAt(9'999'999'990'000'000), 29'999'999'970'000'000);
}

TEST(Percentile, IsTheNearestRank) {
    EXPECT_EQ(Percentile({}, 50), 0);
    EXPECT_EQ(Percentile({7}, 1), 7);
    EXPECT_EQ(Percentile({30, 10, 20}, 50), 20);
    EXPECT_EQ(Percentile({30, 10, 20}, 67), 30);
    EXPECT_EQ(Percentile({4, 3, 2, 1}, 50), 2);
}

}  // namespace
}  // namespace ravlo::test
