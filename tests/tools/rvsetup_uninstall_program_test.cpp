// rvsetup.exe takes away what it has installed, and nothing else.
#include "support/camera.h"
#include "tools/program.h"
#include "tools/rvsetup_install_machine.h"

namespace ravlo::test {
namespace {

using Uninstall = InstallTest;

TEST_F(Uninstall, WithNothingInstalledThereIsNothingToDo) {
    const Snapshot before = TakeSnapshot();
    for (const Arguments& arguments : {Arguments{L"uninstall"}, Arguments{L"uninstall", L"--dry-run"}}) {
        const ProgramResult result = RunProgram(L"rvsetup", arguments);
        EXPECT_EQ(result.code, 3);
        EXPECT_EQ(result.output, "rvsetup: nothing is installed\n");
    }
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(Uninstall, ACameraThatWasRegisteredByHandIsNotTouched) {
    MakeUsedMachine();
    const Snapshot before = TakeSnapshot();
    const ProgramResult result = RunProgram(L"rvsetup", {L"uninstall"});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.output,
              "rvsetup: nothing was installed by rvsetup; the camera is registered for E:\\other\\camera.dll, and "
              "\"regsvr32 /u\" with that path takes it away\n");
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(Uninstall, TheInstalledProgramRemovesItself) {
    const Snapshot before = TakeSnapshot();
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    ChildProcess own(std::wstring(kProgramFolder) + L"\\1.0.0\\rvsetup.exe", {L"uninstall"});
    const ProgramResult result = FinishProgram(own);
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_FALSE(std::filesystem::exists(kProgramFolder)) << result.output;
    // Where the system does not let a running program go, it waits in a folder that the next run empties.
    EXPECT_EQ(RunProgram(L"rvsetup", {L"uninstall"}).code, 3);
    EXPECT_EQ(Difference(before, TakeSnapshot()), "") << result.output;
}

TEST_F(Uninstall, AnAnchorThatSomebodyChangedSinceStays) {
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    m_anchor.Set(L"S-1-5-21-7-7-7-1007");
    const ProgramResult result = RunProgram(L"rvsetup", {L"uninstall"});
    EXPECT_EQ(result.code, 0);
    EXPECT_TRUE(Contains(result.output,
                         "rvsetup: HKLM\\SOFTWARE\\Ravlo AuthorizedUserSid is left alone: it is no longer what was "
                         "written by rvsetup install\n"))
        << result.output;
    Snapshot registry;
    SnapshotKey(kAnchorKey, registry);
    EXPECT_EQ(registry.size(), 2U);
    SnapshotKey(kClassKey, registry);
    EXPECT_EQ(registry.size(), 2U);
}

TEST_F(Uninstall, OtherThingsInOurPlacesStay) {
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    WriteBytes(std::wstring(kProgramFolder) + L"\\1.0.0\\notes.txt", "mine");
    WriteBytes(std::wstring(kLogFolder) + L"\\notes.txt", "mine");
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kAnchorKey, L"Mine", REG_SZ, L"x", 4), ERROR_SUCCESS);
    const ProgramResult result = RunProgram(L"rvsetup", {L"uninstall"});
    EXPECT_EQ(result.code, 0) << result.output;
    for (const char* folder : {"C:\\Program Files\\Ravlo\\1.0.0", "C:\\Program Files\\Ravlo"}) {
        EXPECT_TRUE(Contains(result.output, "rvsetup: " + std::string(folder) +
                                                " stays: it holds files that rvsetup did not put there\n"))
            << result.output;
    }
    EXPECT_TRUE(
        Contains(result.output, "rvsetup: C:\\ProgramData\\Ravlo stays: it holds files other than the trace log\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "rvsetup: HKLM\\SOFTWARE\\Ravlo stays: it holds what rvsetup did not write\n"))
        << result.output;
    EXPECT_FALSE(Contains(result.output, "rvsetup: removed C:\\Program Files\\Ravlo\\1.0.0\n")) << result.output;
    EXPECT_EQ(FileBytes(std::wstring(kProgramFolder) + L"\\1.0.0\\notes.txt"), "mine");
    EXPECT_EQ(FileBytes(std::wstring(kLogFolder) + L"\\notes.txt"), "mine");
    EXPECT_FALSE(std::filesystem::exists(std::wstring(kLogFolder) + L"\\trace.log"));
    EXPECT_EQ(RunProgram(L"rvsetup", {L"uninstall"}).code, 3);
}

TEST_F(Uninstall, TheLogStaysWhenAskedTo) {
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    const ProgramResult result = RunProgram(L"rvsetup", {L"uninstall", L"--keep-log"});
    EXPECT_EQ(result.code, 0);
    EXPECT_TRUE(Contains(result.output, "rvsetup: C:\\ProgramData\\Ravlo stays, with the trace log\n"));
    EXPECT_TRUE(Contains(FileBytes(std::wstring(kLogFolder) + L"\\trace.log"), "ATTACH DLL_PROCESS_ATTACH"));
}

TEST_F(Uninstall, WithADamagedRecordNothingIsTouched) {
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    WriteBytes(std::wstring(kProgramFolder) + L"\\install.json", "{\"format\": 1, ");
    const Snapshot before = TakeSnapshot();
    for (const Arguments& arguments : {Arguments{L"uninstall"}, Arguments{L"install", L"--me"}}) {
        const ProgramResult result = RunProgram(L"rvsetup", arguments);
        EXPECT_EQ(result.code, 1);
        EXPECT_TRUE(
            Contains(result.output,
                     "rvsetup: C:\\Program Files\\Ravlo\\install.json, which tells what was there before the "
                     "install, is damaged or of another version of rvsetup; move it away to go on without it\n"))
            << result.output;
    }
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

}  // namespace
}  // namespace ravlo::test
