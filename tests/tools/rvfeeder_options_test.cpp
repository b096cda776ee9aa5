#include "rvfeeder/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ravlo::test {
namespace {

struct Parsed {
    std::optional<ExitCode> ended;  ///< set when the parser answered the user itself
    std::optional<std::string> wrong;
    FeederOptions options;
};

Parsed Parse(std::vector<std::string> arguments) {
    CommandLine line("rvfeeder", "Summary.", "");
    FeederOptionSet set;
    set.Declare(line.Options());
    arguments.insert(arguments.begin(), "rvfeeder");
    Parsed parsed;
    parsed.ended = line.Parse(arguments);
    if (!parsed.ended) {
        parsed.wrong = set.Interpret(parsed.options);
    }
    return parsed;
}

/// The sentence about what is wrong; empty when nothing is.
std::string WrongOf(const std::vector<std::string>& arguments) {
    const Parsed parsed = Parse(arguments);
    EXPECT_FALSE(parsed.ended);
    return parsed.wrong.value_or("");
}

TEST(FeederOptions, WhatIsNotGivenHasItsDefault) {
    const Parsed parsed = Parse({"film.y4m"});
    ASSERT_FALSE(parsed.ended || parsed.wrong);
    EXPECT_EQ(parsed.options.input.path, "film.y4m");
    EXPECT_EQ(parsed.options.pipe, "\\\\.\\pipe\\Ravlo");
    EXPECT_EQ(parsed.options.command, "");
    EXPECT_EQ(parsed.options.writeTimeoutMs, 500U);
    EXPECT_EQ(parsed.options.idleAfterMs, 2000U);
    EXPECT_EQ(parsed.options.absenceLimit, std::nullopt);
    EXPECT_EQ(parsed.options.timeLimit, std::nullopt);
    EXPECT_EQ(parsed.options.frameLimit, std::nullopt);
    EXPECT_FALSE(parsed.options.always);
    EXPECT_FALSE(parsed.options.json);
}

TEST(FeederOptions, EveryOptionArrives) {
    const Parsed parsed =
        Parse({"film.y4m", "--pipe", "\\\\.\\pipe\\Ravlo.7", "--timeout", "1.5", "--write-timeout-ms", "600",
               "--idle-after", "0.5", "--json", "--seconds", "0.1", "--frames", "1000000000000"});
    ASSERT_FALSE(parsed.ended || parsed.wrong);
    EXPECT_EQ(parsed.options.pipe, "\\\\.\\pipe\\Ravlo.7");
    EXPECT_EQ(parsed.options.absenceLimit, 15'000'000);
    EXPECT_EQ(parsed.options.writeTimeoutMs, 600U);
    EXPECT_EQ(parsed.options.idleAfterMs, 500U);
    EXPECT_TRUE(parsed.options.json);
    EXPECT_EQ(parsed.options.timeLimit, 1'000'000);
    EXPECT_EQ(parsed.options.frameLimit, 1'000'000'000'000U);
    EXPECT_TRUE(Parse({"film.y4m", "--always"}).options.always);
}

TEST(FeederOptions, ACommandStandsInThePlaceOfAnInput) {
    const Parsed parsed = Parse({"--on-demand", "decoder \"a b\" -", "--expect", "1280x720"});
    ASSERT_FALSE(parsed.ended || parsed.wrong) << parsed.wrong.value_or("");
    EXPECT_EQ(parsed.options.command, "decoder \"a b\" -");
    EXPECT_EQ(parsed.options.input.expect, (NumberPair{1280, 720}));
}

TEST(FeederOptions, ContradictionsAreAnsweredWithASentence) {
    EXPECT_EQ(WrongOf({"a", "--always", "--idle-after", "2"}),
              "--always and --idle-after contradict each other: with --always the camera is never taken to be idle");
    EXPECT_EQ(WrongOf({"--always", "--on-demand", "x"}),
              "--always and --on-demand contradict each other: with --always, pipe the command's output into rvfeeder "
              "-");
    EXPECT_EQ(WrongOf({"a.y4m", "--on-demand", "x"}),
              "--on-demand takes Y4M pictures from its command; leave out \"a.y4m\"");
    EXPECT_EQ(WrongOf({"--test-card", "--on-demand", "x"}),
              "--on-demand takes Y4M pictures from its command; leave out --test-card");
    EXPECT_EQ(WrongOf({"--loop", "--on-demand", "x"}),
              "--on-demand takes Y4M pictures from its command; leave out --loop");
    EXPECT_EQ(WrongOf({"a", "--pipe", "\\\\.\\pipe\\Other"}),
              "\"\\\\.\\pipe\\Other\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number");
}

TEST(FeederOptions, NumbersOutOfRangeAreAnsweredByTheParser) {
    const std::vector<std::vector<std::string>> cases{
        {"a", "--timeout", "0"},
        {"a", "--timeout", "soon"},
        {"a", "--write-timeout-ms", "601"},
        {"a", "--write-timeout-ms", "0"},
        {"a", "--idle-after", "0.4"},
        {"a", "--idle-after", "3001"},
        {"a", "--seconds", "0"},
        {"a", "--frames", "0"},
        {"a", "--frames", "1.5"},
        {"a", "--frames", "-1"},
        {"a", "--frames", "1e3"},
        {"a", "--idle-after"},
        {"a", "b"},
        {"a", "--pipe"},
        {"a", "--idel-after", "2"},
        {"a", "--seconds", "1000001"},
        {"a", "--timeout", "infinity"},
        {"a", "--timeout", "nan"},
    };
    for (const auto& arguments : cases) {
        ::testing::internal::CaptureStderr();
        const Parsed parsed = Parse(arguments);
        const std::string said = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(parsed.ended, ExitCode::Usage) << arguments.back();
        EXPECT_FALSE(said.empty()) << arguments.back();
    }
}

}  // namespace
}  // namespace ravlo::test
