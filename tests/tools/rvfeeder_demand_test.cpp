// Whether pictures are wanted, and what the user is told about it.
#include "rvfeeder/demand_hint.h"
#include "rvfeeder/demand_news.h"
#include "rvfeeder/demand_policy.h"

#include <gtest/gtest.h>

namespace ravlo::test {
namespace {

using Verdict = DemandPolicy::Verdict;
constexpr std::uint64_t kNever = 3'600'000;
constexpr std::int64_t kStart = 1'000'000'000;
constexpr std::int64_t kSecond = 10'000'000;

TEST(DemandPolicy, WithoutARecordEveryPictureIsWanted) {
    DemandPolicy policy(2000, false);
    EXPECT_EQ(policy.Judge(std::nullopt), Verdict::Wanted);
}

TEST(DemandPolicy, ACameraThatNobodyEverAskedIsIdleFromTheFirstRecordOn) {
    DemandPolicy policy(2000, false);
    EXPECT_EQ(policy.Judge(CameraDemand{1, kNever, 0}), Verdict::Idle);
}

TEST(DemandPolicy, ACameraIsIdleOnlyBeyondTheLimit) {
    DemandPolicy policy(2000, false);
    EXPECT_EQ(policy.Judge(CameraDemand{7, 2000, 90}), Verdict::Wanted);
    EXPECT_EQ(policy.Judge(CameraDemand{8, 2001, 90}), Verdict::Idle);
}

TEST(DemandPolicy, OneRecordOfNewDemandEndsTheRest) {
    DemandPolicy policy(2000, false);
    EXPECT_EQ(policy.Judge(CameraDemand{1, kNever, 0}), Verdict::Idle);
    EXPECT_EQ(policy.Judge(CameraDemand{2, 12, 1}), Verdict::Wanted);
}

TEST(DemandPolicy, RequestsBetweenTwoRecordsAreDemandHoweverLongAgoTheLastOneWas) {
    DemandPolicy policy(500, false);
    EXPECT_EQ(policy.Judge(CameraDemand{1, 900, 5}), Verdict::Idle);
    EXPECT_EQ(policy.Judge(CameraDemand{2, 700, 6}), Verdict::Wanted);
    EXPECT_EQ(policy.Judge(CameraDemand{3, 1200, 6}), Verdict::Idle);
}

TEST(DemandPolicy, TheSameRecordSeenAgainChangesNothing) {
    DemandPolicy policy(500, false);
    EXPECT_EQ(policy.Judge(CameraDemand{1, 900, 5}), Verdict::Idle);
    EXPECT_EQ(policy.Judge(CameraDemand{2, 700, 6}), Verdict::Wanted);
    EXPECT_EQ(policy.Judge(CameraDemand{2, 700, 6}), Verdict::Wanted);
}

TEST(DemandPolicy, ALapsedLeaseEndsTheRestAndANewOneBringsItBack) {
    DemandPolicy policy(2000, false);
    EXPECT_EQ(policy.Judge(CameraDemand{4, 9000, 30}), Verdict::Idle);
    EXPECT_EQ(policy.Judge(std::nullopt), Verdict::Wanted);
    EXPECT_EQ(policy.Judge(CameraDemand{9, 12000, 30}), Verdict::Idle);
}

TEST(DemandPolicy, ACameraThatIsStartedAnewIsNotTakenForDemand) {
    DemandPolicy policy(2000, false);
    EXPECT_EQ(policy.Judge(CameraDemand{40, 5000, 300}), Verdict::Idle);
    EXPECT_EQ(policy.Judge(CameraDemand{1, kNever, 0}), Verdict::Idle);
}

TEST(DemandPolicy, WithAlwaysNothingIsEverIdle) {
    DemandPolicy policy(2000, true);
    EXPECT_EQ(policy.Judge(CameraDemand{1, kNever, 0}), Verdict::Wanted);
    EXPECT_EQ(policy.Judge(CameraDemand{2, kNever, 0}), Verdict::Wanted);
}

TEST(DemandHint, ComesOnceAfterFiveSecondsWithoutAnyRequest) {
    DemandHint hint;
    EXPECT_FALSE(hint.Observe(kStart, true, CameraDemand{1, kNever, 0}));
    EXPECT_FALSE(hint.Observe(kStart + 5 * kSecond - 1, true, CameraDemand{10, kNever, 0}));
    EXPECT_TRUE(hint.Observe(kStart + 5 * kSecond, true, CameraDemand{11, kNever, 0}));
    EXPECT_FALSE(hint.Observe(kStart + 20 * kSecond, true, CameraDemand{40, kNever, 0}));
}

TEST(DemandHint, CountsOnlyTimeWithAConnectionAndRecords) {
    DemandHint hint;
    EXPECT_FALSE(hint.Observe(kStart, true, CameraDemand{1, kNever, 0}));
    EXPECT_FALSE(hint.Observe(kStart + 3 * kSecond, false, CameraDemand{6, kNever, 0}));
    EXPECT_FALSE(hint.Observe(kStart + 4 * kSecond, true, CameraDemand{8, kNever, 0}));
    EXPECT_FALSE(hint.Observe(kStart + 6 * kSecond, true, std::nullopt));
    EXPECT_FALSE(hint.Observe(kStart + 7 * kSecond, true, CameraDemand{1, kNever, 0}));
    EXPECT_FALSE(hint.Observe(kStart + 11 * kSecond, true, CameraDemand{9, kNever, 0}));
    EXPECT_TRUE(hint.Observe(kStart + 12 * kSecond, true, CameraDemand{11, kNever, 0}));
}

TEST(DemandHint, NeverComesOnceSomebodyHasAsked) {
    DemandHint hint;
    EXPECT_FALSE(hint.Observe(kStart, true, CameraDemand{1, kNever, 0}));
    EXPECT_FALSE(hint.Observe(kStart + kSecond, true, CameraDemand{3, 20, 1}));
    EXPECT_FALSE(hint.Observe(kStart + 60 * kSecond, true, CameraDemand{120, 59'000, 1}));
}

TEST(DemandHint, WaitsWhileTheLastRequestIsRecent) {
    DemandHint hint;
    EXPECT_FALSE(hint.Observe(kStart, true, CameraDemand{1, 100, 40}));
    EXPECT_FALSE(hint.Observe(kStart + 5 * kSecond, true, CameraDemand{11, 4'999, 40}));
    EXPECT_TRUE(hint.Observe(kStart + 6 * kSecond, true, CameraDemand{12, 5'000, 40}));
}

TEST(DemandHint, AnIdleTimeBeyondAllBoundsIsALongOne) {
    DemandHint hint;
    EXPECT_FALSE(hint.Observe(kStart, true, CameraDemand{1, UINT64_MAX, 0}));
    EXPECT_TRUE(hint.Observe(kStart + 5 * kSecond, true, CameraDemand{2, UINT64_MAX, 0}));
}

using News = DemandNews::News;

TEST(DemandNews, ARestIsToldAndSoIsItsEnd) {
    DemandNews news;
    EXPECT_EQ(news.Observe(kStart, true, false, true), News::None) << "before the first record";
    EXPECT_EQ(news.Observe(kStart, true, true, true), News::None);
    EXPECT_EQ(news.Observe(kStart + 1, true, true, false), News::Idle);
    EXPECT_EQ(news.Observe(kStart + 2, true, true, false), News::None) << "once";
    EXPECT_EQ(news.Observe(kStart + 3, true, true, true), News::WantedAgain);
    EXPECT_EQ(news.Observe(kStart + 4, true, true, true), News::None);
}

TEST(DemandNews, ACameraThatWentAwayDuringARestIsNoneThatFellSilent) {
    DemandNews news;
    EXPECT_EQ(news.Observe(kStart, true, true, false), News::Idle);
    for (int second = 1; second < 60; ++second) {
        EXPECT_EQ(news.Observe(kStart + second * kSecond, false, false, true), News::None);
    }
    EXPECT_EQ(news.Observe(kStart + 60 * kSecond, true, false, true), News::None);
    EXPECT_EQ(news.Observe(kStart + 61 * kSecond, true, false, true), News::None) << "its records are to come";
    EXPECT_EQ(news.Observe(kStart + 61 * kSecond + 1, true, true, false), News::Idle) << "the input ran on meanwhile";
}

TEST(DemandNews, ACameraThatComesBackWatchedIsToldAsWanted) {
    DemandNews news;
    EXPECT_EQ(news.Observe(kStart, true, true, false), News::Idle);
    EXPECT_EQ(news.Observe(kStart + 1, false, false, true), News::None);
    EXPECT_EQ(news.Observe(kStart + 2, true, true, true), News::WantedAgain);
}

TEST(DemandNews, ACameraThatStaysButFallsSilentIsToldAfterAMoment) {
    DemandNews news;
    EXPECT_EQ(news.Observe(kStart, true, true, false), News::Idle);
    EXPECT_EQ(news.Observe(kStart + kSecond, false, false, true), News::None) << "it is connected anew";
    EXPECT_EQ(news.Observe(kStart + 2 * kSecond, true, false, true), News::None);
    EXPECT_EQ(news.Observe(kStart + 2 * kSecond + 14'999'999, true, false, true), News::None);
    EXPECT_EQ(news.Observe(kStart + 2 * kSecond + 15'000'000, true, false, true), News::Unknown);
    EXPECT_EQ(news.Observe(kStart + 60 * kSecond, true, false, true), News::None) << "once";
    EXPECT_EQ(news.Observe(kStart + 61 * kSecond, true, true, true), News::None) << "pictures were sent all the time";
}

}  // namespace
}  // namespace ravlo::test
