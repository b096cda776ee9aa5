// What rvhost.exe says about a stream in numbers, for people and for programs.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <sstream>

#include "common/clock.h"
#include "common/test_card_stamp.h"
#include "support/camera.h"
#include "support/pipe_client.h"
#include "support/registry.h"
#include "tools/program.h"

namespace ravlo::test {
namespace {

using Json = nlohmann::json;

constexpr FrameGeometry kGeometry{320, 180, 30, 1};

class RvHostNumbers : public ::testing::Test {
protected:
    ChildProcess StartHost(const std::wstring& pipe, const Arguments& more) const {
        Arguments all{L"--dll", ProgramDirectory() + L"\\rvmediasource.dll", L"--geometry", L"320x180@30", L"--pipe",
                      pipe};
        all.insert(all.end(), more.begin(), more.end());
        return StartProgram(L"rvhost", all);
    }

    AnchorGuard m_anchor{CurrentUserSid()};
};

std::vector<Json> ParseLines(const std::string& output) {
    std::vector<Json> objects;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        objects.push_back(Json::parse(line));
    }
    return objects;
}

std::uint64_t HistogramSum(const Json& report) {
    std::uint64_t sum = 0;
    for (const Json& bar : report.at("lateness_histogram")) {
        sum += bar.at("count").get<std::uint64_t>();
    }
    return sum;
}

/// The number behind a label of the summary.
std::uint64_t NumberIn(const std::string& text, const std::string& label) {
    const std::size_t at = text.find(label);
    EXPECT_NE(at, std::string::npos) << label << " is not in " << text;
    return at == std::string::npos ? 0 : std::strtoull(text.c_str() + at + label.size(), nullptr, 10);
}

/// The sum of the second numbers of the lines that the histogram consists of.
std::uint64_t HistogramSum(const std::string& text) {
    std::uint64_t sum = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (const std::size_t unit = line.find(" ms "); line.starts_with("  ") && unit != std::string::npos) {
            sum += std::strtoull(line.c_str() + unit + 4, nullptr, 10);
        }
    }
    return sum;
}

TEST_F(RvHostNumbers, JsonComesOnceASecondAndTheLastObjectIsMarked) {
    ChildProcess host = StartHost(UniquePipeName(), {L"--seconds", L"2.7", L"--json"});
    const ProgramResult result = FinishProgram(host);
    ASSERT_EQ(result.code, 0) << result.output;
    const std::vector<Json> objects = ParseLines(result.output);
    ASSERT_GE(objects.size(), 2U) << result.output;
    EXPECT_LE(objects.size(), 5U) << result.output;
    std::uint64_t before = 0;
    for (const Json& object : objects) {
        EXPECT_EQ(object.at("final"), &object == &objects.back());
        EXPECT_EQ(object.at("geometry"),
                  Json::parse(R"({"width": 320, "height": 180, "rate_numerator": 30, "rate_denominator": 1})"));
        EXPECT_EQ(HistogramSum(object), object.at("samples"));
        EXPECT_GE(object.at("samples"), before);
        before = object.at("samples");
    }
    const Json& last = objects.back();
    EXPECT_GE(last.at("samples"), 10);
    EXPECT_EQ(last.at("pattern"), last.at("samples"));
    EXPECT_EQ(last.at("live"), 0);
    EXPECT_EQ(last.at("grid_errors"), 0);
    EXPECT_GE(last.at("seconds"), 2.7);
    EXPECT_GT(last.at("fps"), 1.0);
    EXPECT_TRUE(last.at("latency_ms").is_null());
    EXPECT_LE(last.at("lateness_ms").at("p50"), last.at("lateness_ms").at("p90"));
    EXPECT_LE(last.at("lateness_ms").at("p99"), last.at("lateness_ms").at("max"));
}

TEST_F(RvHostNumbers, TheHistogramInWordsAddsUpToTheSamples) {
    ChildProcess host = StartHost(UniquePipeName(), {L"--frames", L"30"});
    const ProgramResult result = FinishProgram(host);
    ASSERT_EQ(result.code, 0) << result.output;
    EXPECT_EQ(NumberIn(result.output, "samples:"), 30U);
    EXPECT_EQ(HistogramSum(result.output), 30U) << result.output;
    EXPECT_EQ(result.output.find("latency:"), std::string::npos) << "there was no stamp";
}

/// Sends stamped frames until the host has ended; the frames sent.
std::uint32_t SendStampedFrames(PipeClient& producer, ChildProcess& host) {
    std::uint32_t frame = 0;
    std::vector<std::uint8_t> picture(FrameBytes(kGeometry), 100);
    do {
        ++frame;
        EXPECT_TRUE(DrawTestCardStamp(picture, kGeometry, {frame, SteadyTicks()}));
        if (!producer.SendHeader(HeaderFor(kGeometry.width, kGeometry.height, frame)) ||
            !producer.SendBytes(picture.data(), picture.size())) {
            break;  // the host is gone
        }
    } while (!host.Wait(33));
    return frame;
}

TEST_F(RvHostNumbers, StampedFramesTellTheLatency) {
    const std::wstring pipe = UniquePipeName();
    ChildProcess host = StartHost(pipe, {L"--seconds", L"2.5", L"--json"});
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(pipe, 20000)) << host.Output();
    const std::uint32_t sent = SendStampedFrames(producer, host);
    const ProgramResult result = FinishProgram(host);
    ASSERT_EQ(result.code, 0) << result.output;
    const std::vector<Json> objects = ParseLines(result.output);
    ASSERT_FALSE(objects.empty());
    const Json& last = objects.back();
    EXPECT_GE(last.at("stamped"), 5) << result.output;
    EXPECT_EQ(last.at("stamped"), last.at("live"));
    EXPECT_LE(last.at("stamped").get<std::uint64_t>() - last.at("repeated").get<std::uint64_t>() +
                  last.at("skipped").get<std::uint64_t>(),
              sent);
    ASSERT_TRUE(last.at("latency_ms").is_object()) << result.output;
    EXPECT_GT(last.at("latency_ms").at("p50"), 0.0);
    EXPECT_LT(last.at("latency_ms").at("p50"), 2000.0);
    EXPECT_LE(last.at("latency_ms").at("p50"), last.at("latency_ms").at("p99"));
    EXPECT_LE(last.at("latency_ms").at("p99"), last.at("latency_ms").at("max"));
}

}  // namespace
}  // namespace ravlo::test
