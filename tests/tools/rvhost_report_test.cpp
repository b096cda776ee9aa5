#include "rvhost/host_report.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>

namespace ravlo::test {
namespace {

using Json = nlohmann::json;

constexpr std::int64_t kMs = 10'000;

HostReport SomeReport() {
    HostReport report;
    report.geometry = {1280, 720, 30000, 1001};
    report.elapsed = 10'012 * kMs;
    report.samples = 300;
    report.live = 290;
    report.pattern = 10;
    report.gridErrors = 1;
    report.skippedPeriods = 2;
    report.recentRate = 29.98765;
    report.meanRate = 29.5;
    report.lateness = {5'000, 12'000, 40'100, 9'000'000};
    report.latenessBuckets = {{1'000, 0}, {2'000, 200}, {4'000, 98}, {8'000, 1}, {kNoBound, 1}};
    return report;
}

TEST(HostReportText, IsALineAFactAndABarABucket) {
    EXPECT_EQ(ReportText(SomeReport()),
              "geometry:         1280x720 at 30000/1001\n"
              "samples:          300\n"
              "live:             290\n"
              "pattern:          10\n"
              "grid errors:      1\n"
              "skipped periods:  2\n"
              "dropped pictures: 0\n"
              "rate:             29.50 fps\n"
              "lateness:         p50 0.5 ms, p90 1.2 ms, p99 4.0 ms, max 900.0 ms\n"
              "  <    0.1 ms        0\n"
              "  <    0.2 ms      200  ########################################\n"
              "  <    0.4 ms       98  ###################\n"
              "  <    0.8 ms        1  #\n"
              "  >=   0.8 ms        1  #\n");
}

TEST(HostReportText, EmptyBarsAtTheEndAreLeftOut) {
    HostReport report = SomeReport();
    report.latenessBuckets = {{1'000, 3}, {2'000, 0}, {kNoBound, 0}};
    const std::string text = ReportText(report);
    EXPECT_TRUE(text.ends_with("ms\n  <    0.1 ms        3  ########################################\n")) << text;
    report.latenessBuckets = {{1'000, 0}, {kNoBound, 0}};
    EXPECT_TRUE(ReportText(report).ends_with("max 900.0 ms\n"));
}

TEST(HostReportText, StampsAndTheVideoFileAppearWhenThereAreAny) {
    HostReport report = SomeReport();
    report.y4m = Y4mReport{298, 2};
    report.stamps = {280, 3, 4, 277, {150'000, 210'000, 300'000, 512'300}};
    std::string text = ReportText(report);
    EXPECT_NE(text.find("\nY4M frames:       298 (dropped 2)\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\nlatency:          p50 15.0 ms, p90 21.0 ms, p99 30.0 ms, max 51.2 ms\n"
                        "stamped samples:  280 (repeated frames 3, skipped frames 4)\n"),
              std::string::npos)
        << text;
    report.stamps.timed = 0;
    text = ReportText(report);
    EXPECT_NE(text.find("\nlatency:          unknown: "), std::string::npos) << text;
}

TEST(HostReportText, TheStatusIsOneLine) {
    HostReport report = SomeReport();
    EXPECT_EQ(StatusText(report), "10 s  samples 300  live 290  pattern 10  30.0 fps  lateness p99 4.0 ms");
    report.stamps = {280, 3, 4, 277, {150'000, 210'000, 300'000, 512'300}};
    EXPECT_EQ(StatusText(report),
              "10 s  samples 300  live 290  pattern 10  30.0 fps  lateness p99 4.0 ms  latency p50 15.0 ms");
}

TEST(HostReportJson, IsOneLineWithEveryNumber) {
    HostReport report = SomeReport();
    report.droppedPictures = 6;
    report.y4m = Y4mReport{298, 2};
    report.stamps = {280, 3, 4, 277, {150'000, 210'000, 300'000, 512'300}};
    const std::string line = ReportJson(report, true);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(
        Json::parse(line),
        Json::parse(
            R"({"final": true, "seconds": 10.012, "geometry": {"width": 1280, "height": 720, "rate_numerator": 30000,
            "rate_denominator": 1001}, "samples": 300, "live": 290, "pattern": 10, "grid_errors": 1,
            "skipped_periods": 2, "fps": 29.5, "lateness_ms": {"p50": 0.5, "p90": 1.2, "p99": 4.01, "max": 900.0},
            "lateness_histogram": [{"below_ms": 0.1, "count": 0}, {"below_ms": 0.2, "count": 200},
            {"below_ms": 0.4, "count": 98}, {"below_ms": 0.8, "count": 1}, {"below_ms": null, "count": 1}],
            "latency_ms": {"p50": 15.0, "p90": 21.0, "p99": 30.0, "max": 51.23}, "stamped": 280, "repeated": 3,
            "skipped": 4, "dropped_pictures": 6, "y4m": {"frames": 298, "dropped": 2}})"));
}

TEST(HostReportJson, WhatIsUnknownIsNullAndARunThatGoesOnShowsTheRecentRate) {
    const Json json = Json::parse(ReportJson(SomeReport(), false));
    EXPECT_EQ(json.at("final"), false);
    EXPECT_EQ(json.at("fps"), 29.99);
    EXPECT_TRUE(json.at("latency_ms").is_null());
    EXPECT_TRUE(json.at("y4m").is_null());
    EXPECT_EQ(json.at("stamped"), 0);
}

TEST(HostReportJson, KeysStandInTheOrderInWhichPeopleReadThem) {
    EXPECT_TRUE(
        ReportJson(SomeReport(), false).starts_with(R"({"final":false,"seconds":10.012,"geometry":{"width":1280,)"));
}

}  // namespace
}  // namespace ravlo::test
