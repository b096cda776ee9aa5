// What rvfeeder.exe reports on standard output, and how it ends.
#include "tools/feeder_stage.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <set>
#include <sstream>

#include "common/interrupt.h"
#include "common/test_card_stamp.h"
#include "common/wide_text.h"

namespace ravlo::test {
namespace {

using Json = nlohmann::json;

class RvFeederReport : public RvFeeder {};

/// The lines of the output that are JSON objects. The messages, which go to the same file here, are none.
std::vector<Json> Reports(const std::string& output) {
    std::vector<Json> reports;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("rvfeeder: ")) {
            reports.push_back(Json::parse(line));
        }
    }
    return reports;
}

TEST_F(RvFeederReport, EverySecondBringsAnObjectAndTheLastOneIsFinal) {
    FrameTaker camera;
    Gate gate(camera.Name(), Gate::kNever);
    gate.Watch();
    const ProgramResult result = RunProgram(L"rvfeeder", {L"--test-card", L"--size", L"320x180", L"--rate", L"20",
                                                          L"--json", L"--pipe", camera.Name(), L"--seconds", L"3.3"});
    EXPECT_EQ(result.code, 0) << result.output;
    const std::vector<Json> reports = Reports(result.output);
    ASSERT_GE(reports.size(), 3U) << result.output;
    ASSERT_LE(reports.size(), 4U) << result.output;
    const std::set<std::string> keys{"state",          "seconds",        "pipe",         "connected", "input",
                                     "sent",           "dropped_late",   "drained",      "fps",       "dropped_unseen",
                                     "write_ms_p50",   "write_ms_p99",   "write_ms_max", "demand",    "reconnects",
                                     "clock_restarts", "command_starts", "final"};
    for (std::size_t k = 0; k + 1 < reports.size(); ++k) {
        std::set<std::string> found;
        for (const auto& [key, value] : reports[k].items()) {
            found.insert(key);
        }
        EXPECT_EQ(found, keys);
        EXPECT_EQ(reports[k]["final"], false);
        EXPECT_EQ(reports[k]["state"], "live");
        EXPECT_EQ(reports[k]["connected"], true);
    }
    const Json& middle = reports[1];
    EXPECT_EQ(middle["input"], Json::parse(R"({"width":320,"height":180,"rate_numerator":20,"rate_denominator":1})"));
    EXPECT_GT(middle["fps"].get<double>(), 10);
    EXPECT_LT(middle["fps"].get<double>(), 24);
    EXPECT_EQ(middle["demand"]["known"], true);
    EXPECT_GT(middle["demand"]["requests_per_second"].get<double>(), 5);
    EXPECT_EQ(middle["demand"]["idle_ms"], 12);
    const Json& last = reports.back();
    EXPECT_EQ(last["final"], true);
    EXPECT_EQ(last["state"], "ended");
    EXPECT_EQ(last["reason"], "the time that --seconds allows is over");
    EXPECT_EQ(last["exit_code"], 0);
    EXPECT_EQ(last["sent"], camera.Count());
}

TEST_F(RvFeederReport, TheTestCardCarriesItsNumberAndTheTimeOfSending) {
    FrameTaker camera;
    const ProgramResult result =
        RunProgram(L"rvfeeder", {L"--test-card", L"--size", L"640x360", L"--pipe", camera.Name(), L"--frames", L"3"});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_NE(result.output.find("rvfeeder: all frames that --frames asks for have been sent\n"), std::string::npos);
    ASSERT_TRUE(camera.WaitForCount(3));
    std::uint32_t number = 0;
    for (const ReceivedFrame& frame : camera.Frames()) {
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(frame.payload.data());
        const auto stamp = ReadTestCardStamp({bytes, frame.payload.size()}, {640, 360, 30, 1});
        ASSERT_TRUE(stamp);
        EXPECT_GT(stamp->frame, number);
        number = stamp->frame;
        EXPECT_LE(stamp->time, frame.arrived);
        EXPECT_GT(stamp->time, frame.arrived - 50'000'000);
    }
    EXPECT_EQ(camera.Count(), 3U);
}

TEST_F(RvFeederReport, TimeWithoutACameraIsNoSuccess) {
    const ProgramResult result =
        RunProgram(L"rvfeeder", {L"--test-card", L"--pipe", UniquePipeName(), L"--seconds", L"0.3", L"--json"});
    EXPECT_EQ(result.code, 5);
    EXPECT_NE(result.output.find("rvfeeder: giving up: no camera took frames for the time that --seconds allows\n"),
              std::string::npos)
        << result.output;
    EXPECT_EQ(Reports(result.output).back()["exit_code"], 5);
}

/// Runs rvfeeder in a console of its own until it says what the first argument is, and raises Ctrl+C there.
RAVLO_ROLE(InterruptFeeder) {
    FreeConsole();
    if (!AllocConsole()) {
        return 3;
    }
    const Interrupt interrupt;  // this process must live on
    ChildProcess feeder = StartProgram(L"rvfeeder", Arguments(arguments.begin() + 1, arguments.end()));
    EXPECT_TRUE(feeder.WaitForOutput(ToUtf8(arguments.at(0)))) << feeder.Output();
    const std::int64_t raised = SteadyTicks();
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << GetLastError();
    EXPECT_EQ(feeder.Wait(), 130U) << feeder.Output();
    EXPECT_LT(SteadyTicks() - raised, 15'000'000) << "a second, and what a busy machine takes to notice";
    const std::string output = feeder.Output();
    EXPECT_NE(output.find("rvfeeder: interrupted\n"), std::string::npos) << output;
    EXPECT_NE(output.find(" frames sent, "), std::string::npos) << output;
    const std::vector<Json> reports = Reports(output);
    EXPECT_TRUE(!reports.empty() && reports.back()["final"] == true && reports.back()["exit_code"] == 130) << output;
    return 0;
}

TEST_F(RvFeederReport, CtrlCEndsItWhileThereIsNoCamera) {
    ChildProcess role = StartRole("InterruptFeeder",
                                  {L"waiting for the camera", L"--test-card", L"--json", L"--pipe", UniquePipeName()});
    EXPECT_EQ(role.Wait(), 0U) << role.Output();
}

TEST_F(RvFeederReport, CtrlCEndsItWhileItsInputSaysNothing) {
    FrameTaker camera;
    FilmPipe film;
    ChildProcess role =
        StartRole("InterruptFeeder", {L"connected to ", film.Name(), L"--json", L"--pipe", camera.Name()});
    ASSERT_TRUE(film.WaitForReader());
    ASSERT_TRUE(film.Write("YUV4MPEG2 W4 H2 F20:1\nFRAME\nabc"));  // and no more: the read stays pending
    EXPECT_EQ(role.Wait(), 0U) << role.Output();
}

TEST_F(RvFeederReport, CtrlCEndsItWhileAWriteIsPending) {
    FrameServer server;
    ChildProcess role = StartRole("InterruptFeeder", {L"connected to ", L"--test-card", L"--json", L"--pipe",
                                                      server.Name(), L"--write-timeout-ms", L"600"});
    ASSERT_TRUE(server.WaitForClient());  // and reads nothing: a picture is longer than the pipe's buffer
    EXPECT_EQ(role.Wait(), 0U) << role.Output();
}

TEST_F(RvFeederReport, CtrlCEndsTheCommandToo) {
    FrameTaker camera;
    ChildProcess role = StartRole(
        "InterruptFeeder", {L"the command is started", L"--on-demand", L"more", L"--json", L"--pipe", camera.Name()});
    EXPECT_EQ(role.Wait(), 0U) << role.Output();
}

}  // namespace
}  // namespace ravlo::test
