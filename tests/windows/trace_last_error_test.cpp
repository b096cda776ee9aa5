// Lines may be written between a failing call and the look at its error.
#include "trace_staging.h"

#include "support/process.h"
#include "trace/trace.h"

#include <gtest/gtest.h>

namespace ravlo::test {
namespace {

constexpr DWORD kCallersError = 4321;

/// Calls `line` with the caller's error set, and expects to find it there afterwards.
template <class Line>
void ExpectKept(const char* what, Line&& line) {
    SetLastError(kCallersError);
    line();
    EXPECT_EQ(kCallersError, GetLastError()) << what;
}

void ExpectEveryEntryKeepsTheError(const char* when) {
    SCOPED_TRACE(when);
    ExpectKept("RvTrace", [] { RvTrace("WARN test number %u of %ls", 7u, L"text"); });
    ExpectKept("RvTraceGuidHr", [] { RvTraceGuidHr("RET test", &IID_IUnknown, S_OK); });
    ExpectKept("RvTraceGuidHr without a GUID", [] { RvTraceGuidHr("RET test", nullptr, E_FAIL); });
    ExpectKept("RvTraceResult", [] { EXPECT_EQ(E_FAIL, RvTraceResult("TEST.Fail", E_FAIL)); });
    ExpectKept("RvTracePipe", [] { RvTracePipe("test"); });
}

/// Runs in a process of its own, since the location is chosen once. Every choice, the good and the bad, makes calls
/// that change the error.
RAVLO_ROLE(FirstLine) {
    const PrivateLocalMachine localMachine;
    StagedDisk disk(GetModuleHandleW(nullptr));
    const bool good = arguments.at(0) == L"good";
    disk.Stage(kProgramDataDirectory, {{.openError = ERROR_PATH_NOT_FOUND}, {.owner = kStrangerSid}});
    disk.FailFile(kTempLog, good ? ERROR_SUCCESS : ERROR_ACCESS_DENIED);
    ExpectKept("the first line", [] { RvTrace("WARN the first line"); });
    ExpectEveryEntryKeepsTheError("later");
    EXPECT_EQ(good ? 7u : 0u, MessagesOf(disk.TextOf(kTempLog)).size());
    return 0;
}

TEST(TraceLastError, TheFirstLineKeepsItWhileItChoosesTheLocation) {
    ChildProcess child = StartRole("FirstLine", {L"good"});
    EXPECT_EQ(0u, child.Wait()) << child.Output();
}

TEST(TraceLastError, LinesThatGoNowhereKeepIt) {
    ChildProcess child = StartRole("FirstLine", {L"bad"});
    EXPECT_EQ(0u, child.Wait()) << child.Output();
}

class TraceLastErrorOfObjects : public AnchoredTest {};

TEST_F(TraceLastErrorOfObjects, EveryEntryKeepsItWhenTheLineIsWritten) {
    ExpectEveryEntryKeepsTheError("written");
    EXPECT_TRUE(m_log.HasMessage("WARN test number 7 of text")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET test {00000000-0000-0000-C000-000000000046} hr=0x00000000")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET test {null-guid} hr=0x80004005")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL TEST.Fail hr=0x80004005")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("PIPE test")) << m_log.Text();
}

TEST_F(TraceLastErrorOfObjects, EveryEntryKeepsItWhenTheFileDoesNotOpen) {
    RvTrace("WARN the location is chosen");
    RAVLO_HOOK(CreateFileW) files(GetModuleHandleW(nullptr));
    files.FailEvery(INVALID_HANDLE_VALUE, ERROR_SHARING_VIOLATION);
    ExpectEveryEntryKeepsTheError("not opened");
    EXPECT_EQ(5u, files.Count());
}

TEST_F(TraceLastErrorOfObjects, EveryEntryKeepsItWhenTheWriteFails) {
    RvTrace("WARN the location is chosen");
    RAVLO_HOOK(WriteFile) writes(GetModuleHandleW(nullptr));
    writes.FailEvery(FALSE, ERROR_DISK_FULL);
    ExpectEveryEntryKeepsTheError("not written");
    EXPECT_EQ(5u, writes.Count());
}

TEST_F(TraceLastErrorOfObjects, EveryEntryKeepsItWhenClosingOrTheClockChangesIt) {
    RvTrace("WARN the location is chosen");
    RAVLO_HOOK(CloseHandle) closings(GetModuleHandleW(nullptr));
    closings.Replace([](HANDLE handle) {
        const BOOL closed = decltype(closings)::CallOriginal(handle);
        SetLastError(ERROR_INVALID_HANDLE);
        return closed;
    });
    RAVLO_HOOK(FileTimeToSystemTime) conversion(GetModuleHandleW(nullptr));
    conversion.FailEvery(FALSE, ERROR_INVALID_PARAMETER);
    ExpectEveryEntryKeepsTheError("closed with an error");
    EXPECT_EQ(5u, conversion.Count());
}

TEST_F(TraceLastErrorOfObjects, TheResultComesBackUnchangedAndOnlyANegativeOneFails) {
    EXPECT_EQ(S_OK, RvTraceResult("TEST.Ok", S_OK));
    EXPECT_EQ(S_FALSE, RvTraceResult("TEST.False", S_FALSE));
    EXPECT_EQ(static_cast<HRESULT>(0x7FFFFFFF), RvTraceResult("TEST.Large", 0x7FFFFFFF));
    EXPECT_EQ(static_cast<HRESULT>(0x80000000), RvTraceResult("TEST.Least", static_cast<HRESULT>(0x80000000)));
    EXPECT_EQ(static_cast<HRESULT>(0xFFFFFFFF), RvTraceResult("TEST.Minus", -1));
    EXPECT_TRUE(m_log.HasMessage("RET TEST.Ok hr=0x00000000")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET TEST.False hr=0x00000001")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("RET TEST.Large hr=0x7FFFFFFF")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL TEST.Least hr=0x80000000")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL TEST.Minus hr=0xFFFFFFFF")) << m_log.Text();
}

class TraceLastErrorOfTheModule : public ModuleTest {};

TEST_F(TraceLastErrorOfTheModule, ARefusedCallLeavesTheCallersErrorAlone) {
    void* out = nullptr;
    ExpectKept("another class", [&] {
        EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, m_module.GetClassObject(IID_IUnknown, IID_IUnknown, &out));
    });
    ExpectKept("no place for the result",
               [&] { EXPECT_EQ(E_POINTER, m_module.GetClassObject(kSourceClassId, IID_IUnknown, nullptr)); });
    RAVLO_HOOK(CreateFileW) files(m_module.Handle());
    files.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    ExpectKept("another class, no log", [&] {
        EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, m_module.GetClassObject(IID_IUnknown, IID_IUnknown, &out));
    });
    EXPECT_EQ(2u, files.Count());
}

TEST_F(TraceLastErrorOfTheModule, AMethodThatOnlyLogsLeavesTheCallersErrorAlone) {
    const ComPtr<IMFMediaSource> source = m_module.CreateSource<IMFMediaSource>();
    RAVLO_HOOK(WriteFile) writes(m_module.Handle());
    writes.FailEvery(FALSE, ERROR_DISK_FULL);
    ExpectKept("Pause", [&] { EXPECT_EQ(static_cast<HRESULT>(0xC00D3E82), source->Pause()); });
    EXPECT_LE(2u, writes.Count());
    source->Shutdown();
}

}  // namespace
}  // namespace ravlo::test
