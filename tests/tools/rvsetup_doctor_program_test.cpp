// rvsetup.exe doctor as a user runs it, on a machine that the test prepares.
#include <gtest/gtest.h>

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <filesystem>
#include <string>

#include "common/wide_text.h"
#include "platform/local_memory.h"
#include "support/camera.h"
#include "support/pipe_client.h"
#include "support/trace_log.h"
#include "tools/program.h"
#include "tools/rvsetup_doctor_stage.h"

namespace ravlo::test {
namespace {

ProgramResult Doctor(Arguments more = {}) {
    more.insert(more.begin(), L"doctor");
    return RunProgram(L"rvsetup", more);
}

/// A machine with the built module registered and the current user named.
class InstalledDoctor : public ::testing::Test {
protected:
    InstalledDoctor() {
        const ModuleUnderTest module;  // whose first line makes the folder of the log
    }

    std::string Sid() const { return ToUtf8(CurrentUserSid()); }

    AnchorGuard m_anchor{CurrentUserSid()};
    RegisteredClass m_class{BuiltDll()};
    TraceLog m_log;
};

/// The same with a camera of this process at work.
class RunningDoctor : public InstalledDoctor {
protected:
    RunningDoctor() {
        if (!WaitForPipe(m_camera.PipeName()) || !m_log.WaitForLine("GATE serving ")) {
            throw std::runtime_error("the camera has no pipe");
        }
    }

    std::string Pipe() const { return ToUtf8(m_camera.PipeName()); }
    std::string ServedByUs() const {
        std::wstring program(MAX_PATH, L'\0');
        program.resize(GetModuleFileNameW(nullptr, program.data(), MAX_PATH));
        return "served by " + ToUtf8(program.substr(program.rfind(L'\\') + 1)) + " (" +
               std::to_string(GetCurrentProcessId()) + "), owner " + Sid() + ", lets in " + Sid();
    }

    ModuleUnderTest m_module;
    Camera m_camera{m_module};
};

TEST(Doctor, WithNothingInstalledSaysSoAndEndsWithThree) {
    AnchorGuard anchor;
    anchor.DeleteKey();
    const ProgramResult result = Doctor();
    EXPECT_EQ(result.code, 3) << result.output;
    EXPECT_TRUE(Contains(result.output,
                         "FAIL the camera is not installed: its class is not registered\n"
                         "     as administrator: rvsetup install --me\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "FAIL the user who may send frames: ABSENT - nobody is named"))
        << result.output;
    EXPECT_FALSE(Contains(result.output, "LOCAL SERVICE"));
}

TEST(Doctor, NamesWhatIsWrongWithTheAnchor) {
    const RegisteredClass registered(BuiltDll());
    AnchorGuard anchor;
    const struct {
        const wchar_t* sid;
        const char* line;
        int code;
    } cases[] = {
        {L"S-1-5-32-545", "FAIL the user who may send frames: NOT_A_USER - the SID is that of a group", 1},
        {L"somebody", "FAIL the user who may send frames: MALFORMED - the registry value is no SID", 1},
        {L"S-1-5-18", "FAIL frames may be sent by NT AUTHORITY\\SYSTEM (S-1-5-18), which is no user", 1},
        {L"S-1-5-21-9-9-9-9999",
         "WARN frames may be sent by S-1-5-21-9-9-9-9999; no account of this machine has that SID", 0},
    };
    for (const auto& expected : cases) {
        anchor.Set(expected.sid);
        const ProgramResult result = Doctor();
        EXPECT_TRUE(Contains(result.output, expected.line)) << result.output;
        EXPECT_EQ(result.code, expected.code) << result.output;
    }
    anchor.Delete();
    EXPECT_EQ(Doctor().code, 3);
    const DWORD number = 7;
    anchor.SetRaw(REG_DWORD, std::as_bytes(std::span(&number, 1)));
    EXPECT_TRUE(Contains(Doctor().output, "WRONG_TYPE - the registry value is no text"));
}

TEST_F(InstalledDoctor, WithoutACameraHasNoFailure) {
    const ProgramResult result = Doctor();
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "OK   registered, 64-bit, threading model Both: " + ToUtf8(BuiltDll()) + "\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output,
                         "OK   the module and the DLLs that it needs are there; it was not run (rvsetup "
                         "doctor --probe runs it); version "))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "OK   LOCAL SERVICE may read and run the module, and list ")) << result.output;
    EXPECT_TRUE(Contains(result.output, "(" + Sid() + "): that is you\n")) << result.output;
    EXPECT_TRUE(Contains(result.output, "C:\\ProgramData\\Ravlo: OK")) << result.output;
}

TEST_F(InstalledDoctor, RunsTheModuleOnlyWhenItProbes) {
    const std::wstring log = TraceLogPaths()[0];
    const auto before = std::filesystem::file_size(log);
    EXPECT_EQ(Doctor().code, 0);
    EXPECT_EQ(std::filesystem::file_size(log), before);
    const ProgramResult probed = Doctor({L"--probe"});
    EXPECT_TRUE(Contains(probed.output, "OK   the module loads and offers the camera's class; version "))
        << probed.output;
    EXPECT_GT(std::filesystem::file_size(log), before);
}

TEST_F(InstalledDoctor, MakesNoLogWhereNoneIs) {
    const std::filesystem::path folder = std::filesystem::path(TraceLogPaths()[0]).parent_path();
    const std::filesystem::path aside = folder.wstring() + L".aside";
    const std::filesystem::path last = TraceLogPaths()[2];
    const bool hadLast = std::filesystem::exists(last);
    std::filesystem::rename(folder, aside);
    for (const Arguments& arguments : {Arguments{}, Arguments{L"--probe"}}) {
        const ProgramResult result = Doctor(arguments);
        EXPECT_TRUE(Contains(result.output, "it was not run (")) << result.output;
        EXPECT_FALSE(std::filesystem::exists(folder));
        EXPECT_EQ(std::filesystem::exists(last), hadLast);
    }
    std::filesystem::rename(aside, folder);
}

TEST_F(InstalledDoctor, AnswersInJson) {
    const ProgramResult result = Doctor({L"--json"});
    EXPECT_EQ(result.code, 0);
    EXPECT_TRUE(result.output.starts_with(R"({"checks":[{"id":"windows","result":")")) << result.output;
    EXPECT_TRUE(Contains(result.output, R"({"id":"module","result":"OK","found":"registered, 64-bit)"))
        << result.output;
    EXPECT_TRUE(result.output.ends_with("\"worst\":\"WARN\",\"exit\":0}\n")) << result.output;
}

TEST_F(InstalledDoctor, APipeThatWasAskedForAndIsAbsentEndsWithFive) {
    const ProgramResult result = Doctor({L"--pipe", L"\\\\.\\pipe\\Ravlo.4294967295"});
    EXPECT_EQ(result.code, 5) << result.output;
    EXPECT_TRUE(Contains(result.output, "FAIL \\\\.\\pipe\\Ravlo.4294967295 is not there: no camera serves it\n"));
}

TEST_F(RunningDoctor, ACameraWithoutAProducerIsDescribedFromTheLogAndNotTouched) {
    const ProgramResult result = Doctor();
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "OK   " + Pipe() + " is there, waiting for a producer; " + ServedByUs() +
                                            "; nobody has asked for samples yet\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "WARN no producer is connected; ")) << result.output;
    EXPECT_FALSE(m_log.Contains("PIPE client connected")) << m_log.Text();
}

TEST_F(RunningDoctor, APipeWithAProducerIsBusyAndPresent) {
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_camera.PipeName())) << m_log.Text();
    m_camera.Start();
    ASSERT_TRUE(producer.SendFrame(320, 180, 5));
    ASSERT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180")) << m_log.Text();
    m_camera.Pull();
    ASSERT_TRUE(m_log.WaitForLine("STM.RequestSample observed ")) << m_log.Text();
    const ProgramResult result = Doctor({L"--pipe", m_camera.PipeName()});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "OK   " + Pipe() + " is there, with a producer on it; " + ServedByUs() + "; "))
        << result.output;
    EXPECT_FALSE(Contains(result.output, "nobody has asked for samples yet")) << result.output;
    EXPECT_TRUE(Contains(result.output, "OK   a producer sends 320x180 to " + Pipe())) << result.output;
    const ProgramResult probed = Doctor({L"--probe", L"--pipe", m_camera.PipeName()});
    EXPECT_EQ(probed.code, 0) << probed.output;
    EXPECT_TRUE(Contains(probed.output, "OK   the gate says: 1 samples asked for, the last ")) << probed.output;
    EXPECT_TRUE(Contains(probed.output, "OK   the frame pipe has a producer on it and was left alone\n"))
        << probed.output;
    EXPECT_EQ(m_log.CountLines("PIPE client connected"), 1U) << m_log.Text();
}

TEST_F(RunningDoctor, AProducerOfAnotherSizeIsExplained) {
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_camera.PipeName())) << m_log.Text();
    ASSERT_TRUE(producer.SendFrame(160, 90, 5));
    ASSERT_TRUE(m_log.WaitForLine("PIPE geometry mismatch")) << m_log.Text();
    const ProgramResult result = Doctor({L"--pipe", m_camera.PipeName()});
    EXPECT_TRUE(Contains(result.output, "but sends another size than the camera shows")) << result.output;
    EXPECT_TRUE(Contains(result.output,
                         "]: PIPE geometry mismatch: wire 160x90, advertised 320x180 - pattern\n"
                         "     give both the same size"))
        << result.output;
}

TEST_F(RunningDoctor, AProbeReadsARecordAndLearnsTheOwner) {
    const ProgramResult result = Doctor({L"--probe", L"--pipe", m_camera.PipeName()});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "OK   the gate says: nobody has asked for samples yet; owner " + Sid() + "\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "OK   the frame pipe lets you in; it belongs to the authorized user from HKLM"))
        << result.output;
    EXPECT_TRUE(m_log.WaitForLine("PIPE the writer closed the pipe")) << m_log.Text();
    EXPECT_FALSE(m_log.Contains("PIPE delivering live frames")) << m_log.Text();
}

TEST_F(RunningDoctor, AProbeLeavesAGateThatIsReadAlone) {
    GateClient reader;
    ASSERT_TRUE(reader.Connect(m_camera.PipeName()));
    const ProgramResult result = Doctor({L"--probe", L"--pipe", m_camera.PipeName()});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "OK   the gate pipe has a producer on it and was left alone\n"))
        << result.output;
    EXPECT_TRUE(reader.Read(2000).has_value());
}

TEST_F(RunningDoctor, ARefusedAnchorOfARunningCameraIsFoundInTheLog) {
    m_anchor.Delete();
    const Camera without(m_module, {.pipeName = UniquePipeName()});
    ASSERT_TRUE(m_log.WaitForLine("FAIL PIPE no usable authorization anchor (ABSENT)")) << m_log.Text();
    const ProgramResult result = Doctor();
    EXPECT_EQ(result.code, 3) << result.output;
    EXPECT_TRUE(Contains(result.output, "has the camera open, but its pipe " + ToUtf8(without.PipeName()) +
                                            " is not there\n     see what failed, below\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "WARN nobody was named who may send frames, so there is no pipe"))
        << result.output;
}

TEST_F(InstalledDoctor, AProbeTrustsNoPipeOfAStranger) {
    const std::wstring name = UniquePipeName();
    const UniqueFile frames = PipeOwnedBy(name, L"NS");
    const UniqueFile gate = PipeOwnedBy(name + L".gate", L"NS");
    ASSERT_TRUE(frames && gate);
    const ProgramResult quiet = Doctor({L"--pipe", name});
    EXPECT_TRUE(
        Contains(quiet.output, "the log does not say who serves it\n     rvsetup doctor --probe tells whose it is\n"))
        << quiet.output;
    const ProgramResult result = Doctor({L"--probe", L"--pipe", name});
    EXPECT_EQ(result.code, 4) << result.output;
    EXPECT_TRUE(Contains(result.output, "FAIL the gate pipe belongs to S-1-5-20, whom a producer does not trust\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "FAIL the frame pipe is of no use to you: it belongs to somebody whom"))
        << result.output;
}

/// Probes a gate that says nothing, in a console of its own, and presses Ctrl+C there meanwhile.
RAVLO_ROLE(InterruptProbing) {
    FreeConsole();
    if (!AllocConsole()) {
        return 3;
    }
    SetConsoleCtrlHandler([](DWORD) -> BOOL { return TRUE; }, TRUE);
    const std::wstring name = UniquePipeName();
    const UniqueFile frames = PipeOwnedBy(name, L"SY");
    const UniqueFile gate = PipeOwnedBy(name + L".gate", L"SY");
    ChildProcess child = StartProgram(L"rvsetup", {L"doctor", L"--probe", L"--pipe", name});
    EXPECT_TRUE(ConnectNamedPipe(gate.Get(), nullptr) || GetLastError() == ERROR_PIPE_CONNECTED) << GetLastError();
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << GetLastError();
    EXPECT_EQ(child.Wait(1500), 130U) << child.Output();
    EXPECT_EQ(child.Output(), "rvsetup: interrupted before all checks were made\n");
    return 0;
}

TEST(Doctor, CtrlCEndsAProbeAtOnceAndWithItsCode) {
    ChildProcess role = StartRole("InterruptProbing");
    EXPECT_EQ(role.Wait(), 0U) << role.Output();
}

TEST(Doctor, TellsWhatIsWrongWithTheRegisteredFile) {
    const AnchorGuard anchor(CurrentUserSid());
    const TemporaryFolder folder;
    std::wstring system(MAX_PATH, L'\0');
    system.resize(GetSystemDirectoryW(system.data(), MAX_PATH));
    const struct {
        std::wstring dll;
        const wchar_t* model;
        const char* line;
        int code;
    } cases[] = {
        {L"rvmediasource.dll", L"Both", "FAIL the registered path is not absolute: rvmediasource.dll; ", 1},
        {folder.File(L"gone.dll"), L"Both", "FAIL the registered file is not there: ", 3},
        {folder.Path().wstring(), L"Both", "FAIL the registered file is not there: ", 3},
        {folder.Write(L"text.dll", "no program"), L"Both", " is no Windows program file\n", 1},
        {ProgramDirectory() + L"\\rvsetup.exe", L"Both", " is a program and no DLL\n", 1},
        {system + L"\\kernel32.dll", L"Both", "it exports no DllGetClassObject\n", 1},
        {BuiltDll(), L"Apartment", "FAIL the registered threading model is \"Apartment\" and must be Both\n", 1},
        {BuiltDll(), L"", "FAIL the registration names no threading model; it must be Both\n", 1},
    };
    for (const auto& wrong : cases) {
        const RegisteredClass registered(wrong.dll, wrong.model);
        const ProgramResult result = Doctor();
        EXPECT_EQ(result.code, wrong.code) << result.output;
        EXPECT_TRUE(Contains(result.output, wrong.line)) << result.output;
    }
}

TEST(Doctor, AModuleThatOnlyItsOwnerMayReadIsClosedToTheService) {
    const AnchorGuard anchor(CurrentUserSid());
    const TemporaryFolder folder;
    const std::wstring dll = folder.File(L"rvmediasource.dll");
    ASSERT_TRUE(CopyFileW(BuiltDll().c_str(), dll.c_str(), TRUE));
    LocalMemory<PSECURITY_DESCRIPTOR> descriptor;
    const std::wstring sddl = L"D:P(A;;FA;;;" + CurrentUserSid() + L")";
    ASSERT_TRUE(
        ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, descriptor.Put(), nullptr));
    ASSERT_TRUE(SetFileSecurityW(dll.c_str(), DACL_SECURITY_INFORMATION, descriptor.Get()));
    const RegisteredClass registered(dll);
    const ProgramResult result = Doctor();
    EXPECT_EQ(result.code, 4) << result.output;
    EXPECT_TRUE(Contains(result.output, "FAIL LOCAL SERVICE, the account of the camera service, may not read and run " +
                                            ToUtf8(dll) + "\n"))
        << result.output;
}

TEST(Doctor, WrongUsageEndsWithTwoAndOneClearSentence) {
    const struct {
        Arguments arguments;
        const char* sentence;
    } cases[] = {
        {{L"--prob"}, "rvsetup: unknown option --prob; did you mean --probe?\n"},
        {{L"--pip", L"x"}, "rvsetup: unknown option --pip; did you mean --pipe?\n"},
        {{L"--pipe"}, "rvsetup: --pipe"},
        {{L"--pipe", L"Ravlo"},
         "rvsetup: \"Ravlo\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number\n"},
        {{L"--pipe", L"\\\\.\\pipe\\Ravlo.gate"}, "rvsetup: \"\\\\.\\pipe\\Ravlo.gate\" is no frame pipe: "},
        {{L"--pipe", L"\\\\.\\pipe\\Ravlo.01"}, "rvsetup: \"\\\\.\\pipe\\Ravlo.01\" is no frame pipe: "},
        {{L"--pipe", L"\\\\.\\pipe\\ravlo"}, "rvsetup: \"\\\\.\\pipe\\ravlo\" is no frame pipe: "},
        {{L"--pipe", L"a", L"--pipe", L"b"}, "rvsetup: --pipe"},
        {{L"now"}, "rvsetup: what is \"now\" for? Nothing more was expected here\n"},
        {{L"--json=maybe"}, "rvsetup: "},
    };
    for (const auto& wrong : cases) {
        const ProgramResult result = Doctor(wrong.arguments);
        EXPECT_EQ(result.code, 2) << wrong.sentence;
        EXPECT_TRUE(result.output.starts_with(wrong.sentence)) << result.output;
        EXPECT_TRUE(result.output.ends_with("rvsetup: try --help\n")) << result.output;
    }
}

}  // namespace
}  // namespace ravlo::test
