// Files and folders that another program still uses, staged because they behave otherwise under Wine.
#include <windows.h>

#include "tools/rvsetup_install_machine.h"

namespace ravlo::test {
namespace {

bool EndsWith(LPCWSTR path, const wchar_t* end) {
    return std::wstring(path).ends_with(end);
}

class InUse : public InstallTest {
protected:
    SmallSource m_source;
    PretendedPath m_path{m_source.Program()};
};

/// Paths that the system was asked to remove at its next start.
template <class Hook>
std::vector<std::wstring> ScheduledRemovals(const Hook& moves) {
    std::vector<std::wstring> paths;
    for (const auto& call : moves.Calls()) {
        if (std::get<2>(call) == MOVEFILE_DELAY_UNTIL_REBOOT) {
            paths.push_back(std::get<0>(call));
        }
    }
    return paths;
}

TEST_F(InUse, ALoadedDllIsMovedAwayAndGoesLater) {
    const Snapshot before = TakeSnapshot();
    ASSERT_EQ(RunSetup({"install", "--me"}).code, ExitCode::Ok);
    {
        RAVLO_HOOK(DeleteFileW) deletions(GetModuleHandleW(nullptr));
        deletions.FailWhen([](LPCWSTR path) { return EndsWith(path, L"rvmediasource.dll"); }, FALSE,
                           ERROR_ACCESS_DENIED);
        RAVLO_HOOK(MoveFileExW) moves(GetModuleHandleW(nullptr));
        const SetupResult result = RunSetup({"uninstall"});
        EXPECT_EQ(result.code, ExitCode::Ok) << result.messages;
        EXPECT_TRUE(Contains(result.messages,
                             "rvsetup: C:\\Program Files\\Ravlo\\1.0.0\\rvmediasource.dll is in use by a running "
                             "program; it was moved to C:\\Program Files\\Ravlo.old\\1-rvmediasource.dll and goes with "
                             "the next restart of Windows, or with the next run of rvsetup\n"))
            << result.messages;
        EXPECT_EQ(ScheduledRemovals(moves),
                  (std::vector<std::wstring>{L"C:\\Program Files\\Ravlo.old\\1-rvmediasource.dll",
                                             L"C:\\Program Files\\Ravlo.old"}));
        EXPECT_FALSE(std::filesystem::exists(kProgramFolder));
    }
    EXPECT_EQ(RunSetup({"uninstall"}).code, ExitCode::NotInstalled);
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(InUse, ALoadedDllOfTheSameVersionIsReplaced) {
    const Snapshot before = TakeSnapshot();
    ASSERT_EQ(RunSetup({"install", "--me"}).code, ExitCode::Ok);
    const std::wstring dll = std::wstring(kProgramFolder) + L"\\1.0.0\\rvmediasource.dll";
    const std::string wanted = FileBytes(dll);
    WriteBytes(dll, "an older build");
    {
        RAVLO_HOOK(MoveFileExW) moves(GetModuleHandleW(nullptr));
        moves.FailCall(2, FALSE, ERROR_ACCESS_DENIED);  // the first one stores the record
        const SetupResult result = RunSetup({"install", "--me"});
        EXPECT_EQ(result.code, ExitCode::Ok) << result.messages;
        EXPECT_TRUE(Contains(result.messages,
                             "rvsetup: C:\\Program Files\\Ravlo\\1.0.0\\rvmediasource.dll of before is in use by a "
                             "running program; it was moved to "))
            << result.messages;
    }
    EXPECT_EQ(FileBytes(dll), wanted);
    EXPECT_EQ(FileBytes(L"C:\\Program Files\\Ravlo.old\\1-rvmediasource.dll"), "an older build");
    EXPECT_EQ(RunSetup({"uninstall"}).code, ExitCode::Ok);
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

TEST_F(InUse, AFolderInWhichAConsoleStandsGoesLater) {
    const Snapshot before = TakeSnapshot();
    ASSERT_EQ(RunSetup({"install", "--me"}).code, ExitCode::Ok);
    {
        RAVLO_HOOK(RemoveDirectoryW) removals(GetModuleHandleW(nullptr));
        removals.FailWhen([](LPCWSTR path) { return EndsWith(path, L"\\1.0.0"); }, FALSE, ERROR_SHARING_VIOLATION);
        RAVLO_HOOK(MoveFileExW) moves(GetModuleHandleW(nullptr));
        const SetupResult result = RunSetup({"uninstall"});
        EXPECT_EQ(result.code, ExitCode::Ok) << result.messages;
        for (const char* folder : {"C:\\Program Files\\Ravlo\\1.0.0", "C:\\Program Files\\Ravlo"}) {
            EXPECT_TRUE(Contains(result.messages, "rvsetup: " + std::string(folder) +
                                                      " is open in another program or console; it goes, empty, with "
                                                      "the next restart of Windows, or with the next run of rvsetup\n"))
                << result.messages;
        }
        EXPECT_EQ(
            ScheduledRemovals(moves),
            (std::vector<std::wstring>{L"C:\\Program Files\\Ravlo.old\\left-1.0.0", L"C:\\Program Files\\Ravlo\\1.0.0",
                                       L"C:\\Program Files\\Ravlo.old", L"C:\\Program Files\\Ravlo.old\\left-Ravlo",
                                       L"C:\\Program Files\\Ravlo", L"C:\\Program Files\\Ravlo.old"}));
    }
    EXPECT_EQ(RunSetup({"uninstall"}).code, ExitCode::NotInstalled);
    EXPECT_EQ(Difference(before, TakeSnapshot()), "");
}

}  // namespace
}  // namespace ravlo::test
