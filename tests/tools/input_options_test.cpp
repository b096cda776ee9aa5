#include "rvfeeder/input_options.h"

#include <gtest/gtest.h>

#include "rvfeeder/input_path.h"

namespace ravlo::test {
namespace {

struct Answer {
    std::string sentence;  ///< empty when nothing is wrong
    InputOptions options;
};

/// What becomes of the arguments; those that the parser itself refuses are not for these tests.
Answer Interpret(std::vector<std::string> arguments, bool forCommand = false) {
    CommandLine commandLine("rvfeeder", "A test.", "");
    InputOptionSet set;
    set.Declare(commandLine.Options());
    arguments.insert(arguments.begin(), "rvfeeder");
    EXPECT_EQ(commandLine.Parse(arguments), std::nullopt);
    Answer answer;
    const auto wrong = forCommand ? set.InterpretForCommand(answer.options) : set.Interpret(answer.options);
    answer.sentence = wrong.value_or("");
    return answer;
}

TEST(InputOptions, AFileAloneNeedsNothingElse) {
    const Answer answer = Interpret({"film.y4m"});
    EXPECT_EQ(answer.sentence, "");
    EXPECT_EQ(answer.options.path, "film.y4m");
    EXPECT_FALSE(answer.options.testCard);
    EXPECT_FALSE(answer.options.loop);
    EXPECT_EQ(answer.options.rawGeometry, std::nullopt);
    EXPECT_EQ(answer.options.cardGeometry, std::nullopt);
    EXPECT_EQ(answer.options.rate, std::nullopt);
    EXPECT_EQ(answer.options.expect, std::nullopt);
}

TEST(InputOptions, SizeAndRateMakeAFileRaw) {
    const Answer answer = Interpret({"-", "--size", "1280x720", "--rate", "30000/1001"});
    EXPECT_EQ(answer.sentence, "");
    EXPECT_EQ(answer.options.path, "-");
    EXPECT_EQ(answer.options.rawGeometry, (FrameGeometry{1280, 720, 30'000, 1001}));
}

TEST(InputOptions, ARateAloneIsForAStillPicture) {
    const Answer answer = Interpret({"logo.png", "--rate", "5", "--loop"});
    EXPECT_EQ(answer.sentence, "");
    EXPECT_EQ(answer.options.rate, (NumberPair{5, 1}));
    EXPECT_EQ(answer.options.rawGeometry, std::nullopt);
    EXPECT_TRUE(answer.options.loop);
}

TEST(InputOptions, TheTestCardIsFullHdUnlessToldOtherwise) {
    EXPECT_EQ(Interpret({"--test-card"}).options.cardGeometry, (FrameGeometry{1920, 1080, 30, 1}));
    const Answer answer = Interpret({"--test-card", "--size", "640x360", "--rate", "60", "--expect", "640x360"});
    EXPECT_EQ(answer.sentence, "");
    EXPECT_TRUE(answer.options.testCard);
    EXPECT_EQ(answer.options.path, "");
    EXPECT_EQ(answer.options.cardGeometry, (FrameGeometry{640, 360, 60, 1}));
    EXPECT_EQ(answer.options.expect, (NumberPair{640, 360}));
    EXPECT_EQ(answer.options.rawGeometry, std::nullopt);
}

TEST(InputOptions, EveryMistakeIsAnsweredWithASentence) {
    struct Case {
        std::vector<std::string> arguments;
        const char* sentence;
    };
    const Case cases[] = {
        {{}, "nothing to show: give a file, - for standard input, or --test-card"},
        {{"--loop"}, "nothing to show: give a file, - for standard input, or --test-card"},
        {{"a.y4m", "--test-card"}, "--test-card needs no input: leave out \"a.y4m\" or --test-card"},
        {{"-", "--loop"}, "--loop needs a file: standard input cannot begin again"},
        {{R"(\\.\pipe\film)", "--loop"}, "--loop needs a file: a named pipe cannot begin again"},
        {{"a", "--size", "4x2"}, "raw NV12 input needs both --size and --rate; a Y4M input needs neither"},
        {{"a", "--size", "5x2", "--rate", "30"},
         "--size 5x2 --rate 30 describes no NV12 stream: an even WIDTHxHEIGHT up to 16384 and a rate such as 30 or "
         "30000/1001"},
        {{"a", "--size", "4x2", "--rate", "0"},
         "--size 4x2 --rate 0 describes no NV12 stream: an even WIDTHxHEIGHT up to 16384 and a rate such as 30 or "
         "30000/1001"},
        {{"a", "--size", "16384x16384", "--rate", "30"},
         "the camera takes pictures of up to 12441600 bytes (3840x2160), but this input is 16384x16384"},
        {{"a", "--size", "4x2", "--rate", "30001/30"},
         "the camera takes up to 1000 frames a second, but this input has 30001/30"},
        {{"a.png", "--rate", "fast"}, "--rate fast is no rate: give frames a second such as 30 or 30000/1001"},
        {{"a.png", "--rate", "30/0"}, "--rate 30/0 is no rate: give frames a second such as 30 or 30000/1001"},
        {{"a.png", "--rate", "2000"}, "the camera takes up to 1000 frames a second, but this input has 2000/1"},
        {{"--test-card", "--size", "big"},
         "--size big is no size of a camera picture: give an even WIDTHxHEIGHT such as 1280x720"},
        {{"--test-card", "--size", "1281x720"},
         "--size 1281x720 is no size of a camera picture: give an even WIDTHxHEIGHT such as 1280x720"},
        {{"--test-card", "--size", "4096x2160"},
         "the camera takes pictures of up to 12441600 bytes (3840x2160), but this input is 4096x2160"},
        {{"--test-card", "--rate", "0"}, "--rate 0 is no rate: give frames a second such as 30 or 30000/1001"},
        {{"--test-card", "--rate", "1001"}, "the camera takes up to 1000 frames a second, but this input has 1001/1"},
        {{"a.y4m", "--expect", "0x0"},
         "--expect 0x0 is no size of a camera picture: give an even WIDTHxHEIGHT such as 1280x720"},
        {{"a.y4m", "--expect", "720p"},
         "--expect 720p is no size of a camera picture: give an even WIDTHxHEIGHT such as 1280x720"},
        {{"--test-card", "--expect", "1280x720"},
         "the input is 1920x1080, but --expect says 1280x720; scale it first, for example with ffmpeg -vf "
         "scale=1280:720"},
        {{"a", "--size", "4x2", "--rate", "30", "--expect", "8x2"},
         "the input is 4x2, but --expect says 8x2; scale it first, for example with ffmpeg -vf scale=8:2"},
    };
    for (const Case& wrong : cases) {
        EXPECT_EQ(Interpret(wrong.arguments).sentence, wrong.sentence);
    }
}

TEST(InputOptions, ACommandBringsItsOwnPicturesOfASizeThatMayBeExpected) {
    EXPECT_EQ(Interpret({}, true).sentence, "");
    const Answer answer = Interpret({"--expect", "640x360"}, true);
    EXPECT_EQ(answer.sentence, "");
    EXPECT_EQ(answer.options.expect, (NumberPair{640, 360}));
    EXPECT_EQ(Interpret({"a.y4m"}, true).sentence,
              "--on-demand takes Y4M pictures from its command; leave out \"a.y4m\"");
    EXPECT_EQ(Interpret({"--test-card"}, true).sentence,
              "--on-demand takes Y4M pictures from its command; leave out --test-card");
    EXPECT_EQ(Interpret({"--loop"}, true).sentence,
              "--on-demand takes Y4M pictures from its command; leave out --loop");
    EXPECT_EQ(Interpret({"--size", "4x2"}, true).sentence,
              "--on-demand takes Y4M pictures from its command; leave out --size");
    EXPECT_EQ(Interpret({"--rate", "30"}, true).sentence,
              "--on-demand takes Y4M pictures from its command; leave out --rate");
    EXPECT_EQ(Interpret({"--expect", "x"}, true).sentence,
              "--expect x is no size of a camera picture: give an even WIDTHxHEIGHT such as 1280x720");
}

TEST(InputPath, NamedPipesAreToldFromFiles) {
    for (const char* pipe : {R"(\\.\pipe\film)", R"(\\.\PIPE\film)", R"(\\?\pipe\a\b)", R"(\\server\Pipe\film)",
                             "//./pipe/film", R"(\\./pipe\film)"}) {
        EXPECT_TRUE(IsNamedPipePath(pipe)) << pipe;
    }
    for (const char* file :
         {"", "-", "film.y4m", R"(C:\pipe\film)", R"(\\.\pipe)", R"(\\.\pipe\)", R"(\\server\share\film)",
          R"(\.\pipe\film)", R"(\\\pipe\film)", R"(\\.\pipes\film)", R"(\\.\pip\film)"}) {
        EXPECT_FALSE(IsNamedPipePath(file)) << file;
    }
}

}  // namespace
}  // namespace ravlo::test
