// The module's first and last line, with nothing staged: real directories, real loads.
#include "trace_staging.h"

#include "support/process.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <thread>

namespace ravlo::test {
namespace {

std::string AttachMessage(const char* reason, HMODULE module) {
    char text[96]{};
    std::snprintf(text, sizeof text, "ATTACH DLL_PROCESS_%s hInstance=%016llX", reason,
                  reinterpret_cast<unsigned long long>(module));
    return text;
}

DWORD WINAPI SetFlag(LPVOID flag) {
    static_cast<std::atomic<bool>*>(flag)->store(true);
    return 0;
}

class TraceAttach : public AnchoredTest {};

TEST_F(TraceAttach, TheReportAndTheAttachLineAreThereWhenTheLoadReturns) {
    const ModuleUnderTest module;
    const std::vector<std::string> messages = m_log.Messages();
    ASSERT_EQ(2u, messages.size()) << m_log.Text();
    EXPECT_EQ(
        "TRACEPATH candidate=1 path=C:\\ProgramData\\Ravlo\\trace.log cand1=C:\\ProgramData\\Ravlo gate=OK/gateerr=0/openerr=0 "
        "cand2=<dll-directory> gate=NOT-RUN/gateerr=0/openerr=21 "
        "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=21",
        messages[0]);
    EXPECT_EQ(AttachMessage("ATTACH", module.Handle()), messages[1]);
    EXPECT_EQ("ravlo_trace_attach_test.exe", m_log.Lines()[1].process);
    EXPECT_EQ(GetCurrentThreadId(), m_log.Lines()[1].tid);
}

TEST_F(TraceAttach, TheDetachLineIsTheLastOne) {
    HMODULE handle = nullptr;
    {
        const ModuleUnderTest module;
        handle = module.Handle();
        EXPECT_FALSE(m_log.Contains("DLL_PROCESS_DETACH"));
    }
    EXPECT_EQ(3u, m_log.Messages().size()) << m_log.Text();
    EXPECT_EQ(AttachMessage("DETACH", handle), m_log.Messages().back());
}

TEST_F(TraceAttach, ThreadsThatComeAndGoWriteNothing) {
    const ModuleUnderTest module;
    for (int i = 0; i < 4; ++i) {
        std::thread([] {}).join();
    }
    EXPECT_EQ(2u, m_log.Messages().size()) << m_log.Text();
}

TEST_F(TraceAttach, EveryLoadChoosesAndReportsAfresh) {
    { const ModuleUnderTest module; }
    { const ModuleUnderTest module; }
    EXPECT_EQ(2u, m_log.CountLines("TRACEPATH candidate=1 ")) << m_log.Text();
    EXPECT_EQ(2u, m_log.CountLines("ATTACH DLL_PROCESS_ATTACH hInstance="));
    EXPECT_EQ(2u, m_log.CountLines("ATTACH DLL_PROCESS_DETACH hInstance="));
}

TEST_F(TraceAttach, ASecondReferenceToALoadedModuleWritesNothing) {
    const ModuleUnderTest module;
    const HMODULE again = LoadLibraryW(module.Path().c_str());
    EXPECT_EQ(module.Handle(), again);
    FreeLibrary(again);
    EXPECT_EQ(2u, m_log.Messages().size()) << m_log.Text();
}

RAVLO_ROLE(EndWithTheModuleLoaded) {
    const PrivateLocalMachine localMachine;
    const AnchorGuard anchor(CurrentUserSid());
    ModuleUnderTest module;
    module.KeepLoaded();
    return 0;
}

TEST_F(TraceAttach, AProcessThatEndsWithTheModuleLoadedWritesTheDetachLineToo) {
    ChildProcess child = StartRole("EndWithTheModuleLoaded");
    ASSERT_EQ(0u, child.Wait()) << child.Output();
    m_log.Follow(child.Pid());
    EXPECT_EQ(3u, m_log.Messages().size()) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("ATTACH DLL_PROCESS_DETACH hInstance=")) << m_log.Text();
}

TEST_F(TraceAttach, TheFirstLinesAreWrittenWhileTheLoaderLetsNoThreadStart) {
    LoadHooks loading;
    RAVLO_HOOK(WriteFile) writes(loading);
    std::atomic<bool> started{false};
    HANDLE thread = nullptr;
    bool startedDuringTheLoad = true;
    writes.Replace([&](HANDLE file, LPCVOID bytes, DWORD count, LPDWORD written, LPOVERLAPPED overlapped) {
        if (!thread) {
            thread = CreateThread(nullptr, 0, SetFlag, &started, 0, nullptr);
            WaitForSingleObject(thread, 30);
            startedDuringTheLoad = started;
        }
        return decltype(writes)::CallOriginal(file, bytes, count, written, overlapped);
    });
    const ModuleUnderTest module(loading);
    EXPECT_EQ(2u, writes.Count());
    ASSERT_NE(nullptr, thread);
    EXPECT_FALSE(startedDuringTheLoad);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(thread, kPatienceMs));
    EXPECT_TRUE(started);
    CloseHandle(thread);
}

TEST_F(TraceAttach, TheModulesOwnDirectoryIsThatOfTheDllAndNotOfTheProgram) {
    wchar_t temp[MAX_PATH]{};
    GetTempPathW(MAX_PATH, temp);
    const std::wstring directory = std::wstring(temp) + L"ravlo-module-" + std::to_wstring(GetCurrentProcessId());
    const std::wstring copy = directory + L"\\rvmediasource.dll";
    const std::wstring logPath = directory + L"\\trace.log";
    ASSERT_TRUE(CreateDirectoryW(directory.c_str(), nullptr)) << GetLastError();
    ASSERT_TRUE(CopyFileW((ProgramDirectory() + L"\\rvmediasource.dll").c_str(), copy.c_str(), TRUE)) << GetLastError();
    std::string text;
    {
        LoadHooks loading;
        StagedDisk disk(loading);
        disk.Stage(kProgramDataDirectory, {{.owner = kStrangerSid}});
        disk.Stage(directory, {{}});
        const HMODULE module = LoadLibraryExW(copy.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        EXPECT_NE(nullptr, module) << GetLastError();
        FreeLibrary(module);
        text = disk.TextOf(logPath);
    }
    EXPECT_EQ(3u, MessagesOf(text).size());
    EXPECT_NE(std::string::npos, text.find("TRACEPATH candidate=2 path=" + Narrow(logPath) + " cand1=")) << text;
    DeleteFileW(copy.c_str());
    EXPECT_TRUE(RemoveDirectoryW(directory.c_str())) << GetLastError();
}

TEST_F(TraceAttach, WithoutAnAnchorAPlainUsersDirectoriesAreRefusedAndTheLastResortIsTaken) {
    m_anchor.Delete();
    { const ModuleUnderTest module; }
    EXPECT_TRUE(
        m_log.HasMessage("TRACEPATH candidate=3 path=C:\\Windows\\Temp\\ravlo-trace.log "
                         "cand1=C:\\ProgramData\\Ravlo gate=REFUSED-FOREIGN-OWNER/gateerr=2/openerr=21 "
                         "cand2=<dll-directory> gate=REFUSED-FOREIGN-OWNER/gateerr=2/openerr=21 "
                         "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=0"))
        << m_log.Text();
}

}  // namespace
}  // namespace ravlo::test
