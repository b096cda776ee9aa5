// What is counted and measured in a run, and how it is shown to people and to programs.
#include "rvfeeder/feed_statistics.h"
#include "rvfeeder/feed_status.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace ravlo::test {
namespace {

constexpr std::int64_t kStart = 1'000'000'000;
constexpr std::int64_t kSecond = 10'000'000;
constexpr std::int64_t kMs = 10'000;

TEST(FeedStatistics, TheRateIsThatOfTheLastTwoSeconds) {
    FeedStatistics statistics(kStart);
    EXPECT_DOUBLE_EQ(statistics.Status(kStart).fps, 0);
    std::int64_t now = kStart;
    for (int i = 0; i < 250; ++i) {  // ten seconds at 25 a second
        now += 40 * kMs;
        statistics.Sent(now, kMs);
    }
    EXPECT_DOUBLE_EQ(statistics.Status(now).fps, 25);
    EXPECT_DOUBLE_EQ(statistics.Status(now + kSecond).fps, 12.5) << "half of the window holds none";
    EXPECT_DOUBLE_EQ(statistics.Status(now + 2 * kSecond).fps, 0);
}

TEST(FeedStatistics, TheFirstFramesDoNotMakeTheRateJump) {
    FeedStatistics statistics(kStart);
    statistics.Sent(kStart + kSecond, kMs);
    EXPECT_DOUBLE_EQ(statistics.Status(kStart + kSecond).fps, 4) << "one frame, counted over a quarter of a second";
}

TEST(FeedStatistics, WriteTimesAreThoseOfTheLastFiveSecondsAndTheLongestIsOfTheWholeRun) {
    FeedStatistics statistics(kStart);
    statistics.Sent(kStart, 900 * kMs);
    for (int i = 1; i <= 100; ++i) {
        statistics.Sent(kStart + 6 * kSecond, i * kMs);
    }
    const FeedStatus status = statistics.Status(kStart + 6 * kSecond);
    EXPECT_EQ(status.sent, 101U);
    EXPECT_DOUBLE_EQ(status.writeMsP50, 50);
    EXPECT_DOUBLE_EQ(status.writeMsP99, 99);
    EXPECT_DOUBLE_EQ(status.writeMsMax, 900);
    EXPECT_DOUBLE_EQ(statistics.Status(kStart + 12 * kSecond).writeMsP50, 0) << "nothing was written of late";
}

TEST(FeedStatistics, EveryKindOfLossHasItsOwnCount) {
    FeedStatistics statistics(kStart);
    statistics.DroppedLate();
    statistics.DroppedUnseen();
    statistics.DroppedUnseen();
    for (int i = 0; i < 3; ++i) {
        statistics.Drained();
    }
    const FeedStatus status = statistics.Status(kStart + 15 * kSecond / 10);
    EXPECT_EQ(status.droppedLate, 1U);
    EXPECT_EQ(status.droppedUnseen, 2U);
    EXPECT_EQ(status.drained, 3U);
    EXPECT_DOUBLE_EQ(status.seconds, 1.5);
}

TEST(FeedStatistics, RequestsASecondComeFromTheRecordsOfTheLastThreeSeconds) {
    FeedStatistics statistics(kStart);
    for (int i = 0; i <= 20; ++i) {  // ten seconds, 15 requests each half
        const auto count = static_cast<std::uint64_t>(i);
        const CameraDemand record{count + 1, 10, 15 * count};
        statistics.Demand(kStart + i * kSecond / 2, record);
        statistics.Demand(kStart + i * kSecond / 2 + kMs, record);  // seen twice, counted once
    }
    const auto demand = statistics.Status(kStart + 10 * kSecond).demand;
    ASSERT_TRUE(demand);
    EXPECT_EQ(demand->record, (CameraDemand{21, 10, 300}));
    EXPECT_DOUBLE_EQ(demand->requestsPerSecond, 30);
}

TEST(FeedStatistics, AnotherCameraBeginsTheRequestsAnew) {
    FeedStatistics statistics(kStart);
    statistics.Demand(kStart, CameraDemand{50, 10, 1000});
    statistics.Demand(kStart + kSecond, CameraDemand{1, 3'600'000, 0});
    EXPECT_DOUBLE_EQ(statistics.Status(kStart + kSecond).demand->requestsPerSecond, 0);
    statistics.Demand(kStart + 2 * kSecond, std::nullopt);
    EXPECT_FALSE(statistics.Status(kStart + 2 * kSecond).demand);
}

FeedStatus Sample() {
    FeedStatus status;
    status.state = FeedState::Live;
    status.seconds = 12.3456;
    status.connected = true;
    status.sent = 360;
    status.droppedLate = 1;
    status.droppedUnseen = 2;
    status.drained = 3;
    status.fps = 29.97;
    status.writeMsP50 = 0.8;
    status.writeMsP99 = 3.2;
    status.writeMsMax = 17;
    status.reconnects = 4;
    status.clockRestarts = 5;
    status.commandStarts = 6;
    status.demand = DemandStatus{{77, 12, 340}, 30.04};
    status.input = FrameGeometry{1280, 720, 30000, 1001};
    return status;
}

TEST(FeedStatus, TheStatusLineSaysStateRateLossesWriteTimesAndDemand) {
    FeedStatus status = Sample();
    EXPECT_EQ(StatusLine(status),
              "live | 30.0 fps | sent 360, dropped 6 | write p50 0.8 p99 3.2 ms | demand 30.0/s, camera idle 12 ms");
    status.state = FeedState::Idle;
    status.demand->record.idleMs = 61'500;
    status.demand->requestsPerSecond = 0;
    EXPECT_EQ(StatusLine(status),
              "idle | 30.0 fps | sent 360, dropped 6 | write p50 0.8 p99 3.2 ms | demand 0.0/s, camera idle 61 s");
    status.demand->record.idleMs = 3'600'000;
    EXPECT_TRUE(StatusLine(status).ends_with(" | camera idle for an hour or more")) << StatusLine(status);
    status.demand->record.requests = 0;
    EXPECT_TRUE(StatusLine(status).ends_with(" | no demand yet")) << StatusLine(status);
    status.demand.reset();
    status.state = FeedState::AccessDenied;
    EXPECT_TRUE(StatusLine(status).starts_with("access denied | ")) << StatusLine(status);
    EXPECT_TRUE(StatusLine(status).ends_with(" | demand unknown")) << StatusLine(status);
}

TEST(FeedStatus, TheSummaryNamesEveryCount) {
    EXPECT_EQ(SummaryLine(Sample()),
              "360 frames sent, 6 dropped (1 late, 2 while no camera took them, 3 while nobody watched), 4 reconnects, "
              "5 clock restarts, longest write 17.0 ms");
}

TEST(FeedStatus, JsonHoldsEveryKeyAndNumbersAreNumbers) {
    EXPECT_EQ(StatusJson(Sample(), "\\\\.\\pipe\\Ravlo", std::nullopt),
              R"({"state":"live","seconds":12.346,"pipe":"\\\\.\\pipe\\Ravlo","connected":true,)"
              R"("input":{"width":1280,"height":720,"rate_numerator":30000,"rate_denominator":1001},)"
              R"("sent":360,"dropped_late":1,"dropped_unseen":2,"drained":3,"fps":29.97,"write_ms_p50":0.8,)"
              R"("write_ms_p99":3.2,"write_ms_max":17.0,"demand":{"known":true,"idle_ms":12,"requests":340,)"
              R"("sequence":77,"requests_per_second":30.04},"reconnects":4,"clock_restarts":5,"command_starts":6,)"
              R"("final":false})"
              "\n");
}

TEST(FeedStatus, WhatIsNotKnownIsNullInJsonAndTheEndHasAReason) {
    const auto json = nlohmann::json::parse(StatusJson({}, "p", FeedEnd{"interrupted \xFF", 130}));
    EXPECT_EQ(json["state"], "opening");
    EXPECT_TRUE(json["input"].is_null());
    EXPECT_EQ(json["demand"]["known"], false);
    for (const char* key : {"idle_ms", "requests", "sequence", "requests_per_second"}) {
        EXPECT_TRUE(json["demand"].contains(key) && json["demand"][key].is_null()) << key;
    }
    EXPECT_EQ(json["final"], true);
    EXPECT_EQ(json["reason"], "interrupted \xEF\xBF\xBD") << "a byte that is no UTF-8 must not stop the report";
    EXPECT_EQ(json["exit_code"], 130);
}

TEST(FeedStatus, EveryStateHasAWord) {
    const struct {
        FeedState state;
        const char* word;
    } cases[] = {{FeedState::Opening, "opening"},
                 {FeedState::Waiting, "waiting"},
                 {FeedState::AccessDenied, "access_denied"},
                 {FeedState::UntrustedOwner, "untrusted_owner"},
                 {FeedState::Live, "live"},
                 {FeedState::Idle, "idle"},
                 {FeedState::Ended, "ended"}};
    for (const auto& expected : cases) {
        EXPECT_STREQ(FeedStateWord(expected.state), expected.word);
    }
}

}  // namespace
}  // namespace ravlo::test
