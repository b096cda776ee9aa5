// Every call by which install and uninstall read or change the machine fails once.
#include <windows.h>

#include <aclapi.h>

#include <atomic>

#include "support/import_hooks.h"
#include "support/watchdog.h"
#include "tools/rvsetup_install_machine.h"

namespace ravlo::test {
namespace {

/// Counts down to the call that has to fail.
class Countdown {
public:
    void FailNth(int n) { m_left = n; }
    /// Whether the call was reached.
    bool Disarm() { return m_left.exchange(0) < 0; }
    bool Hits() {
        if (m_left > 0 && --m_left == 0) {
            m_left = -1;
            return true;
        }
        return false;
    }

private:
    std::atomic<int> m_left{0};
};

/// One function of this program's import table that takes part in the countdown.
template <class Hook, class Result>
class Fallible {
public:
    Fallible(Countdown& countdown, Result failure, DWORD lastError) : m_hook(GetModuleHandleW(nullptr)) {
        m_hook.Replace([&countdown, failure, lastError](auto... arguments) -> Result {
            if (countdown.Hits()) {
                SetLastError(lastError);
                return failure;
            }
            return Hook::CallOriginal(arguments...);
        });
    }

private:
    Hook m_hook;
};

#define FALLIBLE(function, failure)                                  \
    Fallible<RAVLO_HOOK(function), decltype(failure)> m_##function { \
        m_countdown, failure, m_error                                \
    }

/// All calls that change files, folders or the registry.
class ChangesFail {
public:
    explicit ChangesFail(DWORD error) : m_error(error) {}

    SetupResult Run(int nth, const std::vector<std::string>& arguments, bool& wasReached) {
        m_countdown.FailNth(nth);
        SetupResult result = RunSetup(arguments);
        wasReached = m_countdown.Disarm();
        return result;
    }

private:
    Countdown m_countdown;
    DWORD m_error;
    FALLIBLE(CreateDirectoryW, BOOL{FALSE});
    FALLIBLE(CopyFileW, BOOL{FALSE});
    FALLIBLE(MoveFileExW, BOOL{FALSE});
    FALLIBLE(DeleteFileW, BOOL{FALSE});
    FALLIBLE(RemoveDirectoryW, BOOL{FALSE});
    FALLIBLE(SetFileAttributesW, BOOL{FALSE});
    FALLIBLE(WriteFile, BOOL{FALSE});
    FALLIBLE(CreateFileW, HANDLE{INVALID_HANDLE_VALUE});
    FALLIBLE(LoadLibraryExW, HMODULE{nullptr});
    FALLIBLE(SetSecurityInfo, DWORD{ERROR_NO_SYSTEM_RESOURCES});
    FALLIBLE(RegOpenKeyExW, LSTATUS{ERROR_NO_SYSTEM_RESOURCES});
    FALLIBLE(RegQueryValueExW, LSTATUS{ERROR_NO_SYSTEM_RESOURCES});
    FALLIBLE(RegCreateKeyExW, LSTATUS{ERROR_NO_SYSTEM_RESOURCES});
    FALLIBLE(RegSetValueExW, LSTATUS{ERROR_NO_SYSTEM_RESOURCES});
    FALLIBLE(RegDeleteTreeW, LSTATUS{ERROR_NO_SYSTEM_RESOURCES});
    FALLIBLE(RegDeleteValueW, LSTATUS{ERROR_NO_SYSTEM_RESOURCES});
    FALLIBLE(RegDeleteKeyExW, LSTATUS{ERROR_NO_SYSTEM_RESOURCES});
};

const std::vector<std::string> kInstall{"install", "--me"};
const std::vector<std::string> kUninstall{"uninstall"};

class InstallFaults : public InstallTest {
protected:
    InstallFaults() {
        SetTestTimeout(std::chrono::seconds(100));
        // Waiting for the disk would be most of what these tests do.
        m_flushes.Replace([](HANDLE) -> BOOL { return TRUE; });
    }

    void ExpectUninstallLeadsTo(const Snapshot& before, int nth) {
        const SetupResult back = RunSetup(kUninstall);
        EXPECT_TRUE(back.code == ExitCode::Ok || back.code == ExitCode::NotInstalled) << nth << back.messages;
        EXPECT_EQ(Difference(before, TakeSnapshot()), "") << nth;
    }

    using Flushes = RAVLO_HOOK(FlushFileBuffers);
    Flushes m_flushes{GetModuleHandleW(nullptr)};
    SmallSource m_source;
    PretendedPath m_path{m_source.Program()};

    /// Fails each call of an install in turn, on this machine.
    void FailEachCallOfInstall(bool repair) {
        const Snapshot before = TakeSnapshot();
        ChangesFail faults(ERROR_DISK_FULL);
        bool wasReached = true;
        for (int nth = 1; wasReached && !HasFailure(); ++nth) {
            const SetupResult broken = faults.Run(nth, kInstall, wasReached);
            if (!wasReached) {
                EXPECT_EQ(broken.code, ExitCode::Ok) << broken.messages;
                EXPECT_GT(nth, 25);
            }
            if (repair) {
                const SetupResult again = RunSetup(kInstall);
                EXPECT_EQ(again.code, ExitCode::Ok) << nth << again.messages;
                EXPECT_TRUE(std::filesystem::exists(std::wstring(kProgramFolder) + L"\\1.0.0\\rvmediasource.dll"));
            }
            ExpectUninstallLeadsTo(before, nth);
        }
    }
};

TEST_F(InstallFaults, WhicheverCallOfInstallFailsUninstallLeavesTheMachineAsItWas) {
    FailEachCallOfInstall(false);
}

TEST_F(InstallFaults, WhicheverCallOfInstallFailsASecondInstallFinishesIt) {
    FailEachCallOfInstall(true);
}

TEST_F(InstallFaults, TheSameOnAMachineThatHeldOtherThingsInTheirPlaces) {
    MakeUsedMachine();
    FailEachCallOfInstall(false);
}

TEST_F(InstallFaults, WhicheverCallOfAnUpdateFailsTheCameraStaysUsable) {
    const Snapshot before = TakeSnapshot();
    const TemporaryFolder folder;
    const std::wstring newer = folder.Write(L"newer.dll", DllOfAnotherVersion());
    ChangesFail faults(ERROR_DISK_FULL);
    bool wasReached = true;
    for (int nth = 1; wasReached && !HasFailure(); ++nth) {
        ASSERT_EQ(RunSetup(kInstall).code, ExitCode::Ok);
        const SetupResult broken = faults.Run(nth, {"install", "--dll", ToUtf8(newer)}, wasReached);
        EXPECT_TRUE(std::filesystem::exists(RegisteredDll())) << nth << broken.messages;
        if (!wasReached) {
            EXPECT_EQ(broken.code, ExitCode::Ok) << broken.messages;
            EXPECT_EQ(RegisteredDll(), std::wstring(kProgramFolder) + L"\\1.1.0\\rvmediasource.dll");
            EXPECT_GT(nth, 25);
        }
        ExpectUninstallLeadsTo(before, nth);
    }
}

TEST_F(InstallFaults, WhicheverCallOfUninstallFailsASecondUninstallFinishesIt) {
    const Snapshot before = TakeSnapshot();
    for (const DWORD error : {DWORD{ERROR_DISK_FULL}, DWORD{ERROR_ACCESS_DENIED}}) {
        ChangesFail faults(error);
        bool wasReached = true;
        for (int nth = 1; wasReached && !HasFailure(); ++nth) {
            ASSERT_EQ(RunSetup(kInstall).code, ExitCode::Ok);
            const SetupResult broken = faults.Run(nth, kUninstall, wasReached);
            if (!wasReached) {
                EXPECT_EQ(broken.code, ExitCode::Ok) << broken.messages;
                EXPECT_GT(nth, 15);
            }
            ExpectUninstallLeadsTo(before, nth);
        }
    }
}

TEST_F(InstallFaults, AMissingPartOfWindowsIsNamed) {
    const Snapshot before = TakeSnapshot();
    {
        RAVLO_HOOK(LoadLibraryExW) libraries(GetModuleHandleW(nullptr));
        libraries.FailEvery(HMODULE{nullptr}, ERROR_MOD_NOT_FOUND);
        const SetupResult result = RunSetup(kInstall);
        EXPECT_EQ(result.code, ExitCode::Failure);
        EXPECT_TRUE(
            Contains(result.messages,
                     "rvmediasource.dll: a DLL that it needs is missing: this Windows lacks a part of Media "
                     "Foundation. On an N edition install the Media Feature Pack (Settings, Optional features)\n"))
            << result.messages;
    }
    ExpectUninstallLeadsTo(before, 0);
}

TEST_F(InstallFaults, CtrlCStopsBetweenTwoChanges) {
    const Snapshot before = TakeSnapshot();
    {
        int looks = 0;
        RAVLO_HOOK(WaitForSingleObject) waits(GetModuleHandleW(nullptr));
        waits.Replace([&looks](HANDLE handle, DWORD milliseconds) -> DWORD {
            const bool isLook = milliseconds == 0;
            return isLook && ++looks == 4 ? WAIT_OBJECT_0
                                          : RAVLO_HOOK(WaitForSingleObject)::CallOriginal(handle, milliseconds);
        });
        const SetupResult result = RunSetup(kInstall);
        EXPECT_EQ(result.code, ExitCode::Interrupted);
        EXPECT_TRUE(Contains(result.messages, "rvsetup: stopped after 3 of 8 changes\n")) << result.messages;
    }
    ExpectUninstallLeadsTo(before, 0);
}

TEST_F(InstallFaults, ARegistrationThatBreaksOffHalfwayIsUndone) {
    MakeUsedMachine();
    const Snapshot before = TakeSnapshot();
    for (int nth = 1; nth <= 3; ++nth) {
        LoadHooks loading;
        RAVLO_HOOK(RegSetValueExW) values(loading);
        values.FailCall(nth, LSTATUS{ERROR_NO_SYSTEM_RESOURCES});
        const SetupResult broken = RunSetup(kInstall);
        EXPECT_EQ(broken.code, ExitCode::Failure);
        EXPECT_TRUE(
            Contains(broken.messages,
                     "rvsetup: cannot register C:\\Program Files\\Ravlo\\1.0.0\\rvmediasource.dll: it refused: "))
            << broken.messages;
        EXPECT_TRUE(
            Contains(broken.messages,
                     "rvsetup: the install is not complete: run it again to finish it, or \"rvsetup uninstall\" "
                     "to go back\n"));
        ExpectUninstallLeadsTo(before, nth);
    }
}

}  // namespace
}  // namespace ravlo::test
