// What follows from the connections that were made and lost: when to try again, and when a command runs.
#include "rvfeeder/command_schedule.h"
#include "rvfeeder/connection_history.h"

#include <gtest/gtest.h>

namespace ravlo::test {
namespace {

using Action = CommandSchedule::Action;
constexpr std::int64_t kStart = 1'000'000'000;
constexpr std::int64_t kSecond = 10'000'000;
constexpr std::int64_t kMs = 10'000;

/// A connection that is lost `life` later; whether a hint is due.
bool LoseAfter(ConnectionHistory& history, std::int64_t begin, std::int64_t life, int frames) {
    history.Connected(begin);
    for (int i = 0; i < frames; ++i) {
        history.FrameTaken();
    }
    return history.Lost(begin + life);
}

TEST(ConnectionHistory, ThreeQuickLossesInARowBringOneHintAndSlowerTries) {
    ConnectionHistory history;
    EXPECT_EQ(history.RetryInterval(), 50 * kMs);
    EXPECT_FALSE(LoseAfter(history, kStart, kSecond / 10, 2));
    EXPECT_FALSE(LoseAfter(history, kStart + kSecond, kSecond, 30));
    EXPECT_FALSE(history.IsUnwelcome());
    EXPECT_TRUE(LoseAfter(history, kStart + 3 * kSecond, 0, 0));
    EXPECT_TRUE(history.IsUnwelcome());
    EXPECT_EQ(history.RetryInterval(), kSecond);
    EXPECT_FALSE(LoseAfter(history, kStart + 4 * kSecond, 0, 0)) << "once";
    EXPECT_EQ(history.Connections(), 4U);
}

TEST(ConnectionHistory, AConnectionThatLastsClearsTheCount) {
    ConnectionHistory history;
    LoseAfter(history, kStart, 0, 0);
    LoseAfter(history, kStart + kSecond, 0, 0);
    EXPECT_FALSE(LoseAfter(history, kStart + 2 * kSecond, kSecond + 1, 30));
    EXPECT_FALSE(LoseAfter(history, kStart + 5 * kSecond, 0, 0));
    EXPECT_FALSE(LoseAfter(history, kStart + 6 * kSecond, 0, 0));
    EXPECT_TRUE(LoseAfter(history, kStart + 7 * kSecond, 0, 0));
}

TEST(ConnectionHistory, AtALowRateALossAfterTheFirstFrameIsQuickHoweverLongItTook) {
    ConnectionHistory history;
    EXPECT_FALSE(LoseAfter(history, kStart, 10 * kSecond, 1));
    EXPECT_FALSE(LoseAfter(history, kStart + 11 * kSecond, 10 * kSecond, 1));
    EXPECT_TRUE(LoseAfter(history, kStart + 22 * kSecond, 10 * kSecond, 1));
}

TEST(ConnectionHistory, ALossAfterARestSaysNothingAboutThePictures) {
    ConnectionHistory history;
    for (int i = 0; i < 5; ++i) {
        history.Connected(kStart + i * kSecond);
        history.FrameTaken();
        history.Resting();
        EXPECT_FALSE(history.Lost(kStart + i * kSecond + kMs));
    }
    EXPECT_FALSE(history.IsUnwelcome());
}

TEST(CommandSchedule, RunsWhileSomebodyWatches) {
    CommandSchedule schedule;
    EXPECT_EQ(schedule.Next(kStart, false, false, true), Action::None) << "no camera";
    EXPECT_EQ(schedule.Next(kStart, true, true, false), Action::None) << "nobody watches";
    EXPECT_EQ(schedule.Next(kStart + kSecond, true, true, true), Action::Start);
    schedule.Started();
    EXPECT_EQ(schedule.Next(kStart + 2 * kSecond, true, true, true), Action::None);
    EXPECT_EQ(schedule.Next(kStart + 3 * kSecond, true, true, false), Action::End);
    EXPECT_FALSE(schedule.IsRunning());
    EXPECT_EQ(schedule.Next(kStart + 3 * kSecond + kMs, true, true, true), Action::Start)
        << "new demand waits for nothing";
}

TEST(CommandSchedule, ACameraThatSaysNothingCountsAsWatchedAfterAMoment) {
    CommandSchedule schedule;
    EXPECT_EQ(schedule.Next(kStart, true, false, true), Action::None);
    EXPECT_EQ(schedule.Next(kStart + 1199 * kMs, true, false, true), Action::None);
    EXPECT_EQ(schedule.Next(kStart + 1200 * kMs, true, false, true), Action::Start);
}

TEST(CommandSchedule, AGapInTheRecordsIsNotTakenForSomebodyWhoWatches) {
    CommandSchedule schedule;
    EXPECT_EQ(schedule.Next(kStart, true, true, false), Action::None);
    EXPECT_EQ(schedule.Next(kStart + 10 * kSecond, true, true, false), Action::None);
    EXPECT_EQ(schedule.Next(kStart + 11 * kSecond, true, false, true), Action::None);
    EXPECT_EQ(schedule.Next(kStart + 11200 * kMs, true, false, true), Action::Start);
}

TEST(CommandSchedule, ACameraThatCameBackMayTakeAMomentToSayThatNobodyWatches) {
    CommandSchedule schedule;
    EXPECT_EQ(schedule.Next(kStart, true, true, false), Action::None);
    EXPECT_EQ(schedule.Next(kStart + kMs, false, false, true), Action::None) << "it has gone";
    EXPECT_EQ(schedule.Next(kStart + kSecond, true, false, true), Action::None);
    EXPECT_EQ(schedule.Next(kStart + 2199 * kMs, true, false, true), Action::None) << "but is not taken to be watched";
    EXPECT_EQ(schedule.Next(kStart + 2200 * kMs, true, false, true), Action::Start);
}

TEST(CommandSchedule, ALeaseThatLapsesDoesNotEndTheCommand) {
    CommandSchedule schedule;
    EXPECT_EQ(schedule.Next(kStart, true, true, true), Action::Start);
    schedule.Started();
    EXPECT_EQ(schedule.Next(kStart + kMs, true, false, true), Action::None);
}

TEST(CommandSchedule, AShortLossOfTheCameraDoesNotEndTheCommandAndALongOneDoes) {
    CommandSchedule schedule;
    EXPECT_EQ(schedule.Next(kStart, true, true, true), Action::Start);
    schedule.Started();
    EXPECT_EQ(schedule.Next(kStart + 2 * kSecond, false, false, true), Action::None);
    EXPECT_EQ(schedule.Next(kStart + 2 * kSecond + 1, false, false, true), Action::End);
}

TEST(CommandSchedule, ACommandThatEndsByItselfIsStartedAgainAfterASecond) {
    CommandSchedule schedule;
    EXPECT_EQ(schedule.Next(kStart, true, true, true), Action::Start);
    schedule.Started();
    EXPECT_EQ(schedule.EndedByItself(kStart, true), kSecond);
    EXPECT_EQ(schedule.Next(kStart + kSecond - 1, true, true, true), Action::None);
    EXPECT_EQ(schedule.Next(kStart + kSecond, true, true, true), Action::Start);
}

TEST(CommandSchedule, ACommandThatNeverBringsAPictureIsStartedLessAndLessOften) {
    CommandSchedule schedule;
    std::int64_t now = kStart;
    for (const std::int64_t seconds : {1, 2, 4, 8, 8}) {
        EXPECT_EQ(schedule.Next(now, true, true, true), Action::Start);
        schedule.Started();
        EXPECT_EQ(schedule.EndedByItself(now, false), seconds * kSecond);
        now += seconds * kSecond;
    }
    EXPECT_EQ(schedule.Next(now, true, true, true), Action::Start);
    schedule.Started();
    EXPECT_EQ(schedule.EndedByItself(now, true), kSecond) << "pictures came";
    EXPECT_EQ(schedule.EndedByItself(now, false), kSecond) << "and the count begins again";
}

}  // namespace
}  // namespace ravlo::test
