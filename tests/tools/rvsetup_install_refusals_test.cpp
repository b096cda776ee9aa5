// What install and uninstall answer to those who may not, and to wrong input. Nothing is changed by any of it.
#include <windows.h>

#include "tools/program.h"
#include "tools/rvsetup_install_machine.h"

namespace ravlo::test {
namespace {

using Refusals = InstallTest;

TEST_F(Refusals, WithoutAnAdministratorsRightsOnlyADryRunWorks) {
    RAVLO_HOOK(CheckTokenMembership) memberships(GetModuleHandleW(nullptr));
    memberships.Replace([](HANDLE, PSID, PBOOL isMember) -> BOOL {
        *isMember = FALSE;
        return TRUE;
    });
    const Snapshot before = TakeSnapshot();
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"install", "--me"}, std::vector<std::string>{"uninstall"},
          std::vector<std::string>{"--install", ToUtf8(CurrentUserSid())}}) {
        const SetupResult result = RunSetup(arguments);
        EXPECT_EQ(result.code, ExitCode::AccessDenied);
        EXPECT_EQ(result.messages,
                  "rvsetup: this changes the whole machine and needs an administrator: run it in a console opened with "
                  "\"Run as administrator\" (--dry-run works without)\n");
    }
    EXPECT_EQ(RunSetup({"install", "--me", "--dry-run"}).code, ExitCode::Ok);
    EXPECT_EQ(RunSetup({"uninstall", "--dry-run"}).code, ExitCode::NotInstalled);
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(Refusals, AMembershipThatCannotBeToldIsNone) {
    RAVLO_HOOK(CheckTokenMembership) memberships(GetModuleHandleW(nullptr));
    memberships.FailEvery(FALSE, ERROR_ACCESS_DENIED);
    EXPECT_EQ(RunSetup({"install", "--me"}).code, ExitCode::AccessDenied);
}

TEST_F(Refusals, EveryWrongInputHasItsSentence) {
    const TemporaryFolder folder;
    const std::string dll = FileBytes(ProgramDirectory() + L"\\rvmediasource.dll");
    const std::wstring text = folder.Write(L"text.dll", "This is a text and no DLL.");
    const std::wstring empty = folder.Write(L"empty.dll", "");
    const std::wstring cut = folder.Write(L"cut.dll", dll.substr(0, 4096));
    std::string narrow = dll;
    narrow.replace(narrow.find(std::string("PE\0\0", 4)) + 4, 2, "\x4C\x01");
    const std::wstring narrowDll = folder.Write(L"narrow.dll", narrow);
    std::string other = dll;
    std::string wideClass;
    for (const char character : std::string("{5E3C9A71-")) {
        wideClass += character;
        wideClass += '\0';
    }
    for (std::size_t at = other.find(wideClass); at != std::string::npos; at = other.find(wideClass)) {
        other[at + 2] = '6';
    }
    const std::wstring otherDll = folder.Write(L"other.dll", other);
    const std::wstring system = L"C:\\windows\\system32\\kernel32.dll";
    const std::wstring program = ProgramDirectory() + L"\\rvhost.exe";
    const struct {
        Arguments arguments;
        int code;
        std::string sentence;
    } cases[] = {
        {{L"instal"}, 2, "unknown command instal; did you mean install?"},
        {{L"install", L"--yser", L"x"}, 2, "unknown option --yser; did you mean --user?"},
        {{L"uninstall", L"--keeplog"}, 2, "unknown option --keeplog; did you mean --keep-log?"},
        {{L"install"}, 2, "say whose programs may send frames: --me for the account of this console, or --user SID"},
        {{L"install", L"--user"}, 2, "--user needs a value: SID"},
        {{L"install", L"--user", L""},
         2,
         "the name of the user is empty; \"whoami /user\" shows the SID of an account"},
        {{L"install", L"--me", L"--user", L"S-1-5-21-1-2-3-1001"},
         2,
         "--me and --user exclude each other: name one user"},
        {{L"install", L"--user", L"a", L"--user", L"b"}, 2, "--user is given more than once"},
        {{L"install", L"--user", L"S-1-5"},
         2,
         "\"S-1-5\" is no SID: one looks like S-1-5-21-397955417-626881126-188441444-1001"},
        {{L"install", L"--user", L"S-1-5-21-1-2-3-1001 "}, 2, "\"S-1-5-21-1-2-3-1001 \" is no SID"},
        {{L"install", L"--user", L"S-1-5-21-4294967296"}, 2, "\"S-1-5-21-4294967296\" is no SID"},
        {{L"install", L"--user", L"S-1-1-0"}, 2, "S-1-1-0 (Everyone) is a group: all its members could send frames."},
        {{L"install", L"--user", L"S-1-5-11"}, 2, "S-1-5-11 (NT AUTHORITY\\Authenticated Users) is a group: "},
        {{L"install", L"--user", L"s-1-5-32-544"},
         2,
         "S-1-5-32-544 (BUILTIN\\Administrators) is a group: all its members could send frames. Name one user"},
        {{L"install", L"--user", L"S-1-5-32-555"}, 2, "S-1-5-32-555"},
        {{L"install", L"--user", L"S-1-5-18"},
         2,
         "S-1-5-18 (NT AUTHORITY\\SYSTEM) is no user account but SidTypeWellKnownGroup, which the camera refuses."},
        {{L"install", L"--user", L"no such account"}, 2, "no account \"no such account\" was found"},
        {{L"--install"}, 2, "--install needs a value: SID"},
        {{L"--install", L"BA"}, 2, "no account \"BA\" was found; \"whoami /user\" shows the SID of an account"},
        {{L"--install", L"S-1-5-21-1-2-3-1001", L"uninstall"},
         2,
         "--install stands alone, without a command behind it"},
        {{L"install", L"--me", L"extra"}, 2, "what is \"extra\" for? Nothing more was expected here"},
        {{L"install", L"--me", L"--dll", L""}, 2, "--dll needs the path of the camera's DLL"},
        {{L"install", L"--me", L"--dll", folder.File(L"missing.dll")},
         1,
         "there is no " + ToUtf8(folder.File(L"missing.dll"))},
        {{L"install", L"--me", L"--dll", folder.Path().wstring()},
         1,
         "cannot read " + ToUtf8(folder.Path().wstring()) + ": "},
        {{L"install", L"--me", L"--dll", text},
         1,
         ToUtf8(text) + " is no DLL: it does not begin like a program file of Windows"},
        {{L"install", L"--me", L"--dll", empty},
         1,
         ToUtf8(empty) + " is no DLL: it does not begin like a program file of Windows"},
        {{L"install", L"--me", L"--dll", cut}, 1, ToUtf8(cut) + " is damaged or cut off"},
        {{L"install", L"--me", L"--dll", narrowDll}, 1, ToUtf8(narrowDll) + " is a 32-bit file; "},
        {{L"install", L"--me", L"--dll", program}, 1, ToUtf8(program) + " is a program, not a DLL"},
        {{L"install", L"--me", L"--dll", system},
         1,
         ToUtf8(system) + " exports no DllGetClassObject, so it cannot be the camera"},
        {{L"install", L"--me", L"--dll", otherDll}, 1, ToUtf8(otherDll) + " is a COM server, but not the Ravlo camera"},
    };
    const Snapshot before = TakeSnapshot();
    for (const auto& wrong : cases) {
        const ProgramResult result = RunProgram(L"rvsetup", wrong.arguments);
        EXPECT_EQ(result.code, wrong.code) << wrong.sentence << "\n" << result.output;
        EXPECT_TRUE(Contains("\n" + result.output, "\nrvsetup: " + wrong.sentence)) << wrong.sentence << "\n"
                                                                                    << result.output;
    }
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(Refusals, AnAnchorThatCannotBeUsedIsNotKept) {
    m_anchor.Set(L"S-1-5-32-545");
    const ProgramResult result = RunProgram(L"rvsetup", {L"install"});
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.output,
              "rvsetup: the anchor that is there cannot be used (NOT_A_USER); name the user with --user SID or --me\n"
              "rvsetup: try --help\n");
}

}  // namespace
}  // namespace ravlo::test
