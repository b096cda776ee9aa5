// What rvfeeder.exe answers to wrong command lines and wrong inputs: one clear sentence, and the right exit code.
#include "tools/feeder_stage.h"

#include <gtest/gtest.h>

#include "common/wide_text.h"

namespace ravlo::test {
namespace {

class RvFeederWrongInputs : public RvFeeder {
protected:
    /// `sentence` is what the program says first, without its name; advice may follow in the same line.
    void Expect(const Arguments& arguments, int code, const std::string& sentence) {
        const ProgramResult result = RunProgram(L"rvfeeder", arguments);
        const std::string line = result.output.substr(0, result.output.find('\n'));
        EXPECT_EQ(result.code, code) << result.output;
        EXPECT_TRUE(line.starts_with("rvfeeder: " + sentence)) << line << "\n" << sentence;
    }
};

TEST_F(RvFeederWrongInputs, AWrongCommandLineEndsWithTwoAndOneClearSentence) {
    const struct {
        Arguments arguments;
        const char* sentence;
    } cases[] = {
        {{}, "nothing to show: give a file, - for standard input, or --test-card"},
        {{L"a.y4m", L"--lop"}, "unknown option --lop; did you mean --loop?"},
        {{L"a.y4m", L"--idle-aftr", L"3"}, "unknown option --idle-aftr; did you mean --idle-after?"},
        {{L"a.y4m", L"b.y4m"}, "what is \"b.y4m\" for? Nothing more was expected here"},
        {{L"-", L"--loop"}, "--loop needs a file: standard input cannot begin again"},
        {{L"a", L"--size", L"4x2"}, "raw NV12 input needs both --size and --rate; a Y4M input needs neither"},
        {{L"a", L"--size", L"5x2", L"--rate", L"30"},
         "--size 5x2 --rate 30 describes no NV12 stream: an even WIDTHxHEIGHT up to 16384 and a rate such as 30 or "
         "30000/1001"},
        {{L"a", L"--size", L"16384x16384", L"--rate", L"30"},
         "the camera takes pictures of up to 12441600 bytes (3840x2160), but this input is 16384x16384"},
        {{L"a", L"--size", L"4x2", L"--rate", L"30001/30"},
         "the camera takes up to 1000 frames a second, but this input has 30001/30"},
        {{L"a", L"--rate", L"fast"}, "--rate fast is no rate: give frames a second such as 30 or 30000/1001"},
        {{L"a", L"--expect", L"1280"},
         "--expect 1280 is no size of a camera picture: give an even WIDTHxHEIGHT such as 1280x720"},
        {{L"--test-card", L"a.y4m"}, "--test-card needs no input: leave out \"a.y4m\" or --test-card"},
        {{L"--test-card", L"--size", L"1281x720"},
         "--size 1281x720 is no size of a camera picture: give an even WIDTHxHEIGHT such as 1280x720"},
        {{L"a", L"--pipe", L"\\\\.\\pipe\\Other"},
         "\"\\\\.\\pipe\\Other\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number"},
        {{L"a", L"--pipe", L"\\\\.\\pipe\\Ravlo.07"},
         "\"\\\\.\\pipe\\Ravlo.07\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number"},
        {{L"a", L"--always", L"--idle-after", L"3"},
         "--always and --idle-after contradict each other: with --always the camera is never taken to be idle"},
        {{L"--always", L"--on-demand", L"x"},
         "--always and --on-demand contradict each other: with --always, pipe the command's output into rvfeeder -"},
        {{L"a.y4m", L"--on-demand", L"x"}, "--on-demand takes Y4M pictures from its command; leave out \"a.y4m\""},
        {{L"--loop", L"--on-demand", L"x"}, "--on-demand takes Y4M pictures from its command; leave out --loop"},
        {{L"a", L"--timeout", L"nan"}, "--timeout: \"nan\" is no number from 0.1 to 1000000"},
    };
    for (const auto& wrong : cases) {
        Expect(wrong.arguments, 2, wrong.sentence);
    }
    for (const Arguments& outOfRange :
         {Arguments{L"a", L"--write-timeout-ms", L"901"}, Arguments{L"a", L"--timeout", L"soon"},
          Arguments{L"a", L"--frames", L"0"}, Arguments{L"a", L"--pipe"}}) {
        const ProgramResult result = RunProgram(L"rvfeeder", outOfRange);
        EXPECT_EQ(result.code, 2);
        EXPECT_TRUE(result.output.starts_with("rvfeeder: " + ToUtf8(outOfRange[1]))) << result.output;
    }
}

TEST_F(RvFeederWrongInputs, AnInputThatIsNoFilmEndsWithOneAndSaysWhatItIs) {
    const std::wstring noFile = m_folder.File(L"missing.y4m");
    const struct {
        std::string bytes;
        std::string sentence;
    } cases[] = {
        {"", "the input is empty"},
        {"YUV4MPEG2 W4 H2\n", "the Y4M header names no frame rate"},
        {"YUV4MPEG2 W4 H3 F30:1\n", "the camera takes even sizes from 2x2 to 16384x16384, but this input is 4x3"},
        {"YUV4MPEG2 W4 H2 F30:1 C444\n",
         "the camera takes 8-bit 4:2:0 pictures, but this Y4M stream is C444; convert it first, for example with "
         "ffmpeg -pix_fmt yuv420p"},
        {"YUV4MPEG2 W4 H2 F30:1 It\n",
         "the camera takes progressive pictures, but this Y4M stream is interlaced (It); deinterlace it first"},
    };
    for (const auto& wrong : cases) {
        Expect({m_folder.Write(L"a.y4m", wrong.bytes)}, 1, wrong.sentence);
    }
    const ProgramResult missing = RunProgram(L"rvfeeder", {noFile});
    EXPECT_EQ(missing.code, 1);
    EXPECT_TRUE(missing.output.starts_with("rvfeeder: cannot open ")) << missing.output;
    const ProgramResult foreign = RunProgram(L"rvfeeder", {m_folder.File(L"\u00E4\u20AC.y4m")});
    EXPECT_NE(foreign.output.find("\xC3\xA4\xE2\x82\xAC.y4m: "), std::string::npos) << foreign.output;
    const ProgramResult folder = RunProgram(L"rvfeeder", {m_folder.Path().wstring()});
    EXPECT_EQ(folder.code, 1);
    EXPECT_NE(folder.output.find("it is a folder; give one file\n"), std::string::npos) << folder.output;
}

TEST_F(RvFeederWrongInputs, AnInputOfAnotherSizeThanExpectedIsRefusedBeforeAnythingIsSent) {
    FrameTaker camera;
    const ProgramResult result = RunProgram(
        L"rvfeeder", {m_folder.Write(L"film.y4m", Film(3)), L"--expect", L"1280x720", L"--pipe", camera.Name()});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.output.find("4x2"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("1280x720"), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("connected to "), std::string::npos) << result.output;
    EXPECT_EQ(camera.Count(), 0U);
}

}  // namespace
}  // namespace ravlo::test
