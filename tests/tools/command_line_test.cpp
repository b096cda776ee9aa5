#include "common/command_line.h"
#include "common/parse_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ravlo/version.h"

namespace ravlo::test {
namespace {

TEST(ParseText, NumbersAreDecimalDigitsAndNothingElse) {
    EXPECT_EQ(ParseNumber("0"), 0U);
    EXPECT_EQ(ParseNumber("999999999"), 999'999'999U);
    for (const char* text : {"", "1000000000", "-1", "+1", " 1", "1 ", "0x10", "1.5"}) {
        EXPECT_FALSE(ParseNumber(text)) << text;
    }
}

TEST(ParseText, GeometriesTakeAFractionOrAWholeRate) {
    EXPECT_EQ(ParseGeometry("1280x720@30/1"), (FrameGeometry{1280, 720, 30, 1}));
    EXPECT_EQ(ParseGeometry("1280x720@30"), (FrameGeometry{1280, 720, 30, 1}));
    EXPECT_EQ(ParseGeometry("1920x1080@60000/1001"), (FrameGeometry{1920, 1080, 60000, 1001}));
    EXPECT_EQ(GeometryText({1920, 1080, 60000, 1001}), "1920x1080@60000/1001");
}

TEST(ParseText, GeometriesThatNoStreamCanHaveAreRefused) {
    for (const char* text : {"", "1280x720", "1281x720@30", "1280x721@30", "0x720@30", "1280x720@0", "1280x720@30/0",
                             "1280x720@30/", "16386x720@30", "1280X720@30", "1280x720@30@1", "x@", "1280x720 @30"}) {
        EXPECT_FALSE(ParseGeometry(text)) << text;
    }
}

TEST(CommandLine, AMistypedWordIsAnsweredWithTheNearestOne) {
    const std::vector<std::string> known{"--loop", "--timeout"};
    EXPECT_EQ(NearestWord(known, "--lopo"), "--loop");
    EXPECT_EQ(NearestWord(known, "--time-out"), "--timeout");
    EXPECT_EQ(NearestWord(known, "--geometry"), "");
}

/// A program with one of each kind of option, and with two commands.
class SampleProgram {
public:
    SampleProgram() {
        m_line.Options().Flag("--loop", loop, "Begin again");
        m_line.Options().Number("--count", "N", count, 1, 10, "How many (default 3)");
        m_line.Options().Decimal("--share", "X", share, 0.1, 0.5, "How much");
        m_line.Options().Choice("--mode", mode, {"fast", "slow"}, "How");
        OptionSet& install = m_line.Command("install", "Puts it there", "  program install --dll x\n");
        install.Text("--dll", "FILE", dll, "What to install");
        install.Texts("-e,--extra", "FILE", extras, "What else to install");
        install.Flag("--quiet", quiet, "Say nothing");
        m_line.Command("uninstall", "Takes it away", "  program uninstall\n");
    }

    /// Exit code and what went to standard error; nothing as code when the program would go on.
    std::optional<ExitCode> Run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "program");
        ::testing::internal::CaptureStderr();
        ::testing::internal::CaptureStdout();
        const auto code = m_line.Parse(arguments);
        errors = ::testing::internal::GetCapturedStderr();
        output = ::testing::internal::GetCapturedStdout();
        return code;
    }

    std::string Chosen() const { return m_line.ChosenCommand(); }

    bool loop = false;
    std::int64_t count = 3;
    double share = 0.2;
    std::string mode;
    std::string dll;
    std::vector<std::string> extras;
    bool quiet = false;
    std::string errors;
    std::string output;

private:
    CommandLine m_line{"program", "Does things.", "  program --loop\n      Again and again\n"};
};

TEST(CommandLine, HelpAndVersionGoToStandardOutputAndEndWithZero) {
    SampleProgram help;
    EXPECT_EQ(help.Run({"--help"}), ExitCode::Ok);
    EXPECT_NE(help.output.find("Examples:\n  program --loop\n      Again and again\n"), std::string::npos)
        << help.output;
    EXPECT_EQ(help.errors, "");
    SampleProgram version;
    EXPECT_EQ(version.Run({"--version"}), ExitCode::Ok);
    EXPECT_EQ(version.output, "program " RAVLO_VERSION "\n");
    SampleProgram command;
    EXPECT_EQ(command.Run({"install", "--help"}), ExitCode::Ok);
    EXPECT_NE(command.output.find("--dll"), std::string::npos) << command.output;
}

TEST(CommandLine, WrongUsageEndsWithTwoAndSaysWhatWasMeant) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--lop"}, "unknown option --lop; did you mean --loop?"},
        {{"--lop=1"}, "unknown option --lop; did you mean --loop?"},
        {{"--geometry"}, "unknown option --geometry"},
        {{"isntall"}, "unknown command isntall; did you mean install?"},
        {{"install", "--dlll", "x"}, "unknown option --dlll; did you mean --dll?"},
        {{"install", "more"}, "what is \"more\" for? Nothing more was expected here"},
    };
    for (const auto& [arguments, sentence] : cases) {
        SampleProgram program;
        EXPECT_EQ(program.Run(arguments), ExitCode::Usage) << sentence;
        EXPECT_EQ(program.errors, "ravlo: " + sentence + "\nravlo: try --help\n");
    }
}

TEST(CommandLine, AMistypedOptionExplainsWhatIsMissing) {
    CommandLine line("program", "Does things.", "  program x\n");
    std::string input;
    line.Options().Positional("input", input, true, "What to read");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(line.Parse({"program", "--hlep"}), ExitCode::Usage);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ravlo: unknown option --hlep; did you mean --help?\nravlo: try --help\n");
}

TEST(CommandLine, WrongValuesAreAnsweredInWords) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--count", "0"}, "--count: \"0\" is no whole number from 1 to 10"},
        {{"--count", "11"}, "--count: \"11\" is no whole number from 1 to 10"},
        {{"--count", "1.5"}, "--count: \"1.5\" is no whole number from 1 to 10"},
        {{"--count", "99999999999999999999"}, "--count: \"99999999999999999999\" is no whole number from 1 to 10"},
        {{"--count"}, "--count needs a value: N"},
        {{"--count", "1", "--count", "2"}, "--count is given more than once"},
        {{"--share", "nan"}, "--share: \"nan\" is no number from 0.1 to 0.5"},
        {{"--share", "0.6"}, "--share: \"0.6\" is no number from 0.1 to 0.5"},
        {{"--share", "0.2s"}, "--share: \"0.2s\" is no number from 0.1 to 0.5"},
        {{"--mode", "medium"}, "--mode: \"medium\" is none of fast|slow"},
        {{"--loop=maybe"}, "--loop takes no value"},
        {{"install", "--dll"}, "--dll needs a value: FILE"},
        {{"install", "--dll", "a", "--dll", "b"}, "--dll is given more than once"},
        {{"--dll", "a", "install"}, "--dll belongs behind install"},
        {{"install", "--dll", "--quiet"}, "--dll needs a value, and --quiet is an option"},
        {{"install", "--dll", "--help"}, "--dll needs a value, and --help is an option"},
        {{"install", "--dll", "-h"}, "--dll needs a value, and -h is an option"},
        {{"install", "--dll", "-e"}, "--dll needs a value, and -e is an option"},
        {{"install", "--extra", "x", "--extra", "--dll"}, "--extra needs a value, and --dll is an option"},
        {{"--count", "--loop"}, "--count needs a value, and --loop is an option"},
        {{"install", "--dll=", "x"}, "--dll needs a value: FILE"},
        {{"install", "--quiet="}, "--quiet takes no value"},
        {{"/loop"}, "options begin with two dashes, and not with a slash as in /loop; did you mean --loop?"},
        {{"/cuont", "3"}, "options begin with two dashes, and not with a slash as in /cuont; did you mean --count?"},
        {{"install", "/?"}, "options begin with two dashes, and not with a slash as in /?; did you mean --help?"},
    };
    for (const auto& [arguments, sentence] : cases) {
        SampleProgram program;
        EXPECT_EQ(program.Run(arguments), ExitCode::Usage) << sentence;
        EXPECT_EQ(program.errors, "ravlo: " + sentence + "\nravlo: try --help\n");
    }
}

TEST(CommandLine, HelpHasOneBlankLineBetweenItsSections) {
    SampleProgram program;
    program.Run({"--help"});
    EXPECT_EQ(program.output.find("\n\n\n"), std::string::npos) << program.output;
    EXPECT_NE(program.output.find("Usage: program [OPTIONS] [COMMAND]\n"), std::string::npos) << program.output;
    EXPECT_NE(program.output.find("\n\nCommands:\n  install "), std::string::npos) << program.output;
}

TEST(CommandLine, WhatWasGivenArrivesAndTheRestStays) {
    SampleProgram program;
    EXPECT_EQ(program.Run({"--loop", "install", "--dll", "a b.dll"}), std::nullopt);
    EXPECT_TRUE(program.loop);
    EXPECT_EQ(program.count, 3);
    EXPECT_EQ(program.dll, "a b.dll");
    EXPECT_EQ(program.Chosen(), "install");
    SampleProgram dashes;
    EXPECT_EQ(dashes.Run({"install", "--dll", "-", "--extra", "--a=b", "--extra", "-4"}), std::nullopt)
        << dashes.errors;
    EXPECT_EQ(dashes.dll, "-");
    EXPECT_EQ(dashes.extras, (std::vector<std::string>{"--a=b", "-4"}));
    SampleProgram bare;
    EXPECT_EQ(bare.Run({}), std::nullopt);
    EXPECT_EQ(bare.Chosen(), "");
}

}  // namespace
}  // namespace ravlo::test
