#include "common/command_line.h"
#include "common/parse_text.h"

#include <gtest/gtest.h>

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
}

TEST(ParseText, GeometriesThatNoStreamCanHaveAreRefused) {
    for (const char* text : {"", "1280x720", "1281x720@30", "1280x721@30", "0x720@30", "1280x720@0", "1280x720@30/0",
                             "1280x720@30/", "16386x720@30", "1280X720@30", "1280x720@30@1", "x@", "1280x720 @30"}) {
        EXPECT_FALSE(ParseGeometry(text)) << text;
    }
}

TEST(CommandLine, AMistypedOptionIsAnsweredWithTheNearestOne) {
    CLI::App app;
    bool loop = false;
    int timeout = 0;
    app.add_flag("--loop", loop);
    app.add_option("--timeout", timeout);
    EXPECT_EQ(NearestOption(app, "--lopo"), "--loop");
    EXPECT_EQ(NearestOption(app, "--time-out"), "--timeout");
    EXPECT_EQ(NearestOption(app, "--geometry"), "");
}

TEST(CommandLine, WrongUsageEndsWithTwoAndHelpWithZero) {
    CLI::App app;
    bool loop = false;
    SetUpCommandLine(app, "program", "  program --loop\n");
    app.add_flag("--loop", loop);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(ParseCommandLine(app, {"program", "--lop"}), ExitCode::Usage);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ravlo: unknown option --lop; did you mean --loop?\nravlo: try --help\n");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(ParseCommandLine(app, {"program", "--help"}), ExitCode::Ok);
    EXPECT_NE(::testing::internal::GetCapturedStdout().find("Examples:\n  program --loop"), std::string::npos);
    EXPECT_EQ(ParseCommandLine(app, {"program", "--loop"}), std::nullopt);
    EXPECT_TRUE(loop);
}

}  // namespace
}  // namespace ravlo::test
