// rvhost.exe as a user runs it, with the built module.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "common/wide_text.h"
#include "support/camera.h"
#include "support/registry.h"
#include "tools/program.h"

namespace ravlo::test {
namespace {

class RvHost : public ::testing::Test {
protected:
    std::wstring Dll() const { return ProgramDirectory() + L"\\rvmediasource.dll"; }

    AnchorGuard m_anchor{CurrentUserSid()};
    TemporaryFolder m_folder;
};

constexpr char kPngMark[] = "\x89PNG\r\n\x1A\n";

bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

TEST_F(RvHost, WithoutAProducerEverySampleIsPatternAndOnTheGrid) {
    const ProgramResult result =
        RunProgram(L"rvhost", {L"--dll", Dll(), L"--geometry", L"320x180@30", L"--pipe", UniquePipeName(), L"--frames",
                               L"12", L"--samples-csv", m_folder.File(L"samples.csv")});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "geometry:         320x180 at 30/1\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "samples:          12\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "live:             0\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "pattern:          12\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "grid errors:      0\n")) << result.output;
    const std::string csv = m_folder.Read(L"samples.csv");
    EXPECT_EQ(csv.substr(0, 16), "# start_unix_ms=");
    EXPECT_TRUE(Contains(csv, "\nseconds,arrival,sample_time,kind,on_grid\n"));
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 14) << csv;
    EXPECT_TRUE(Contains(csv, ",pattern,1\n"));
    EXPECT_FALSE(Contains(csv, ",live,"));
}

TEST_F(RvHost, AProducersFramesAreCountedAsLive) {
    const std::wstring pipe = UniquePipeName();
    ChildProcess host = StartProgram(L"rvhost", {L"--dll", Dll(), L"--geometry", L"320x180@30", L"--pipe", pipe,
                                                 L"--seconds", L"2", L"--samples-csv", m_folder.File(L"samples.csv")});
    ChildProcess producer = StartProducer(pipe, 320, 180, 30);
    const ProgramResult result = FinishProgram(host);
    producer.Kill();
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_FALSE(Contains(result.output, "live:             0\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "grid errors:      0\n")) << result.output;
    EXPECT_TRUE(Contains(m_folder.Read(L"samples.csv"), ",live,1\n"));
}

TEST_F(RvHost, PicturesAndContactSheetArePngFiles) {
    const ProgramResult result =
        RunProgram(L"rvhost", {L"--dll", Dll(), L"--geometry", L"320x180@30", L"--pipe", UniquePipeName(), L"--frames",
                               L"10", L"--pictures", m_folder.File(L"shots"), L"--every-ms", L"100", L"--picture-width",
                               L"80", L"--contact-sheet", m_folder.File(L"sheet.png")});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_EQ(m_folder.Read(L"sheet.png").substr(0, 8), "\x89PNG\r\n\x1A\n");
    int pictures = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path() / L"shots")) {
        EXPECT_TRUE(entry.path().filename().string().ends_with("-pattern.png")) << entry.path();
        ++pictures;
    }
    EXPECT_GE(pictures, 2);
}

TEST_F(RvHost, AGeometryThatTheCameraDoesNotTakeIsAFailure) {
    const ProgramResult result =
        RunProgram(L"rvhost", {L"--dll", Dll(), L"--geometry", L"4096x2160@30", L"--pipe", UniquePipeName()});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.output, "rvhost: the camera did not take the requested geometry; it offers 1920x1080@60/1\n");
}

TEST_F(RvHost, AFileThatIsNoCameraEndsWithAClearSentence) {
    const ProgramResult missing = RunProgram(L"rvhost", {L"--dll", m_folder.File(L"missing.dll")});
    EXPECT_EQ(missing.code, 3);
    EXPECT_TRUE(Contains(missing.output, "rvhost: cannot load ")) << missing.output;
    std::wstring system(MAX_PATH, L'\0');
    system.resize(GetSystemDirectoryW(system.data(), MAX_PATH));
    const std::wstring kernel = system + L"\\kernel32.dll";
    const std::string advice = "; give the path of rvmediasource.dll, or run rvsetup install and leave --dll out\n";
    EXPECT_TRUE(missing.output.ends_with(advice)) << missing.output;
    const ProgramResult other = RunProgram(L"rvhost", {L"--dll", kernel});
    EXPECT_EQ(other.code, 3);
    EXPECT_EQ(other.output,
              "rvhost: " + ToUtf8(kernel) + " is no COM server, it exports no DllGetClassObject" + advice);
    const std::wstring reader = system + L"\\mfreadwrite.dll";
    const ProgramResult stranger = RunProgram(L"rvhost", {L"--dll", reader});
    EXPECT_EQ(stranger.code, 3);
    EXPECT_EQ(stranger.output,
              "rvhost: " + ToUtf8(reader) + " does not hold the camera's class: result 0x80040111" + advice);
}

TEST_F(RvHost, ARelativePathStartsAtTheCurrentFolder) {
    const std::filesystem::path current = std::filesystem::current_path();
    const std::wstring relative = std::filesystem::path(Dll()).lexically_relative(current).wstring();
    ASSERT_FALSE(relative.empty());
    const ProgramResult found = RunProgram(
        L"rvhost", {L"--dll", relative, L"--geometry", L"320x180@30", L"--pipe", UniquePipeName(), L"--frames", L"2"});
    EXPECT_EQ(found.code, 0) << found.output;
    const ProgramResult missing = RunProgram(L"rvhost", {L"--dll", L"no-such-folder\\..\\missing.dll"});
    EXPECT_EQ(missing.code, 3);
    EXPECT_TRUE(
        missing.output.starts_with("rvhost: cannot load " + ToUtf8((current / L"missing.dll").wstring()) + ": "))
        << missing.output;
}

TEST_F(RvHost, AFileThatCannotBeWrittenIsAFailure) {
    const ProgramResult result =
        RunProgram(L"rvhost", {L"--dll", Dll(), L"--geometry", L"320x180@30", L"--pipe", UniquePipeName(), L"--frames",
                               L"2", L"--samples-csv", m_folder.File(L"no-such-folder\\samples.csv")});
    EXPECT_EQ(result.code, 1);
    EXPECT_TRUE(Contains(result.output, "rvhost: cannot write ")) << result.output;
}

/// Runs rvhost with the arguments behind the first one on a console of its own, presses Ctrl+C as soon as the file is
/// there that the first one names, and tells what came of it.
RAVLO_ROLE(PressCtrlC) {
    FreeConsole();
    if (!AllocConsole()) {
        return 3;
    }
    ChildProcess host = StartProgram(L"rvhost", Arguments(arguments.begin() + 1, arguments.end()));
    EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(arguments.front()); }, 20000, 10)) << host.Output();
    // Samples have to come before there is something to sum up.
    EXPECT_FALSE(host.Wait(500)) << host.Output();
    SetConsoleCtrlHandler(nullptr, TRUE);  // all programs of the console get it, and this one has to go on
    const ULONGLONG pressed = GetTickCount64();
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << GetLastError();
    const ProgramResult result = FinishProgram(host);
    std::printf("ended with %d after %llu ms\n%s", result.code, GetTickCount64() - pressed, result.output.c_str());
    return 0;
}

TEST_F(RvHost, CtrlCEndsItSoonWithASummaryAndCompleteFiles) {
    const std::wstring csv = m_folder.File(L"samples.csv");
    ChildProcess role =
        StartRole("PressCtrlC", {csv, L"--dll", Dll(), L"--geometry", L"160x90@30", L"--pipe", UniquePipeName(),
                                 L"--samples-csv", csv, L"--snapshot", m_folder.File(L"last.png"), L"--contact-sheet",
                                 m_folder.File(L"sheet.png"), L"--every", L"1", L"--y4m", m_folder.File(L"v.y4m")});
    ASSERT_EQ(role.Wait(60000), 0U) << role.Output();
    const std::string text = role.Output();
    int code = -1;
    unsigned long long milliseconds = 0;
    ASSERT_EQ(std::sscanf(text.c_str(), "ended with %d after %llu ms", &code, &milliseconds), 2) << text;
    EXPECT_EQ(code, 130) << text;
    EXPECT_LT(milliseconds, 4000U) << text;  // a second, and what a busy machine adds
    EXPECT_TRUE(Contains(text, "\nsamples:          ")) << text;
    EXPECT_TRUE(text.ends_with("rvhost: interrupted\n")) << text;
    EXPECT_EQ(m_folder.Read(L"last.png").substr(0, 8), kPngMark);
    EXPECT_GT(m_folder.Read(L"last.png").size(), 160U * 90 * 3) << "not compressed, to be quick";
    EXPECT_EQ(m_folder.Read(L"sheet.png").substr(0, 8), kPngMark);
    EXPECT_EQ((m_folder.Read(L"v.y4m").size() - 63) % (21'600 + 6), 0U);
}

// The next sample is two seconds away when Ctrl+C comes.
TEST_F(RvHost, CtrlCBetweenTwoRareSamplesKeepsTheLastOne) {
    ChildProcess role =
        StartRole("PressCtrlC", {m_folder.File(L"last-000001.png"), L"--dll", Dll(), L"--geometry", L"160x90@1/3",
                                 L"--pipe", UniquePipeName(), L"--samples-csv", m_folder.File(L"samples.csv"),
                                 L"--snapshot", m_folder.File(L"last.png"), L"--every", L"1", L"--contact-sheet",
                                 m_folder.File(L"sheet.png"), L"--y4m", m_folder.File(L"v.y4m")});
    ASSERT_EQ(role.Wait(60000), 0U) << role.Output();
    EXPECT_TRUE(role.Output().starts_with("ended with 130 after ")) << role.Output();
    EXPECT_EQ(m_folder.Read(L"last.png").substr(0, 8), kPngMark) << role.Output();
    EXPECT_EQ(m_folder.Read(L"sheet.png").substr(0, 8), kPngMark);
    const std::size_t frames = m_folder.Read(L"v.y4m").size() - 62;
    EXPECT_GT(frames, 0U);
    EXPECT_EQ(frames % (21'600 + 6), 0U);
    EXPECT_TRUE(m_folder.Read(L"samples.csv").ends_with(",pattern,1\n"));
}

/// Runs rvhost with standard output at a full pipe that nobody reads, on a console of its own, presses Ctrl+C when a
/// report is under way, and tells what came of it.
RAVLO_ROLE(PressCtrlCWhileOutputIsStuck) {
    FreeConsole();
    if (!AllocConsole()) {
        return 3;
    }
    constexpr DWORD kPipeBytes = 4096;
    SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    DWORD written = 0;
    EXPECT_TRUE(CreatePipe(&readEnd, &writeEnd, &inherited, kPipeBytes));
    EXPECT_TRUE(WriteFile(writeEnd, std::string(kPipeBytes, 'x').data(), kPipeBytes, &written, nullptr));
    std::wstring line = L"rvhost";
    for (auto argument = arguments.begin() + 1; argument != arguments.end(); ++argument) {
        line += L" \"" + *argument + L"\"";
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW((ProgramDirectory() + L"\\rvhost.exe").c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                        nullptr, &startup, &process)) {
        return 4;
    }
    EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(arguments.front()); }, 20000, 10));
    // Until the first report is due, and more.
    EXPECT_EQ(WaitForSingleObject(process.hProcess, 1500), static_cast<DWORD>(WAIT_TIMEOUT));
    SetConsoleCtrlHandler(nullptr, TRUE);
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << GetLastError();
    DWORD code = 0;
    EXPECT_EQ(WaitForSingleObject(process.hProcess, 5000), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_TRUE(GetExitCodeProcess(process.hProcess, &code));
    TerminateProcess(process.hProcess, 9);
    std::printf("ended with %lu\n", code);
    return 0;
}

TEST_F(RvHost, CtrlCEndsItWhileNobodyReadsItsOutput) {
    const std::wstring csv = m_folder.File(L"samples.csv");
    ChildProcess role =
        StartRole("PressCtrlCWhileOutputIsStuck", {csv, L"--dll", Dll(), L"--geometry", L"160x90@30", L"--pipe",
                                                   UniquePipeName(), L"--samples-csv", csv, L"--json"});
    ASSERT_EQ(role.Wait(60000), 0U) << role.Output();
    EXPECT_TRUE(Contains(role.Output(), "rvhost: interrupted\n")) << role.Output();
    EXPECT_TRUE(Contains(role.Output(), "ended with 130\n")) << role.Output();
}

TEST_F(RvHost, APreviewThatIsClosedEndsItWithASummary) {
    ChildProcess host =
        StartProgram(L"rvhost", {L"--dll", Dll(), L"--geometry", L"160x90@30", L"--pipe", UniquePipeName(),
                                 L"--preview", L"--samples-csv", m_folder.File(L"samples.csv")});
    HWND window = nullptr;
    ASSERT_TRUE(WaitUntil(
        [&] {
            window = FindWindowW(L"RavloPreview", nullptr);
            return window != nullptr && std::filesystem::exists(m_folder.File(L"samples.csv"));
        },
        20000, 10))
        << host.Output();
    EXPECT_FALSE(host.Wait(500)) << host.Output();
    EXPECT_TRUE(PostMessageW(window, WM_CLOSE, 0, 0)) << GetLastError();
    const ProgramResult result = FinishProgram(host);
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "geometry:         160x90 at 30/1\n")) << result.output;
    EXPECT_FALSE(Contains(result.output, "rvhost: ")) << result.output;
}

TEST_F(RvHost, APreviewEndsWithTheLastSample) {
    const ProgramResult result = RunProgram(L"rvhost", {L"--dll", Dll(), L"--geometry", L"160x90@30", L"--pipe",
                                                        UniquePipeName(), L"--preview", L"--frames", L"5"});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "samples:          5\n")) << result.output;
}

TEST_F(RvHost, TheUserIsNamedByItsSid) {
    const ProgramResult result = RunProgram(L"rvhost", {L"--print-user-sid"});
    EXPECT_EQ(result.code, 0);
    const std::wstring sid = CurrentUserSid();
    EXPECT_EQ(result.output, std::string(sid.begin(), sid.end()) + "\n");
}

TEST_F(RvHost, WrongUsageEndsWithTwoAndOneClearSentence) {
    const struct {
        Arguments arguments;
        const char* sentence;
    } cases[] = {
        {{L"--geometri", L"x"}, "rvhost: unknown option --geometri; did you mean --geometry?\n"},
        {{L"--geometry", L"1281x720@30"},
         "rvhost: \"1281x720@30\" is no geometry: an even WIDTHxHEIGHT@RATE, such as 1280x720@30 or 1280x720@30000/1001\n"},
        {{L"--pipe", L"Ravlo"},
         "rvhost: \"Ravlo\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number\n"},
        {{L"--seconds", L"-1"}, "rvhost: "},
        {{L"--frames", L"0"}, "rvhost: "},
    };
    for (const auto& wrong : cases) {
        const ProgramResult result = RunProgram(L"rvhost", wrong.arguments);
        EXPECT_EQ(result.code, 2) << wrong.sentence;
        EXPECT_EQ(result.output.substr(0, std::string(wrong.sentence).size()), wrong.sentence);
    }
}

}  // namespace
}  // namespace ravlo::test
