// The two file names that the log asks for: the program's, for the prefix, and the module's, for its directory.
#include "trace_staging.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ravlo::test {
namespace {

class TraceNames : public StagedLogTest {
protected:
    using Names = RAVLO_HOOK(GetModuleFileNameW);

    /// The program, or the module, claims to be `path`, whose length may be more than fits.
    void Pretend(bool program, const std::wstring& path) {
        m_names.Replace([program, path](HMODULE module, LPWSTR buffer, DWORD size) -> DWORD {
            if ((module == nullptr) != program) {
                return Names::CallOriginal(module, buffer, size);
            }
            const std::size_t copied = std::min<std::size_t>(path.size(), size - 1);
            std::copy_n(path.data(), copied, buffer);
            buffer[copied] = L'\0';
            return path.size() < size ? static_cast<DWORD>(path.size()) : size;
        });
    }

    /// The program's name in the prefix of every line, after a load; all lines must agree.
    std::string NameInPrefix(const std::wstring& programPath) {
        Pretend(true, programPath);
        m_disk.Stage(kProgramDataDirectory, {{}});
        DeleteFileW(m_disk.RealPathOf(kProgramDataLog).c_str());
        AttachAndDetach();
        std::string name = "no line";
        const std::string text = m_disk.TextOf(kProgramDataLog);
        for (std::size_t start = 0; start < text.size(); start = text.find("\r\n", start) + 2) {
            const std::size_t begin = text.find(' ', start) + 1;
            const std::string found = text.substr(begin, text.find("] ", begin) - begin);
            EXPECT_TRUE(start == 0 || found == name) << found;
            name = found;
        }
        return name;
    }

    /// The report after a load as `modulePath`, with ProgramData out of the way.
    std::string ReportAs(const std::wstring& modulePath, const std::wstring& logPath) {
        Pretend(false, modulePath);
        m_disk.Stage(kProgramDataDirectory, {{.owner = kStrangerSid}});
        DeleteFileW(m_disk.RealPathOf(logPath).c_str());
        AttachAndDetach();
        return Report(logPath);
    }

    Names m_names{m_loading};
};

TEST_F(TraceNames, TheProgramsNameIsWhatFollowsTheLastSlashOfEitherKind) {
    EXPECT_EQ("svchost.exe", NameInPrefix(L"C:\\Windows\\System32\\svchost.exe"));
    EXPECT_EQ("host.exe", NameInPrefix(L"C:/Program Files/Camera/host.exe"));
    EXPECT_EQ("host.exe", NameInPrefix(L"C:\\Camera/host.exe"));
    EXPECT_EQ("host.exe", NameInPrefix(L"C:/Camera\\host.exe"));
    EXPECT_EQ("host.exe", NameInPrefix(L"host.exe"));
    EXPECT_EQ("two words.exe", NameInPrefix(L"C:\\two words.exe"));
    EXPECT_EQ("", NameInPrefix(L"C:\\Camera\\"));
}

TEST_F(TraceNames, WhatIsNotPrintableAsciiInItIsAQuestionMark) {
    EXPECT_EQ("K?ln-?? ?.exe", NameInPrefix(L"C:\\K\u00F6ln\\K\u00F6ln-\U0001F3A5 \x7F.exe"));
    EXPECT_EQ("a?b~.exe", NameInPrefix(L"C:\\a\tb~.exe"));
}

TEST_F(TraceNames, ItIsCutAfter63Characters) {
    EXPECT_EQ(std::string(63, 'p'), NameInPrefix(L"C:\\" + std::wstring(63, L'p')));
    EXPECT_EQ(std::string(63, 'q'), NameInPrefix(L"C:\\" + std::wstring(64, L'q')));
    EXPECT_EQ(std::string(63, 'r'), NameInPrefix(L"C:\\" + std::wstring(200, L'r') + L".exe"));
}

TEST_F(TraceNames, AProgramPathOf260CharactersIsUnknown) {
    const std::wstring longest = L"C:\\" + std::wstring(247, L'd') + L"\\host.exe";
    ASSERT_EQ(259u, longest.size());
    EXPECT_EQ("host.exe", NameInPrefix(longest));
    EXPECT_EQ("unknown.exe", NameInPrefix(L"C:\\d" + longest.substr(3)));
    EXPECT_EQ("unknown.exe", NameInPrefix(L"C:\\" + std::wstring(400, L'd') + L"\\host.exe"));
}

TEST_F(TraceNames, AProgramWhosePathCannotBeReadIsUnknown) {
    EXPECT_EQ("unknown.exe", NameInPrefix(L""));
}

TEST_F(TraceNames, BothPathsAreAskedForOnceIntoABufferOf260Characters) {
    m_disk.Stage(kProgramDataDirectory, {{.owner = kStrangerSid}});
    m_disk.Stage(m_moduleDirectory, {{}});
    m_names.ForgetCalls();
    HMODULE handle = nullptr;
    {
        const ModuleUnderTest module(m_loading);
        handle = module.Handle();
        EXPECT_TRUE(module.Factory());
    }
    const std::vector<Names::Call> calls = m_names.Calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(nullptr, std::get<0>(calls[0]));
    EXPECT_EQ(260u, std::get<2>(calls[0]));
    EXPECT_EQ(handle, std::get<0>(calls[1]));
    EXPECT_EQ(260u, std::get<2>(calls[1]));
}

TEST_F(TraceNames, TheModulesPathIsCutAtItsLastBackslash) {
    m_disk.Stage(L"D:\\cam/era", {{}});
    EXPECT_EQ(0u, ReportAs(L"D:\\cam/era\\sub/rvmediasource.dll", L"D:\\cam/era\\trace.log")
                      .find("TRACEPATH candidate=2 path=D:\\cam/era\\trace.log cand1="));
}

TEST_F(TraceNames, AModulePathThatIsNotUsableLeavesTheSecondPlaceUntried) {
    const std::string expected =
        "TRACEPATH candidate=3 path=C:\\Windows\\Temp\\ravlo-trace.log "
        "cand1=C:\\ProgramData\\Ravlo gate=REFUSED-FOREIGN-OWNER/gateerr=0/openerr=21 "
        "cand2=<dll-directory> gate=NOT-RUN/gateerr=0/openerr=21 "
        "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=0";
    m_disk.Stage(L"D:", {{}});
    EXPECT_EQ(expected, ReportAs(L"rvmediasource.dll", kTempLog));
    EXPECT_EQ(expected, ReportAs(L"D:/camera/rvmediasource.dll", kTempLog));
    EXPECT_EQ(expected, ReportAs(L"", kTempLog));
    EXPECT_EQ(expected, ReportAs(L"D:\\" + std::wstring(257, L'm'), kTempLog));
    EXPECT_EQ(expected, ReportAs(L"D:\\" + std::wstring(600, L'm'), kTempLog));
}

TEST_F(TraceNames, AModuleInNoDirectoryFailsTheGateWithAnInvalidName) {
    EXPECT_EQ(
        "TRACEPATH candidate=3 path=C:\\Windows\\Temp\\ravlo-trace.log "
        "cand1=C:\\ProgramData\\Ravlo gate=REFUSED-FOREIGN-OWNER/gateerr=0/openerr=21 "
        "cand2=<dll-directory> gate=REFUSED-CANNOT-OPEN/gateerr=123/openerr=21 "
        "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=0",
        ReportAs(L"\\rvmediasource.dll", kTempLog));
}

TEST_F(TraceNames, TheLongestUsableModulePathGivesALogNameOf259Characters) {
    const std::wstring directory = L"D:\\" + std::wstring(247, L'm');
    ASSERT_EQ(250u, directory.size());
    m_disk.Stage(directory, {{}});
    const std::wstring log = directory + L"\\trace.lo";
    ASSERT_EQ(259u, log.size());
    EXPECT_EQ(0u, ReportAs(directory + L"\\x.dll", log).find("TRACEPATH candidate=2 path=" + Narrow(log) + " cand1="));
    const std::wstring shorter = directory.substr(0, 249);
    m_disk.Stage(shorter, {{}});
    EXPECT_EQ(0u, ReportAs(shorter + L"\\x.dll", shorter + L"\\trace.log").find("TRACEPATH candidate=2 "));
}

TEST_F(TraceNames, WideCharactersOfTheModulesPathAreQuestionMarksInTheReportOnly) {
    m_disk.Stage(L"D:\\\u76F8\u673A", {{}});
    EXPECT_EQ(0u, ReportAs(L"D:\\\u76F8\u673A\\rvmediasource.dll", L"D:\\\u76F8\u673A\\trace.log")
                      .find("TRACEPATH candidate=2 path=D:\\\?\?\\trace.log cand1="));
}

}  // namespace
}  // namespace ravlo::test
