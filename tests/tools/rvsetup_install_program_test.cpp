// rvsetup.exe installs, as a user runs it.
#include "support/camera.h"
#include "tools/program.h"
#include "tools/rvsetup_install_machine.h"

namespace ravlo::test {
namespace {

std::string Utf8CurrentUserSid() {
    return ToUtf8(CurrentUserSid());
}

using Install = InstallTest;

TEST_F(Install, EverythingIsInItsPlaceAndGoesAgain) {
    const Snapshot before = TakeSnapshot();
    const ProgramResult installed = RunProgram(L"rvsetup", {L"install", L"--me"});
    EXPECT_EQ(installed.code, 0) << installed.output;
    EXPECT_TRUE(Contains(installed.output, "the user who may send frames: ")) << installed.output;
    EXPECT_TRUE(Contains(installed.output, " (" + Utf8CurrentUserSid() + "), the account of this console;"))
        << installed.output;
    EXPECT_TRUE(Contains(installed.output, "rvsetup: Ravlo 1.0.0 is installed. Next: \"rvsetup doctor\" checks it"))
        << installed.output;
    const std::wstring dll = std::wstring(kProgramFolder) + L"\\1.0.0\\rvmediasource.dll";
    EXPECT_EQ(FileBytes(dll), FileBytes(BuiltDll()));
    for (const wchar_t* program : {L"rvsetup.exe", L"rvhost.exe", L"rvfeeder.exe", L"rvclient.exe"}) {
        EXPECT_EQ(FileBytes(std::wstring(kProgramFolder) + L"\\1.0.0\\" + program),
                  FileBytes(ProgramDirectory() + L"\\" + program));
    }
    EXPECT_EQ(RegistryText(kAnchorKey, L"AuthorizedUserSid"), CurrentUserSid());
    EXPECT_EQ(RegisteredDll(), dll);
    EXPECT_TRUE(std::filesystem::is_directory(kLogFolder));
    const ProgramResult host =
        RunProgram(L"rvhost", {L"--geometry", L"320x180@30", L"--pipe", UniquePipeName(), L"--frames", L"2"});
    EXPECT_EQ(host.code, 0) << host.output;
    const ProgramResult removed = RunProgram(L"rvsetup", {L"uninstall"});
    EXPECT_EQ(removed.code, 0) << removed.output;
    EXPECT_TRUE(Contains(removed.output, "rvsetup: the camera is uninstalled; restart programs that have it open\n"));
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(Install, WhatWasThereBeforeIsThereAgain) {
    MakeUsedMachine();
    const Snapshot before = TakeSnapshot();
    const ProgramResult installed = RunProgram(L"rvsetup", {L"install", L"--me"});
    EXPECT_EQ(installed.code, 0) << installed.output;
    EXPECT_EQ(RegisteredDll(), std::wstring(kProgramFolder) + L"\\1.0.0\\rvmediasource.dll");
    const ProgramResult again = RunProgram(L"rvsetup", {L"install", L"--user", L"S-1-5-21-1-2-3-1001"});
    EXPECT_EQ(again.code, 0) << again.output;
    EXPECT_EQ(RegistryText(kAnchorKey, L"AuthorizedUserSid"), L"S-1-5-21-1-2-3-1001");
    const ProgramResult removed = RunProgram(L"rvsetup", {L"uninstall"});
    EXPECT_EQ(removed.code, 0) << removed.output;
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(Install, ADryRunListsTheChangesAndMakesNone) {
    MakeUsedMachine();
    const Snapshot before = TakeSnapshot();
    const ProgramResult install = RunProgram(L"rvsetup", {L"install", L"--me", L"--dry-run"});
    EXPECT_EQ(install.code, 0) << install.output;
    for (const std::string& line :
         {std::string("write     C:\\Program Files\\Ravlo\\install.json (what uninstall puts back)\n"),
          std::string("rename    C:\\Program Files\\Ravlo\\1.0.0\\rvmediasource.dll to C:\\Program "
                      "Files\\Ravlo\\1.0.0\\rvmediasource.dll.before\n"),
          "copy      " + ToUtf8(BuiltDll()) + " to C:\\Program Files\\Ravlo\\1.0.0\\rvmediasource.dll\n",
          "write     HKLM\\SOFTWARE\\Ravlo AuthorizedUserSid = " + Utf8CurrentUserSid() + "\n",
          "secure    C:\\ProgramData\\Ravlo (trace log: owner Administrators; LOCAL SERVICE and " +
              Utf8CurrentUserSid() + " may write)\n",
          std::string("register  C:\\Program Files\\Ravlo\\1.0.0\\rvmediasource.dll\n"),
          std::string("rvsetup: nothing was changed: this was a dry run\n")}) {
        EXPECT_TRUE(Contains(install.output, line)) << line << install.output;
    }
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    const Snapshot installed = TakeSnapshot();
    const ProgramResult uninstall = RunProgram(L"rvsetup", {L"uninstall", L"--dry-run"});
    EXPECT_EQ(uninstall.code, 0) << uninstall.output;
    EXPECT_TRUE(Contains(uninstall.output, "restore   HKLM\\SOFTWARE\\Ravlo AuthorizedUserSid\n")) << uninstall.output;
    EXPECT_TRUE(Contains(uninstall.output, "restore   C:\\Program Files\\Ravlo\\1.0.0\\rvmediasource.dll from "))
        << uninstall.output;
    EXPECT_EQ(Difference(installed, TakeSnapshot()), "");
}

TEST_F(Install, ChangesAreListedAsJson) {
    const ProgramResult dry = RunProgram(L"rvsetup", {L"install", L"--me", L"--dry-run", L"--json"});
    EXPECT_TRUE(Contains(dry.output,
                         "{\n  \"dryRun\": true,\n  \"changes\": [\n    {\n      \"action\": \"create\",\n"
                         "      \"target\": \"C:\\\\Program Files\\\\Ravlo\",\n"))
        << dry.output;
    EXPECT_FALSE(Contains(dry.output, "\"done\": true"));
    const ProgramResult real = RunProgram(L"rvsetup", {L"install", L"--me", L"--json"});
    EXPECT_EQ(real.code, 0);
    EXPECT_TRUE(Contains(real.output,
                         "      \"action\": \"register\",\n"
                         "      \"target\": \"C:\\\\Program Files\\\\Ravlo\\\\1.0.0\\\\rvmediasource.dll\",\n"
                         "      \"source\": \"\",\n      \"done\": true\n"))
        << real.output;
    EXPECT_FALSE(Contains(real.output, "\"done\": false"));
    const ProgramResult back = RunProgram(L"rvsetup", {L"uninstall", L"--json"});
    EXPECT_EQ(back.code, 0);
    EXPECT_TRUE(Contains(back.output, "      \"action\": \"remove\",\n")) << back.output;
}

TEST_F(Install, TheAnchorThatIsThereIsKept) {
    m_anchor.Set(CurrentUserSid());
    const ProgramResult result = RunProgram(L"rvsetup", {L"install"});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_FALSE(Contains(result.output, "AuthorizedUserSid =")) << result.output;
    ASSERT_EQ(RunProgram(L"rvsetup", {L"uninstall"}).code, 0);
    EXPECT_EQ(RegistryText(kAnchorKey, L"AuthorizedUserSid"), CurrentUserSid());
}

TEST_F(Install, TheInstalledProgramNamesAnotherUser) {
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    ChildProcess own(std::wstring(kProgramFolder) + L"\\1.0.0\\rvsetup.exe",
                     {L"install", L"--user", L"S-1-5-21-1-2-3-1001"});
    const ProgramResult result = FinishProgram(own);
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "rvsetup: warning: S-1-5-21-1-2-3-1001 is no account that this machine knows"));
    EXPECT_TRUE(
        Contains(result.output, "rvsetup: wrote HKLM\\SOFTWARE\\Ravlo AuthorizedUserSid = S-1-5-21-1-2-3-1001\n"));
    EXPECT_FALSE(Contains(result.output, "rvsetup: copied ")) << result.output;
    EXPECT_FALSE(Contains(result.output, "rvsetup: registered ")) << result.output;
}

TEST_F(Install, AnAccountNameWillDo) {
    std::wstring account(256, L'\0');
    DWORD length = 256;
    ASSERT_TRUE(GetUserNameW(account.data(), &length));
    account.resize(length - 1);
    const ProgramResult result = RunProgram(L"rvsetup", {L"install", L"--user", account, L"--dry-run"});
    EXPECT_EQ(result.code, 0);
    EXPECT_TRUE(Contains(result.output, "AuthorizedUserSid = " + Utf8CurrentUserSid() + "\n")) << result.output;
}

TEST_F(Install, AnotherVersionTakesThePlaceOfTheFirst) {
    const Snapshot before = TakeSnapshot();
    const TemporaryFolder folder;
    const std::wstring newer = folder.Write(L"any-name.dll", DllOfAnotherVersion());
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    const ProgramResult result = RunProgram(L"rvsetup", {L"install", L"--dll", newer});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "rvsetup: Ravlo 1.1.0 is installed.")) << result.output;
    EXPECT_EQ(RegisteredDll(), std::wstring(kProgramFolder) + L"\\1.1.0\\rvmediasource.dll");
    EXPECT_EQ(FileBytes(RegisteredDll()), FileBytes(newer));
    EXPECT_FALSE(std::filesystem::exists(std::wstring(kProgramFolder) + L"\\1.0.0"));
    EXPECT_FALSE(Contains(FileBytes(std::wstring(kProgramFolder) + L"\\install.json"), "1.0.0"));
    const ProgramResult removed = RunProgram(L"rvsetup", {L"uninstall"});
    EXPECT_EQ(removed.code, 0) << removed.output;
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(Install, AVersionThatCannotBeMovedStaysUntilTheNextRun) {
    const Snapshot before = TakeSnapshot();
    const TemporaryFolder folder;
    const std::wstring newer = folder.Write(L"rvmediasource.dll", DllOfAnotherVersion());
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    const HANDLE user =
        CreateFileW(RegisteredDll().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(user, INVALID_HANDLE_VALUE);
    const ProgramResult blocked = RunProgram(L"rvsetup", {L"install", L"--dll", newer});
    EXPECT_EQ(blocked.code, 0) << blocked.output;
    EXPECT_TRUE(Contains(blocked.output,
                         "rvsetup: an older version stays for now: cannot remove C:\\Program "
                         "Files\\Ravlo\\1.0.0\\rvmediasource.dll: "))
        << blocked.output;
    EXPECT_EQ(RegisteredDll(), std::wstring(kProgramFolder) + L"\\1.1.0\\rvmediasource.dll");
    CloseHandle(user);
    const ProgramResult finished = RunProgram(L"rvsetup", {L"install", L"--dll", newer});
    EXPECT_EQ(finished.code, 0) << finished.output;
    EXPECT_FALSE(std::filesystem::exists(std::wstring(kProgramFolder) + L"\\1.0.0"));
    EXPECT_EQ(RunProgram(L"rvsetup", {L"uninstall"}).code, 0);
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(Install, ALoadedVersionMakesWayAndGoesLater) {
    const Snapshot before = TakeSnapshot();
    const TemporaryFolder folder;
    const std::wstring newer = folder.Write(L"rvmediasource.dll", DllOfAnotherVersion());
    ASSERT_EQ(RunProgram(L"rvsetup", {L"install", L"--me"}).code, 0);
    const HMODULE loaded = LoadLibraryExW(RegisteredDll().c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    ASSERT_NE(loaded, nullptr);
    const ProgramResult result = RunProgram(L"rvsetup", {L"install", L"--dll", newer});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(
        Contains(result.output,
                 "rvsetup: C:\\Program Files\\Ravlo\\1.0.0\\rvmediasource.dll is in use by a running program; it was "
                 "moved to C:\\Program Files\\Ravlo.old\\1-rvmediasource.dll"))
        << result.output;
    EXPECT_FALSE(std::filesystem::exists(std::wstring(kProgramFolder) + L"\\1.0.0"));
    FreeLibrary(loaded);
    EXPECT_EQ(RunProgram(L"rvsetup", {L"uninstall"}).code, 0);
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

/// rvsetup.exe alone in a folder, as somebody keeps it who installed long ago.
class LoneSetup : public InstallTest {
protected:
    LoneSetup() {
        std::filesystem::copy_file(ProgramDirectory() + L"\\rvsetup.exe", m_folder.File(L"rvsetup.exe"),
                                   std::filesystem::copy_options::overwrite_existing);
    }

    ProgramResult Run(const Arguments& arguments) {
        ChildProcess child(m_folder.File(L"rvsetup.exe"), arguments);
        return FinishProgram(child);
    }

    TemporaryFolder m_folder;
};

TEST_F(LoneSetup, TheAdviceOfTheLogWritesTheAnchorOfARegisteredCamera) {
    constexpr wchar_t kServer[] = L"E:\\camera.dll";
    SetClassValue(L"\\InprocServer32", nullptr, REG_SZ, kServer, sizeof kServer);
    const Snapshot before = TakeSnapshot();
    const ProgramResult result = Run({L"--install", CurrentUserSid()});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(Contains(result.output,
                         "rvsetup: the camera is registered already, for E:\\camera.dll; only the user is written\n"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "rvsetup: the user may send frames now; the camera notices within a second\n"));
    EXPECT_EQ(RegistryText(kAnchorKey, L"AuthorizedUserSid"), CurrentUserSid());
    EXPECT_FALSE(std::filesystem::exists(kLogFolder));
    EXPECT_EQ(Run({L"uninstall"}).code, 0);
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(LoneSetup, WithNothingToInstallItSaysSo) {
    const Snapshot before = TakeSnapshot();
    for (const Arguments& arguments : {Arguments{L"--install", CurrentUserSid()}, Arguments{L"install", L"--me"}}) {
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.code, 1);
        EXPECT_TRUE(
            Contains(result.output, "rvsetup: there is no " + ToUtf8(m_folder.File(L"rvmediasource.dll")) +
                                        "\n"
                                        "rvsetup: put rvsetup.exe beside the camera's DLL, or name it with --dll "
                                        "PATH\n"))
            << result.output;
    }
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(Install, TheShortFormInstallsWhatLiesBesideIt) {
    const ProgramResult result = RunProgram(L"rvsetup", {L"--install", CurrentUserSid()});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_EQ(RegisteredDll(), std::wstring(kProgramFolder) + L"\\1.0.0\\rvmediasource.dll");
    EXPECT_EQ(RegistryText(kAnchorKey, L"AuthorizedUserSid"), CurrentUserSid());
}

}  // namespace
}  // namespace ravlo::test
