#include "rvhost/options.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace ravlo::test {
namespace {

struct Reading {
    std::optional<ExitCode> ended;
    HostOptions options;
    std::string output;  ///< on standard output
    std::string errors;  ///< on standard error
};

Reading Read(std::vector<std::string> arguments) {
    Reading reading;
    arguments.insert(arguments.begin(), "rvhost");
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    reading.ended = ReadOptions(std::move(arguments), reading.options);
    reading.errors = ::testing::internal::GetCapturedStderr();
    reading.output = ::testing::internal::GetCapturedStdout();
    return reading;
}

TEST(RvHostOptions, WithoutAnyTheRegisteredCameraRunsUntilItIsStopped) {
    const Reading reading = Read({});
    EXPECT_EQ(reading.ended, std::nullopt) << reading.errors;
    const HostOptions& options = reading.options;
    EXPECT_FALSE(options.geometry);
    EXPECT_EQ(options.pipeName + options.dll + options.snapshot + options.pictureDirectory + options.contactSheet +
                  options.y4m + options.samplesCsv,
              "");
    EXPECT_FALSE(options.lengthMs);
    EXPECT_FALSE(options.frames);
    EXPECT_FALSE(options.preview || options.json || options.printUserSid || options.WantsPictures());
}

TEST(RvHostOptions, AllOfThemAreUnderstood) {
    const Reading reading = Read({"--geometry", "640x360@30000/1001",
                                  "--pipe",     "\\\\.\\pipe\\Ravlo.7",
                                  "--dll",      "x.dll",
                                  "--seconds",  "2.5",
                                  "--frames",   "9",
                                  "--preview",  "--snapshot",
                                  "s.png",      "--pictures",
                                  "shots",      "--contact-sheet",
                                  "c.png",      "--every",
                                  "5",          "--picture-width",
                                  "64",         "--y4m",
                                  "v.y4m",      "--samples-csv",
                                  "t.csv",      "--json"});
    EXPECT_EQ(reading.ended, std::nullopt) << reading.errors;
    const HostOptions& options = reading.options;
    EXPECT_EQ(options.geometry, (FrameGeometry{640, 360, 30000, 1001}));
    EXPECT_EQ(options.pipeName, "\\\\.\\pipe\\Ravlo.7");
    EXPECT_EQ(options.dll, "x.dll");
    EXPECT_EQ(options.lengthMs, 2'500);
    EXPECT_EQ(options.frames, 9U);
    EXPECT_TRUE(options.preview);
    EXPECT_EQ(options.snapshot, "s.png");
    EXPECT_EQ(options.pictureDirectory, "shots");
    EXPECT_EQ(options.contactSheet, "c.png");
    EXPECT_EQ(options.pictureEverySamples, 5U);
    EXPECT_EQ(options.pictureWidth, 64U);
    EXPECT_EQ(options.y4m, "v.y4m");
    EXPECT_EQ(options.samplesCsv, "t.csv");
    EXPECT_TRUE(options.json);
    EXPECT_TRUE(options.WantsPictures());
}

TEST(RvHostOptions, PicturesComeEverySecondUnlessTimedOtherwise) {
    EXPECT_EQ(Read({"--pictures", "shots"}).options.pictureEveryMs, 1'000);
    EXPECT_EQ(Read({"--pictures", "shots"}).options.pictureEverySamples, std::nullopt);
    EXPECT_EQ(Read({"--pictures", "shots"}).options.pictureWidth, 320U);
    EXPECT_EQ(Read({"--contact-sheet", "c.png", "--every-ms", "250"}).options.pictureEveryMs, 250);
}

TEST(RvHostOptions, ASnapshotMayBecomeASeries) {
    const Reading series = Read({"--snapshot", "s.png", "--every", "30"});
    EXPECT_EQ(series.ended, std::nullopt) << series.errors;
    EXPECT_TRUE(series.options.WantsSeries());
    EXPECT_FALSE(series.options.WantsPictures());
    EXPECT_FALSE(Read({"--snapshot", "s.png"}).options.WantsSeries());
    EXPECT_FALSE(Read({"--pictures", "p", "--every", "30"}).options.WantsSeries());
}

TEST(RvHostOptions, NoArgumentsAtAllAreNone) {
    HostOptions options;
    EXPECT_EQ(ReadOptions({}, options), std::nullopt);
}

TEST(RvHostOptions, TheHelpNamesEveryOptionAndGoesToStandardOutput) {
    const Reading reading = Read({"--help"});
    EXPECT_EQ(reading.ended, ExitCode::Ok);
    EXPECT_EQ(reading.errors, "");
    for (const char* name : {"--geometry", "--pipe", "--dll", "--seconds", "--frames", "--preview", "--snapshot",
                             "--pictures", "--contact-sheet", "--every ", "--every-ms", "--picture-width", "--y4m",
                             "--samples-csv", "--json", "--print-user-sid", "--help", "--version", "Examples:\n"}) {
        EXPECT_NE(reading.output.find(name), std::string::npos) << name;
    }
}

TEST(RvHostOptions, WhatMakesNoSenseIsAnsweredWithASentenceAndTwo) {
    const struct {
        std::vector<std::string> arguments;
        const char* sentence;
    } cases[] = {
        {{"--geometri", "x"}, "unknown option --geometri; did you mean --geometry?"},
        {{"--snapshto=x.png"}, "unknown option --snapshto; did you mean --snapshot?"},
        {{"-x"}, "unknown option -x"},
        {{"camera"}, "what is \"camera\" for? Nothing more was expected here"},
        {{"--geometry"}, "--geometry needs a value: WxH@N/D"},
        {{"--geometry", "1281x720@30"},
         "\"1281x720@30\" is no geometry: an even WIDTHxHEIGHT@RATE, such as 1280x720@30 or 1280x720@30000/1001"},
        {{"--geometry", "1280x720"},
         "\"1280x720\" is no geometry: an even WIDTHxHEIGHT@RATE, such as 1280x720@30 or 1280x720@30000/1001"},
        {{"--geometry", "1280x720@0"},
         "\"1280x720@0\" is no geometry: an even WIDTHxHEIGHT@RATE, such as 1280x720@30 or 1280x720@30000/1001"},
        {{"--pipe", "Ravlo"}, "\"Ravlo\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number"},
        {{"--pipe", "\\\\.\\pipe\\Ravlo.x"},
         "\"\\\\.\\pipe\\Ravlo.x\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number"},
        {{"--seconds", "-1"}, "--seconds: \"-1\" is no number from"},
        {{"--seconds", "0"}, "--seconds: \"0\" is no number from"},
        {{"--seconds", "soon"}, "--seconds: \"soon\" is no number from"},
        {{"--seconds", "nan"}, "--seconds: \"nan\" is no number from 0.1 to 1000000"},
        {{"--frames", "0"}, "--frames: \"0\" is no whole number from"},
        {{"--frames", "1.5"}, "--frames: \"1.5\" is no whole number from"},
        {{"--frames", "1", "--frames", "2"}, "--frames is given more than once"},
        {{"--pictures", "p", "--every", "0"}, "--every: \"0\" is no whole number from"},
        {{"--pictures", "p", "--every-ms", "0"}, "--every-ms: \"0\" is no whole number from"},
        {{"--pictures", "p", "--picture-width", "15"}, "--picture-width: \"15\" is no whole number from"},
        {{"--pictures", "p", "--every", "2", "--every-ms", "100"},
         "--every counts samples and --every-ms counts time: give one of them"},
        {{"--every", "2"},
         "--every says which samples become pictures: give --snapshot, --pictures or --contact-sheet as well"},
        {{"--snapshot", "--json"}, "--snapshot needs a value, and --json is an option"},
        {{"/json"}, "options begin with two dashes, and not with a slash as in /json; did you mean --json?"},
        {{"--y4m="}, "--y4m needs a value: FILE"},
        {{"--every-ms", "2", "--snapshot", "s.png"},
         "--every-ms is about small pictures: give --pictures or --contact-sheet as well"},
        {{"--picture-width", "64"},
         "--picture-width is about small pictures: give --pictures or --contact-sheet as well"},
        {{"--snapshot", "x.png", "--contact-sheet", "./x.png"},
         "--snapshot and --contact-sheet name the same file, x.png"},
        {{"--y4m", ""}, "an argument is empty; is a variable of your script not set?"},
        {{"--json=maybe"}, "--json"},
    };
    for (const auto& wrong : cases) {
        const Reading reading = Read(wrong.arguments);
        EXPECT_EQ(reading.ended, ExitCode::Usage) << wrong.sentence;
        EXPECT_EQ(reading.output, "");
        EXPECT_NE(reading.errors.find(wrong.sentence), std::string::npos)
            << wrong.sentence << " is not in " << reading.errors;
        EXPECT_NE(reading.errors.find("try --help"), std::string::npos) << reading.errors;
    }
}

}  // namespace
}  // namespace ravlo::test
