// rvsetup.exe trace as a user runs it.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "common/wide_text.h"
#include "support/camera.h"
#include "support/trace_log.h"
#include "tools/program.h"
#include "tools/rvsetup_doctor_stage.h"

namespace ravlo::test {
namespace {

ProgramResult Trace(Arguments more = {}) {
    more.insert(more.begin(), L"trace");
    return RunProgram(L"rvsetup", more);
}

std::string Line(int number, const std::string& message) {
    return "[1:2 host.exe] 10:00:00.00" + std::to_string(number) + " " + message;
}

class TraceFile : public ::testing::Test {
protected:
    void Append(const std::string& text) const {
        std::ofstream(std::filesystem::path(m_path), std::ios::binary | std::ios::app) << text;
    }
    void Replace(const std::string& text) const {
        std::ofstream(std::filesystem::path(m_path), std::ios::binary | std::ios::trunc) << text;
    }
    ChildProcess Follow(Arguments more = {}) const {
        more.insert(more.begin(), {L"trace", L"--follow", L"--log", m_path});
        return StartProgram(L"rvsetup", more);
    }

    TemporaryFolder m_folder;
    std::wstring m_path = m_folder.File(L"some.log");
};

TEST_F(TraceFile, TheLastLinesAreShownAsTheyAre) {
    Append(Line(1, "PIPE one") + "\r\n" + Line(2, "FAIL two") + "\r\n" + Line(3, "PIPE three") + "\r\n");
    const ProgramResult all = Trace({L"--log", m_path});
    EXPECT_EQ(all.code, 0);
    EXPECT_EQ(all.output, Line(1, "PIPE one") + "\n" + Line(2, "FAIL two") + "\n" + Line(3, "PIPE three") + "\n");
    EXPECT_EQ(Trace({L"--log", m_path, L"-n", L"2"}).output, Line(2, "FAIL two") + "\n" + Line(3, "PIPE three") + "\n");
    EXPECT_EQ(Trace({L"--log", m_path, L"--lines", L"0"}).output, "");
}

TEST_F(TraceFile, OnlyTheTagsThatWereAskedFor) {
    Append(Line(1, "PIPE one") + "\r\n" + Line(2, "FAIL two") + "\r\n" + Line(3, "STM.RequestSample x") + "\r\n");
    EXPECT_EQ(Trace({L"--log", m_path, L"--only", L"fail"}).output, Line(2, "FAIL two") + "\n");
    EXPECT_EQ(Trace({L"--log", m_path, L"--only", L"STM", L"--only", L"PIPE"}).output,
              Line(1, "PIPE one") + "\n" + Line(3, "STM.RequestSample x") + "\n");
}

TEST_F(TraceFile, JsonGivesAnObjectALine) {
    Append(Line(1, "PIPE one") + "\r\nunfinished");
    EXPECT_EQ(
        Trace({L"--log", m_path, L"--json"}).output,
        "{\"time\":\"10:00:00.001\",\"pid\":1,\"tid\":2,\"process\":\"host.exe\",\"tag\":\"PIPE\",\"message\":\"PIPE "
        "one\"}\n{\"fragment\":\"unfinished\"}\n");
}

TEST_F(TraceFile, ALongLogIsReadFromItsEndOnly) {
    std::string text;
    for (int i = 0; i < 20'000; ++i) {
        text += Line(1, "CALL number " + std::to_string(i)) + "\r\n";
    }
    Append(text);
    EXPECT_EQ(Trace({L"--log", m_path, L"-n", L"2"}).output,
              Line(1, "CALL number 19998") + "\n" + Line(1, "CALL number 19999") + "\n");
}

TEST_F(TraceFile, AFilterLooksForItsLinesFurtherBack) {
    std::string text = Line(1, "FAIL first") + "\r\n" + Line(2, "FAIL second") + "\r\n";
    for (int i = 0; i < 5000; ++i) {
        text += Line(3, "CALL SRC.GetEvent") + "\r\n";
    }
    Append(text);
    EXPECT_EQ(Trace({L"--log", m_path, L"--only", L"FAIL"}).output,
              Line(1, "FAIL first") + "\n" + Line(2, "FAIL second") + "\n");
    EXPECT_EQ(Trace({L"--log", m_path, L"--only", L"FAIL", L"-n", L"1"}).output, Line(2, "FAIL second") + "\n");
}

TEST_F(TraceFile, FollowingShowsWhatComes) {
    Append(Line(1, "PIPE one") + "\r\n");
    ChildProcess child = Follow();
    ASSERT_TRUE(child.WaitForOutput("PIPE one\n")) << child.Output();
    Append(Line(2, "PIPE tw"));
    Append("o\r\n" + Line(3, "PIPE three") + "\r\n");
    ASSERT_TRUE(child.WaitForOutput("PIPE three\n")) << child.Output();
    EXPECT_EQ(child.Output(), Line(1, "PIPE one") + "\n" + Line(2, "PIPE two") + "\n" + Line(3, "PIPE three") + "\n");
}

TEST_F(TraceFile, AFileThatIsCutOrReplacedIsReadAnew) {
    Append(Line(1, "PIPE a long line that comes before the others") + "\r\n");
    ChildProcess child = Follow();
    ASSERT_TRUE(child.WaitForOutput("the others\n")) << child.Output();
    Replace(Line(2, "PIPE cut") + "\r\n");
    ASSERT_TRUE(child.WaitForOutput("PIPE cut\n")) << child.Output();
    ASSERT_TRUE(MoveFileW(m_path.c_str(), m_folder.File(L"old.log").c_str())) << GetLastError();
    Append(Line(3, "PIPE a new file under the old name") + "\r\n");
    ASSERT_TRUE(child.WaitForOutput("the old name\n")) << child.Output();
    ASSERT_TRUE(DeleteFileW(m_path.c_str())) << GetLastError();
    Append(Line(4, "PIPE again") + "\r\n");
    EXPECT_TRUE(child.WaitForOutput("PIPE again\n")) << child.Output();
}

TEST_F(TraceFile, AFileThatIsNotThereYetIsWaitedFor) {
    ChildProcess child = Follow({L"--only", L"PIPE"});
    ASSERT_TRUE(child.WaitForOutput("rvsetup: waiting for ")) << child.Output();
    Append(Line(1, "GATE no") + "\r\n" + Line(2, "PIPE yes") + "\r\n");
    ASSERT_TRUE(child.WaitForOutput("PIPE yes\n")) << child.Output();
    EXPECT_FALSE(Contains(child.Output(), "GATE no"));
}

/// Follows the log named by the first argument in a console of its own, and presses Ctrl+C there.
RAVLO_ROLE(InterruptFollowing) {
    FreeConsole();
    if (!AllocConsole()) {
        return 3;
    }
    SetConsoleCtrlHandler([](DWORD) -> BOOL { return TRUE; }, TRUE);
    ChildProcess child = StartProgram(L"rvsetup", {L"trace", L"--follow", L"--log", arguments.at(0)});
    EXPECT_TRUE(child.WaitForOutput("PIPE one\n")) << child.Output();
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << GetLastError();
    EXPECT_EQ(child.Wait(2000), 130U) << child.Output();
    EXPECT_TRUE(Contains(child.Output(), "rvsetup: interrupted; 1 lines shown\n")) << child.Output();
    return 0;
}

TEST_F(TraceFile, CtrlCEndsItWithinASecondAndWithItsCode) {
    Append(Line(1, "PIPE one") + "\r\n");
    ChildProcess role = StartRole("InterruptFollowing", {m_path});
    EXPECT_EQ(role.Wait(), 0U) << role.Output();
}

TEST(Trace, TheCamerasOwnLogIsFound) {
    const AnchorGuard anchor(CurrentUserSid());
    TraceLog log;
    const ModuleUnderTest module;
    const Camera camera(module);
    ASSERT_TRUE(log.WaitForLine("PIPE created ")) << log.Text();
    const ProgramResult result = Trace({L"--only", L"PIPE"});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "PIPE created " + ToUtf8(camera.PipeName()) + " - DACL grants "))
        << result.output;
}

/// Takes the logs in the system's folders out of the way and puts them back.
class WithoutLogs {
public:
    WithoutLogs() {
        for (const std::wstring& path : {TraceLogPaths()[0], TraceLogPaths()[2]}) {
            if (MoveFileExW(path.c_str(), (path + L".aside").c_str(), MOVEFILE_REPLACE_EXISTING)) {
                m_moved.push_back(path);
            }
        }
    }
    WithoutLogs(const WithoutLogs&) = delete;
    WithoutLogs& operator=(const WithoutLogs&) = delete;
    ~WithoutLogs() {
        for (const std::wstring& path : m_moved) {
            MoveFileExW((path + L".aside").c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
        }
    }

private:
    std::vector<std::wstring> m_moved;
};

TEST(Trace, WithoutALogItSaysWhereItLooked) {
    const WithoutLogs without;
    const ProgramResult result = Trace();
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.output,
              "rvsetup: there is no trace log; looked for C:\\ProgramData\\Ravlo\\trace.log, "
              "C:\\Windows\\Temp\\ravlo-trace.log\n"
              "rvsetup: it begins when a program opens the camera; rvsetup doctor tells whether one can\n");
}

TEST(Trace, FollowingBeginsWithTheFirstLogThatAppears) {
    const WithoutLogs without;
    const AnchorGuard anchor(CurrentUserSid());
    ChildProcess child = StartProgram(L"rvsetup", {L"trace", L"--follow", L"--only", L"ATTACH"});
    ASSERT_TRUE(child.WaitForOutput("rvsetup: there is no trace log yet; waiting for one at ")) << child.Output();
    const ModuleUnderTest module;
    EXPECT_TRUE(child.WaitForOutput("ATTACH DLL_PROCESS_ATTACH")) << child.Output();
}

/// A line of another program, written at this moment.
void AppendNow(const std::wstring& path, const std::string& message) {
    SYSTEMTIME now{};
    GetSystemTime(&now);
    char time[16]{};
    std::snprintf(time, sizeof time, "%02u:%02u:%02u.%03u", now.wHour % 24U, now.wMinute % 60U, now.wSecond % 60U,
                  now.wMilliseconds % 1000U);
    std::ofstream(std::filesystem::path(path), std::ios::binary | std::ios::app)
        << "[1:2 host.exe] " << time << " " << message << "\r\n";
}

TEST(Trace, FollowingGoesOnWithTheLogThatIsTheNewest) {
    const WithoutLogs without;
    std::filesystem::create_directories(std::filesystem::path(TraceLogPaths()[0]).parent_path());
    AppendNow(TraceLogPaths()[0], "PIPE first");
    ChildProcess child = StartProgram(L"rvsetup", {L"trace", L"--follow"});
    ASSERT_TRUE(child.WaitForOutput("PIPE first\n")) << child.Output();
    AppendNow(TraceLogPaths()[2], "PIPE second");
    EXPECT_TRUE(child.WaitForOutput("rvsetup: the newest log is C:\\Windows\\Temp\\ravlo-trace.log now\n"))
        << child.Output();
    EXPECT_TRUE(child.WaitForOutput("PIPE second\n")) << child.Output();
    std::filesystem::remove(TraceLogPaths()[0]);
    std::filesystem::remove(TraceLogPaths()[2]);
}

TEST_F(TraceFile, WrongInputIsAnsweredWithOneClearSentence) {
    const std::string folder = ToUtf8(m_folder.Path().wstring());
    const struct {
        Arguments arguments;
        int code;
        std::string sentence;
    } cases[] = {
        {{L"--folow"}, 2, "rvsetup: unknown option --folow; did you mean --follow?\n"},
        {{L"--only"}, 2, "rvsetup: --only"},
        {{L"--only", L"PIEP"}, 2, "rvsetup: no line of the log begins with \"PIEP\"; did you mean PIPE?\n"},
        {{L"--only", L""}, 2, "rvsetup: no line of the log begins with \"\""},
        {{L"--only", L"everything"},
         2,
         "rvsetup: no line of the log begins with \"everything\"; try FAIL, WARN, PIPE or GATE\n"},
        {{L"--lines", L"-1"}, 2, "rvsetup: --lines"},
        {{L"--lines", L"many"}, 2, "rvsetup: --lines"},
        {{L"--lines", L"100001"}, 2, "rvsetup: --lines"},
        {{L"--lines"}, 2, "rvsetup: --lines"},
        {{L"--lines", L"3", L"-n", L"4"}, 2, "rvsetup: --lines"},
        {{L"PIPE"}, 2, "rvsetup: what is \"PIPE\" for? Nothing more was expected here\n"},
        {{L"--log"}, 2, "rvsetup: --log"},
        {{L"--log", m_folder.File(L"gone.log")}, 3, "rvsetup: cannot read " + folder + "\\gone.log: "},
        {{L"--log", m_folder.File(L"none\\gone.log")}, 3, "rvsetup: cannot read " + folder + "\\none\\gone.log: "},
        {{L"--log", L"\\\\.\\pipe\\Ravlo"}, 1, "rvsetup: cannot read \\\\.\\pipe\\Ravlo: it is no file\n"},
        {{L"--log", m_folder.Path().wstring()}, 1, "rvsetup: cannot read " + folder + ": it is a folder\n"},
        {{L"--follow", L"--log", m_folder.Path().wstring()},
         1,
         "rvsetup: cannot read " + folder + ": it is a folder\n"},
    };
    for (const auto& wrong : cases) {
        const ProgramResult result = Trace(wrong.arguments);
        EXPECT_EQ(result.code, wrong.code) << wrong.sentence << result.output;
        EXPECT_TRUE(result.output.starts_with(wrong.sentence)) << result.output;
    }
}

}  // namespace
}  // namespace ravlo::test
