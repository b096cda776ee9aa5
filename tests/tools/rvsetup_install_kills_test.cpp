// The process of install or uninstall is killed before each of its changes to the machine.
#include <windows.h>

#include "support/import_hooks.h"
#include "support/process.h"
#include "support/watchdog.h"
#include "tools/rvsetup_install_machine.h"

namespace ravlo::test {
namespace {

/// Ends the process at the n-th change, before it is made.
RAVLO_ROLE(SetupThatDies) {
    const PretendedPath path(arguments.at(1));
    int left = std::stoi(arguments.at(2));
    const auto die = [&left](auto original, auto... values) {
        if (--left == 0) {
            TerminateProcess(GetCurrentProcess(), 9);
        }
        return original(values...);
    };
    const HMODULE self = GetModuleHandleW(nullptr);
#define DEADLY(function)                       \
    RAVLO_HOOK(function) hook##function(self); \
    hook##function.Replace([&die](auto... values) { return die(decltype(hook##function)::CallOriginal, values...); })
    DEADLY(CreateDirectoryW);
    DEADLY(CopyFileW);
    DEADLY(MoveFileExW);
    DEADLY(DeleteFileW);
    DEADLY(RemoveDirectoryW);
    DEADLY(WriteFile);
    DEADLY(LoadLibraryExW);
    DEADLY(RegCreateKeyExW);
    DEADLY(RegSetValueExW);
    DEADLY(RegDeleteTreeW);
    DEADLY(RegDeleteValueW);
    DEADLY(RegDeleteKeyExW);
    const SetupResult result = RunSetup(arguments.at(0) == L"install" ? std::vector<std::string>{"install", "--me"}
                                                                      : std::vector<std::string>{"uninstall"});
    std::fputs(result.messages.c_str(), stdout);
    return static_cast<int>(result.code);
}

using InstallKills = InstallTest;

TEST_F(InstallKills, WhereverInstallIsKilledUninstallLeavesTheMachineAsItWas) {
    const SmallSource source;
    for (const bool isUsed : {false, true}) {
        if (isUsed) {
            MakeUsedMachine();
        }
        const Snapshot before = TakeSnapshot();
        DWORD code = 9;
        int nth = 1;
        for (; code == 9 && !HasFailure(); ++nth) {
            ChildProcess child = StartRole("SetupThatDies", {L"install", source.Program(), std::to_wstring(nth)});
            code = child.Wait().value_or(99);
            EXPECT_TRUE(code == 9 || code == 0) << code << child.Output();
            const SetupResult back = RunSetup({"uninstall"});
            EXPECT_TRUE(back.code == ExitCode::Ok || back.code == ExitCode::NotInstalled) << nth << back.messages;
            EXPECT_EQ(Difference(before, TakeSnapshot()), "") << nth;
        }
        EXPECT_GT(nth, 12);
    }
}

TEST_F(InstallKills, WhereverUninstallIsKilledASecondOneFinishesIt) {
    const SmallSource source;
    const Snapshot before = TakeSnapshot();
    DWORD code = 9;
    int nth = 1;
    for (; code == 9 && !HasFailure(); ++nth) {
        ASSERT_EQ(StartRole("SetupThatDies", {L"install", source.Program(), L"1000"}).Wait(), 0U);
        ChildProcess child = StartRole("SetupThatDies", {L"uninstall", source.Program(), std::to_wstring(nth)});
        code = child.Wait().value_or(99);
        EXPECT_TRUE(code == 9 || code == 0) << code << child.Output();
        const SetupResult back = RunSetup({"uninstall"});
        EXPECT_TRUE(back.code == ExitCode::Ok || back.code == ExitCode::NotInstalled) << nth << back.messages;
        EXPECT_EQ(Difference(before, TakeSnapshot()), "") << nth;
    }
    EXPECT_GT(nth, 15);
}

}  // namespace
}  // namespace ravlo::test
