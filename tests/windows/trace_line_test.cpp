// The layout of a line, its limits, and how it reaches the file.
#include "trace_staging.h"

#include "support/handles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <thread>

namespace ravlo::test {
namespace {

constexpr GUID kNoteAttribute = {0x11223344, 0x5566, 0x7788, {0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x01}};

class TraceLineTest : public StagedLogTest {
protected:
    TraceLineTest() { m_disk.Stage(kProgramDataDirectory, {{}}); }

    std::string Text() { return m_disk.TextOf(kProgramDataLog); }

    /// "[pid:tid program.exe] " of this thread.
    static std::string Prefix() {
        return "[" + std::to_string(GetCurrentProcessId()) + ":" + std::to_string(GetCurrentThreadId()) +
               " ravlo_trace_line_test.exe] ";
    }

    /// Writes the attribute's value to the log, as the dump at the start of an activation that then fails.
    static void DumpValue(const ModuleUnderTest& module, const std::wstring& value) {
        RAVLO_HOOK(MFCreateMediaType) types(module.Handle());
        types.FailEvery(E_FAIL);
        const ComPtr<IMFActivate> activate = module.CreateSource<IMFActivate>();
        Require(activate->SetString(kNoteAttribute, value.c_str()), "SetString");
        ComPtr<IUnknown> object;
        EXPECT_TRUE(FAILED(activate->ActivateObject(IID_IUnknown, object.PutVoid())));
        activate.As<IMFMediaSource>()->Shutdown();
    }

    /// The raw line, without its CR LF, that holds `text`.
    std::string LineWith(const std::string& text) {
        const std::string all = Text();
        const std::size_t found = all.find(text);
        if (found == std::string::npos) {
            return "";
        }
        const std::size_t before = all.rfind('\n', found);
        const std::size_t start = before == std::string::npos ? 0 : before + 1;
        return all.substr(start, all.find("\r\n", start) - start);
    }
};

/// 14:03:07.045 UTC of some day, in the platform's 100 ns units.
FILETIME FixedTime() {
    const SYSTEMTIME time{.wYear = 2024,
                          .wMonth = 2,
                          .wDayOfWeek = 0,
                          .wDay = 29,
                          .wHour = 14,
                          .wMinute = 3,
                          .wSecond = 7,
                          .wMilliseconds = 45};
    FILETIME fileTime{};
    SystemTimeToFileTime(&time, &fileTime);
    return fileTime;
}

TEST_F(TraceLineTest, ALineIsExactlyItsFieldsAndCrLf) {
    RAVLO_HOOK(GetSystemTimeAsFileTime) clock(m_loading);
    clock.Replace([](LPFILETIME now) { *now = FixedTime(); });
    char attach[64]{};
    char detach[64]{};
    {
        const ModuleUnderTest module(m_loading);
        const auto base = reinterpret_cast<unsigned long long>(module.Handle());
        std::snprintf(attach, sizeof attach, "ATTACH DLL_PROCESS_ATTACH hInstance=%016llX", base);
        std::snprintf(detach, sizeof detach, "ATTACH DLL_PROCESS_DETACH hInstance=%016llX", base);
    }
    const std::string prefix = Prefix() + "14:03:07.045 ";
    EXPECT_EQ(prefix +
                  "TRACEPATH candidate=1 path=C:\\ProgramData\\Ravlo\\trace.log "
                  "cand1=C:\\ProgramData\\Ravlo gate=OK/gateerr=0/openerr=0 "
                  "cand2=<dll-directory> gate=NOT-RUN/gateerr=0/openerr=21 "
                  "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=21\r\n" +
                  prefix + attach + "\r\n" + prefix + detach + "\r\n",
              Text());
}

TEST_F(TraceLineTest, TheTimeOfDayIsTheSystemsUtcTime) {
    SYSTEMTIME before{};
    SYSTEMTIME after{};
    GetSystemTime(&before);
    AttachAndDetach();
    GetSystemTime(&after);
    const auto text = [](const SYSTEMTIME& time) {
        char buffer[32]{};
        std::snprintf(buffer, sizeof buffer, "%02u:%02u:%02u.%03u", time.wHour, time.wMinute, time.wSecond,
                      time.wMilliseconds);
        return std::string(buffer);
    };
    const std::optional<TraceLine> line = ParseTraceLine(LineWith("ATTACH DLL_PROCESS_ATTACH"));
    ASSERT_TRUE(line);
    if (text(before) <= text(after)) {  // not over midnight
        EXPECT_LE(text(before), line->time);
        EXPECT_GE(text(after), line->time);
    } else {
        EXPECT_TRUE(line->time >= text(before) || line->time <= text(after)) << line->time;
    }
}

TEST_F(TraceLineTest, ATimeThatCannotBeConvertedIsShownAsQuestionMarks) {
    RAVLO_HOOK(FileTimeToSystemTime) conversion(m_loading);
    conversion.FailEvery(FALSE, ERROR_INVALID_PARAMETER);
    AttachAndDetach();
    EXPECT_EQ(0u,
              LineWith("ATTACH DLL_PROCESS_ATTACH").find(Prefix() + "\?\?:\?\?:\?\?.\?\?\? ATTACH DLL_PROCESS_ATTACH"));
    EXPECT_EQ(0u, LineWith("TRACEPATH").find(Prefix() + "\?\?:\?\?:\?\?.\?\?\? TRACEPATH candidate=1 "));
}

TEST_F(TraceLineTest, TheIdentifiersAreThoseOfTheWritingThread) {
    const ModuleUnderTest module(m_loading);
    DWORD writer = 0;
    std::thread thread([&] {
        writer = GetCurrentThreadId();
        void* out = nullptr;
        EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, module.GetClassObject(kNoteAttribute, IID_IUnknown, &out));
    });
    thread.join();
    const std::optional<TraceLine> line =
        ParseTraceLine(LineWith("FAIL DLLGCO wrong clsid {11223344-5566-7788-99AA-BBCCDDEEFF01} hr=0x80040111"));
    ASSERT_TRUE(line);
    EXPECT_EQ(GetCurrentProcessId(), line->pid);
    EXPECT_EQ(writer, line->tid);
    EXPECT_NE(GetCurrentThreadId(), line->tid);
}

TEST_F(TraceLineTest, ALongMessageIsCutAt1021CharactersAndStillEndsInCrLf) {
    {
        const ModuleUnderTest module(m_loading);
        DumpValue(module, std::wstring(3000, L'v'));
    }
    const std::string line = LineWith(" value=vvv");
    EXPECT_EQ(1021u, line.size());
    EXPECT_EQ(0u, line.find(Prefix()));
    const std::size_t message = Prefix().size() + 13;  // behind the time and a blank
    EXPECT_EQ("ACTATTR source [", line.substr(message, 16));
    const std::size_t begin = line.find("value=") + 6;
    EXPECT_EQ(std::string(1021 - begin, 'v'), line.substr(begin));
    EXPECT_NE(std::string::npos, Text().find(line + "\r\n["));  // the next line begins in a place of its own
    for (const std::string& shown : MessagesOf(Text())) {
        EXPECT_FALSE(shown.starts_with("BROKEN")) << shown;
    }
}

TEST_F(TraceLineTest, OnlyWhatIsBeyondTheLastCharacterIsCut) {
    const ModuleUnderTest module(m_loading);
    DumpValue(module, L"bbb");
    const std::size_t begin = LineWith(" value=bbb").size() - 3;
    DumpValue(module, std::wstring(1021 - begin - 1, L'f') + L"z");
    EXPECT_EQ(1021u, LineWith("value=f").size());
    EXPECT_EQ('z', LineWith("value=f").back());
    DumpValue(module, std::wstring(1021 - begin, L'g') + L"z");
    EXPECT_EQ(1021u, LineWith("value=g").size());
    EXPECT_EQ('g', LineWith("value=g").back());
    DumpValue(module, std::wstring(1020 - begin, L'h'));
    EXPECT_EQ(1020u, LineWith("value=h").size());
}

TEST_F(TraceLineTest, WhatIsNotPrintableAsciiIsAQuestionMarkAndAPercentSignIsOnlyText) {
    const ModuleUnderTest module(m_loading);
    DumpValue(module, L"a\u00E9\tb\r\nc\u4E2D\x7F~ %s%n%G");
    const std::string line = LineWith(" value=a");
    EXPECT_EQ("value=a\?\?b\?\?c\?\?~ %s%n%G", line.substr(line.find("value=")));
}

TEST_F(TraceLineTest, EveryLineIsOneWriteOfItsBytesWithoutTheTerminator) {
    struct Write {
        std::string bytes;
        bool overlapped;
        bool counted;
    };
    std::vector<Write> writes;
    RAVLO_HOOK(WriteFile) hook(m_loading);
    hook.Replace([&](HANDLE file, LPCVOID bytes, DWORD count, LPDWORD written, LPOVERLAPPED overlapped) {
        writes.push_back({{static_cast<const char*>(bytes), count}, overlapped != nullptr, written != nullptr});
        return decltype(hook)::CallOriginal(file, bytes, count, written, overlapped);
    });
    {
        const ModuleUnderTest module(m_loading);
        EXPECT_TRUE(module.Factory());
    }
    ASSERT_EQ(5u, writes.size());  // report, attach, two of the factory, detach
    std::string all;
    for (const Write& write : writes) {
        EXPECT_EQ('[', write.bytes.front());
        EXPECT_EQ(write.bytes.size() - 2, write.bytes.find("\r\n"));
        EXPECT_EQ(std::string::npos, write.bytes.find('\0'));
        EXPECT_FALSE(write.overlapped);
        EXPECT_TRUE(write.counted);
        all += write.bytes;
    }
    EXPECT_EQ(all, Text());
}

TEST_F(TraceLineTest, EveryOpeningOfTheFileIsForAppendingAndActsOnALinkItself) {
    {
        const ModuleUnderTest module(m_loading);
        EXPECT_TRUE(module.Factory());
    }
    std::size_t opens = 0;
    for (const auto& open : m_disk.Opens()) {
        if (std::get<0>(open) != kProgramDataLog) {
            continue;
        }
        ++opens;
        EXPECT_EQ(4u, std::get<1>(open));  // FILE_APPEND_DATA and nothing else
        EXPECT_EQ(3u, std::get<2>(open));  // read and write are shared
        EXPECT_EQ(nullptr, std::get<3>(open));
        EXPECT_EQ(4u, std::get<4>(open));           // OPEN_ALWAYS
        EXPECT_EQ(0x00200080u, std::get<5>(open));  // normal, open the link itself
        EXPECT_EQ(nullptr, std::get<6>(open));
    }
    EXPECT_EQ(6u, opens);  // the test, and one for each of the five lines
}

TEST_F(TraceLineTest, NoHandleStaysOpenBetweenLines) {
    const ModuleUnderTest module(m_loading);
    EXPECT_TRUE(module.Factory());
    const std::size_t before = SettledHandles();
    for (int i = 0; i < 25; ++i) {
        EXPECT_TRUE(module.Factory());
    }
    EXPECT_TRUE(HandlesSettleAt(before)) << CountHandles() << " instead of " << before;
}

TEST_F(TraceLineTest, TheFileMayBeRenamedOrDeletedBetweenLines) {
    const std::wstring path = m_disk.RealPathOf(kProgramDataLog);
    const std::wstring aside = path + L".1";
    DeleteFileW(aside.c_str());
    const ModuleUnderTest module(m_loading);
    EXPECT_EQ(2u, MessagesOf(Text()).size());
    ASSERT_TRUE(MoveFileExW(path.c_str(), aside.c_str(), 0)) << GetLastError();
    EXPECT_TRUE(module.Factory());
    EXPECT_EQ(2u, MessagesOf(Text()).size());  // a new file, without another report
    EXPECT_EQ(0u, MessagesOf(Text()).at(0).find("DLLGCO enter "));
    ASSERT_TRUE(DeleteFileW(path.c_str())) << GetLastError();
    EXPECT_TRUE(module.Factory());
    EXPECT_EQ(2u, MessagesOf(Text()).size());
    EXPECT_TRUE(DeleteFileW(aside.c_str()));
}

TEST_F(TraceLineTest, AFailedWriteLosesOneLineAndNothingElse) {
    const ModuleUnderTest module(m_loading);
    const std::size_t before = MessagesOf(Text()).size();
    {
        RAVLO_HOOK(WriteFile) writes(module.Handle());
        writes.FailCall(1, FALSE, ERROR_DISK_FULL);
        EXPECT_TRUE(module.Factory());
        EXPECT_EQ(2u, writes.Count());  // no second attempt
    }
    const std::vector<std::string> messages = MessagesOf(Text());
    ASSERT_EQ(before + 1, messages.size());
    EXPECT_EQ(0u, messages.back().find("RET DLLGCO riid "));
}

}  // namespace
}  // namespace ravlo::test
