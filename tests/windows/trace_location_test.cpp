// Which of its three places the log takes, and the one line that reports why.
#include "trace_staging.h"

#include <gtest/gtest.h>

namespace ravlo::test {
namespace {

constexpr char kLastResort[] = " cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=";

class TraceLocation : public StagedLogTest {
protected:
    /// The report of a log in the module's own directory, whose gate and open went well.
    std::string ModuleDirectoryReport(const std::string& firstCandidate) const {
        return "TRACEPATH candidate=2 path=" + Narrow(m_moduleLog) +
               " cand1=C:\\ProgramData\\Ravlo gate=" + firstCandidate +
               " cand2=<dll-directory> gate=OK/gateerr=0/openerr=0" + kLastResort + "21";
    }
};

TEST_F(TraceLocation, ASoundProgramDataDirectoryIsTakenAndTheOthersAreNotTried) {
    m_disk.Stage(kProgramDataDirectory, {{.owner = kSystemSid}});
    AttachAndDetach();
    const std::vector<std::string> messages = Messages(kProgramDataLog);
    ASSERT_EQ(3u, messages.size());
    EXPECT_EQ(
        "TRACEPATH candidate=1 path=C:\\ProgramData\\Ravlo\\trace.log cand1=C:\\ProgramData\\Ravlo gate=OK/gateerr=0/openerr=0 "
        "cand2=<dll-directory> gate=NOT-RUN/gateerr=0/openerr=21 "
        "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=21",
        messages[0]);
    EXPECT_EQ(0u, messages[1].find("ATTACH DLL_PROCESS_ATTACH hInstance="));
    EXPECT_EQ(0u, messages[2].find("ATTACH DLL_PROCESS_DETACH hInstance="));
    // The look, the test, and one opening for each line.
    const std::vector<std::wstring> expected = {kProgramDataDirectory, kProgramDataLog, kProgramDataLog,
                                                kProgramDataLog, kProgramDataLog};
    EXPECT_EQ(expected, m_disk.OpenedPaths());
    EXPECT_EQ(0u, m_disk.DirectoryCreations().Count());
}

TEST_F(TraceLocation, TheReportIsWrittenOnceHoweverManyLinesFollow) {
    m_disk.Stage(kProgramDataDirectory, {{}});
    {
        const ModuleUnderTest module(m_loading);
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(S_OK, module.Factory() ? S_OK : E_FAIL);
        }
    }
    int reports = 0;
    for (const std::string& message : Messages(kProgramDataLog)) {
        reports += message.starts_with("TRACEPATH ");
    }
    EXPECT_EQ(1, reports);
    EXPECT_EQ(43u, Messages(kProgramDataLog).size());  // report, attach, detach, and two lines for each factory
}

TEST_F(TraceLocation, AForeignOwnerSendsTheLogToTheModulesOwnDirectory) {
    m_disk.Stage(kProgramDataDirectory, {{.owner = kStrangerSid}});
    m_disk.Stage(m_moduleDirectory, {{}});
    AttachAndDetach();
    EXPECT_EQ(ModuleDirectoryReport("REFUSED-FOREIGN-OWNER/gateerr=0/openerr=21"), Report(m_moduleLog));
    EXPECT_EQ(3u, Messages(m_moduleLog).size());
    EXPECT_EQ("", m_disk.TextOf(kProgramDataLog));
}

TEST_F(TraceLocation, AForeignOwnerWithoutAnAnchorShowsWhyTheAnchorCouldNotBeRead) {
    m_disk.Stage(kProgramDataDirectory, {{.owner = kStrangerSid}});
    m_disk.Stage(m_moduleDirectory, {{}});
    m_anchor.Delete();
    AttachAndDetach();
    EXPECT_EQ(ModuleDirectoryReport("REFUSED-FOREIGN-OWNER/gateerr=2/openerr=21"), Report(m_moduleLog));
}

TEST_F(TraceLocation, AnAnchorThatNamesABroadGroupDoesNotMakeItAnOwner) {
    for (const wchar_t* const group : {L"S-1-1-0", L"S-1-5-11", L"S-1-5-32-545"}) {
        m_anchor.Set(group);
        m_disk.Stage(kProgramDataDirectory, {{.owner = group}});
        m_disk.Stage(m_moduleDirectory, {{}});
        DeleteFileW(m_disk.RealPathOf(m_moduleLog).c_str());
        AttachAndDetach();
        EXPECT_EQ(ModuleDirectoryReport("REFUSED-FOREIGN-OWNER/gateerr=1337/openerr=21"), Report(m_moduleLog));
    }
}

TEST_F(TraceLocation, ADirectoryOfTheAuthorizedUserIsTaken) {
    m_anchor.Set(kStrangerSid);
    m_disk.Stage(kProgramDataDirectory, {{.owner = kStrangerSid}});
    AttachAndDetach();
    EXPECT_EQ(0u, Report(kProgramDataLog).find("TRACEPATH candidate=1 "));
}

TEST_F(TraceLocation, AMissingProgramDataDirectoryIsMadeAndJudgedAgain) {
    m_disk.Stage(kProgramDataDirectory, {{.openError = ERROR_FILE_NOT_FOUND}, {.owner = kSystemSid}});
    AttachAndDetach();
    EXPECT_NE(std::string::npos,
              Report(kProgramDataLog).find("cand1=C:\\ProgramData\\Ravlo gate=OK/gateerr=0/openerr=0 "));
    ASSERT_EQ(1u, m_disk.DirectoryCreations().Count());
    const auto creation = m_disk.DirectoryCreations().Calls().at(0);
    EXPECT_EQ(L"C:\\ProgramData\\Ravlo", std::get<0>(creation));
    EXPECT_EQ(nullptr, std::get<1>(creation));
    const std::vector<std::wstring> paths = m_disk.OpenedPaths();
    EXPECT_EQ(kProgramDataDirectory, paths.at(0));
    EXPECT_EQ(kProgramDataDirectory, paths.at(1));
    EXPECT_EQ(kProgramDataLog, paths.at(2));
}

TEST_F(TraceLocation, ADirectoryThatSomebodyElseMakesFirstIsJudgedLikeAnyOther) {
    m_disk.Stage(kProgramDataDirectory, {{.openError = ERROR_PATH_NOT_FOUND}, {.owner = kStrangerSid}});
    m_disk.FailCreation(ERROR_ALREADY_EXISTS);
    m_disk.Stage(m_moduleDirectory, {{}});
    AttachAndDetach();
    EXPECT_EQ(ModuleDirectoryReport("REFUSED-FOREIGN-OWNER/gateerr=0/openerr=21"), Report(m_moduleLog));
}

TEST_F(TraceLocation, ADirectoryThatCannotBeMadeStaysMissing) {
    m_disk.Stage(kProgramDataDirectory, {{.openError = ERROR_PATH_NOT_FOUND}, {.owner = kSystemSid}});
    m_disk.FailCreation(ERROR_ACCESS_DENIED);
    m_disk.Stage(m_moduleDirectory, {{}});
    AttachAndDetach();
    EXPECT_EQ(ModuleDirectoryReport("MISSING/gateerr=3/openerr=21"), Report(m_moduleLog));
}

TEST_F(TraceLocation, ADirectoryThatIsMissingAgainAfterItWasMadeIsNotMadeTwice) {
    m_disk.Stage(kProgramDataDirectory, {{.openError = ERROR_PATH_NOT_FOUND}, {.openError = ERROR_FILE_NOT_FOUND}});
    m_disk.Stage(m_moduleDirectory, {{}});
    AttachAndDetach();
    EXPECT_EQ(ModuleDirectoryReport("MISSING/gateerr=2/openerr=21"), Report(m_moduleLog));
    EXPECT_EQ(1u, m_disk.DirectoryCreations().Count());
}

TEST_F(TraceLocation, EveryOtherVerdictOnProgramDataIsReportedWithItsError) {
    struct Row {
        StagedDirectory look;
        const char* shown;
    };
    const Row rows[] = {
        {{.attributes = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT, .reparseTag = 0xA0000003},
         "REFUSED-REPARSE-POINT/gateerr=2684354563/openerr=21"},
        {{.attributes = FILE_ATTRIBUTE_ARCHIVE}, "REFUSED-NOT-A-DIRECTORY/gateerr=0/openerr=21"},
        {{.openError = ERROR_ACCESS_DENIED}, "REFUSED-CANNOT-OPEN/gateerr=5/openerr=21"},
        {{.queryError = ERROR_INVALID_FUNCTION}, "REFUSED-CANNOT-OPEN/gateerr=1/openerr=21"},
        {{.ownerError = ERROR_ACCESS_DENIED}, "REFUSED-OWNER-UNREADABLE/gateerr=5/openerr=21"},
        {{.owner = L""}, "REFUSED-FOREIGN-OWNER/gateerr=0/openerr=21"},
    };
    m_disk.Stage(m_moduleDirectory, {{}});
    for (const Row& row : rows) {
        m_disk.Stage(kProgramDataDirectory, {row.look});
        DeleteFileW(m_disk.RealPathOf(m_moduleLog).c_str());
        AttachAndDetach();
        EXPECT_EQ(ModuleDirectoryReport(row.shown), Report(m_moduleLog));
    }
    EXPECT_EQ(0u, m_disk.DirectoryCreations().Count());
}

TEST_F(TraceLocation, ALogFileThatDoesNotOpenInASoundDirectorySendsTheLogOn) {
    m_disk.Stage(kProgramDataDirectory, {{}});
    m_disk.FailFile(kProgramDataLog, ERROR_ACCESS_DENIED);
    m_disk.Stage(m_moduleDirectory, {{}});
    AttachAndDetach();
    EXPECT_EQ(ModuleDirectoryReport("OK/gateerr=0/openerr=5"), Report(m_moduleLog));
}

TEST_F(TraceLocation, TheLastResortIsTakenWithoutAnyLookAtItsDirectory) {
    m_disk.Stage(kProgramDataDirectory, {{}});
    m_disk.FailFile(kProgramDataLog, ERROR_SHARING_VIOLATION);
    m_disk.Stage(m_moduleDirectory, {{.owner = kStrangerSid}});
    AttachAndDetach();
    EXPECT_EQ(
        "TRACEPATH candidate=3 path=C:\\Windows\\Temp\\ravlo-trace.log "
        "cand1=C:\\ProgramData\\Ravlo gate=OK/gateerr=0/openerr=32 "
        "cand2=<dll-directory> gate=REFUSED-FOREIGN-OWNER/gateerr=0/openerr=21 "
        "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=0",
        Report(kTempLog));
    EXPECT_EQ(3u, Messages(kTempLog).size());
    const std::vector<std::wstring> expected = {
        kProgramDataDirectory, kProgramDataLog, m_moduleDirectory, kTempLog, kTempLog, kTempLog, kTempLog};
    EXPECT_EQ(expected, m_disk.OpenedPaths());
}

TEST_F(TraceLocation, AMissingModuleDirectoryIsNeverMade) {
    m_disk.Stage(kProgramDataDirectory, {{.attributes = FILE_ATTRIBUTE_ARCHIVE}});
    AttachAndDetach();
    EXPECT_EQ(
        "TRACEPATH candidate=3 path=C:\\Windows\\Temp\\ravlo-trace.log "
        "cand1=C:\\ProgramData\\Ravlo gate=REFUSED-NOT-A-DIRECTORY/gateerr=0/openerr=21 "
        "cand2=<dll-directory> gate=MISSING/gateerr=3/openerr=21 "
        "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=0",
        Report(kTempLog));
    EXPECT_EQ(0u, m_disk.DirectoryCreations().Count());
}

TEST_F(TraceLocation, WhenNoPlaceWorksNothingIsEverWrittenAndNothingIsTriedAgain) {
    m_disk.Stage(kProgramDataDirectory, {{.owner = kStrangerSid}});
    m_disk.Stage(m_moduleDirectory, {{}});
    m_disk.FailFile(m_moduleLog, ERROR_ACCESS_DENIED);
    m_disk.FailFile(kTempLog, ERROR_ACCESS_DENIED);
    const std::vector<std::wstring> tried = {kProgramDataDirectory, m_moduleDirectory, m_moduleLog, kTempLog};
    {
        RAVLO_HOOK(WriteFile) writes(m_loading);
        const ModuleUnderTest module(m_loading);
        EXPECT_EQ(tried, m_disk.OpenedPaths());
        m_disk.Stage(kProgramDataDirectory, {{}});
        m_disk.FailFile(kTempLog, ERROR_SUCCESS);
        EXPECT_TRUE(module.Factory());
        EXPECT_EQ(tried, m_disk.OpenedPaths());
        EXPECT_EQ(0u, writes.Count());
    }
    EXPECT_EQ(tried, m_disk.OpenedPaths());
    EXPECT_EQ("", m_disk.TextOf(kProgramDataLog) + m_disk.TextOf(m_moduleLog) + m_disk.TextOf(kTempLog));
}

TEST_F(TraceLocation, AChosenPlaceIsKeptWhateverBecomesOfIt) {
    m_disk.Stage(kProgramDataDirectory, {{}});
    m_disk.Stage(m_moduleDirectory, {{}});
    {
        const ModuleUnderTest module(m_loading);
        m_disk.Stage(kProgramDataDirectory, {{.owner = kStrangerSid}});
        const std::size_t before = Messages(kProgramDataLog).size();
        EXPECT_TRUE(module.Factory());
        EXPECT_EQ(before + 2, Messages(kProgramDataLog).size());
        m_disk.FailFile(kProgramDataLog, ERROR_ACCESS_DENIED);
        EXPECT_TRUE(module.Factory());  // these two lines are lost
        m_disk.FailFile(kProgramDataLog, ERROR_SUCCESS);
        EXPECT_TRUE(module.Factory());
        EXPECT_EQ(before + 4, Messages(kProgramDataLog).size());
    }
    EXPECT_EQ(1u, m_disk.AttributeQueries().Count());
    EXPECT_EQ("", m_disk.TextOf(m_moduleLog));
    EXPECT_EQ("", m_disk.TextOf(kTempLog));
}

}  // namespace
}  // namespace ravlo::test
