// rvclient.exe, called in wrong ways.
#include <gtest/gtest.h>

#include <string>

#include "tools/program.h"
#include "tools/rvclient_test_stage.h"

namespace ravlo::test {
namespace {

constexpr char kGeometryForm[] =
    " is no geometry: an even WIDTHxHEIGHT@RATE, such as 1280x720@30 or 1280x720@30000/1001";
constexpr char kGeometryLimits[] = ": pictures of up to 3840x2160, up to 1000 a second, numbers of up to six digits";
constexpr char kPipeForm[] = " is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number";
constexpr char kBlankName[] = "--name is blank: give the camera a name that people can choose it by";

TEST(RvClientUsage, EveryMistakeIsAnsweredWithOneSentenceAndCostsNothing) {
    const struct {
        Arguments arguments;
        std::string sentence;
    } cases[] = {
        {{}, "say what to do: start, stop, remove or list"},
        {{L"strat"}, "unknown command strat; did you mean start?"},
        {{L"install"}, "unknown command install"},
        {{L"--verion"}, "unknown option --verion; did you mean --version?"},
        {{L"--geometry", L"1280x720@30"}, "unknown option --geometry"},
        {{L"start", L"--geometri", L"1280x720@30"}, "unknown option --geometri; did you mean --geometry?"},
        {{L"start", L"--geometry", L"1281x720@30"}, std::string("\"1281x720@30\"") + kGeometryForm},
        {{L"start", L"--geometry", L"1280x720"}, std::string("\"1280x720\"") + kGeometryForm},
        {{L"start", L"--geometry", L"1280X720@30"}, std::string("\"1280X720@30\"") + kGeometryForm},
        {{L"start", L"--geometry", L"0x0@0"}, std::string("\"0x0@0\"") + kGeometryForm},
        {{L"start", L"--geometry", L"4096x2160@30"}, std::string("no camera takes 4096x2160@30/1") + kGeometryLimits},
        {{L"start", L"--geometry", L"1280x720@1001"}, std::string("no camera takes 1280x720@1001/1") + kGeometryLimits},
        {{L"start", L"--pipe", L"Ravlo"}, std::string("\"Ravlo\"") + kPipeForm},
        {{L"start", L"--pipe", L"\\\\.\\pipe\\Ravlo.007"}, std::string("\"\\\\.\\pipe\\Ravlo.007\"") + kPipeForm},
        {{L"start", L"--pipe", L"\\\\.\\pipe\\Ravlo.gate"}, std::string("\"\\\\.\\pipe\\Ravlo.gate\"") + kPipeForm},
        {{L"start", L"--name", L""}, kBlankName},
        {{L"stop", L"--name", L"  "}, kBlankName},
        {{L"remove", L"--name", L"a\tb"},
         "--name holds a character that cannot be shown, such as a tab or the end of a line"},
        {{L"start", L"--name", std::wstring(65, L'x')}, "--name has 65 characters; up to 64 are possible"},
        {{L"start", L"now"}, "what is \"now\" for? Nothing more was expected here"},
        {{L"start", L"--sesion"}, "unknown option --sesion; did you mean --session?"},
        {{L"start", L"--all-user"}, "unknown option --all-user; did you mean --all-users?"},
        {{L"stop", L"--geometry", L"1280x720@30"}, "unknown option --geometry"},
        {{L"stop", L"--session"}, "unknown option --session"},
        {{L"remove", L"--nmae", L"x"}, "unknown option --nmae; did you mean --name?"},
        {{L"list", L"--josn"}, "unknown option --josn; did you mean --json?"},
        {{L"start", L"--geometry"}, "--geometry needs a value: WxH@N/D"},
        {{L"start", L"--geometry", L"2x2@1", L"--geometry", L"2x2@1"}, "--geometry is given more than once"},
        {{L"start", L"stop"}, "what is \"stop\" for? Nothing more was expected here"},
        {{L"list", L"cameras"}, "what is \"cameras\" for? Nothing more was expected here"},
    };
    const CameraRecord record;
    for (const auto& wrong : cases) {
        const ProgramResult result = RunProgram(L"rvclient", wrong.arguments);
        EXPECT_EQ(result.code, 2) << wrong.sentence;
        EXPECT_EQ(result.output, "rvclient: " + wrong.sentence + "\nrvclient: try --help\n");
    }
    EXPECT_EQ(record.Text(), "");
}

}  // namespace
}  // namespace ravlo::test
