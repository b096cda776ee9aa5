// The directory gate itself: its verdicts, and exactly what it asks of the platform.
#include "trace_staging.h"

#include "support/handles.h"

#include "trace/directory_gate.h"
#include "trace/trace_location.h"

#include <gtest/gtest.h>

#include <utility>

namespace ravlo::test {
namespace {

class TraceGate : public AnchoredTest {
protected:
    RvTraceDirVerdict Check(const StagedDirectory& look) {
        m_disk.Stage(L"D:\\logs", {look});
        m_error = 0xDEAD;
        return RvCheckTraceDirectory(L"D:\\logs", &m_error);
    }

    StagedDisk m_disk{GetModuleHandleW(nullptr)};
    DWORD m_error = 0xDEAD;
};

TEST_F(TraceGate, AnEmptyPathIsRefusedBeforeAnythingIsOpened) {
    EXPECT_EQ(RvTraceDirVerdict::CannotOpen, RvCheckTraceDirectory(L"", &m_error));
    EXPECT_EQ(123u, m_error);
    m_error = 0;
    EXPECT_EQ(RvTraceDirVerdict::CannotOpen, RvCheckTraceDirectory(nullptr, &m_error));
    EXPECT_EQ(123u, m_error);
    EXPECT_TRUE(m_disk.Opens().empty());
}

TEST_F(TraceGate, OnlyTheTwoNotFoundErrorsMeanMissing) {
    EXPECT_EQ(RvTraceDirVerdict::Missing, Check({.openError = 2}));
    EXPECT_EQ(2u, m_error);
    EXPECT_EQ(RvTraceDirVerdict::Missing, Check({.openError = 3}));
    EXPECT_EQ(3u, m_error);
    for (const DWORD error : {1u, 5u, 32u, 53u, 123u, 161u}) {
        EXPECT_EQ(RvTraceDirVerdict::CannotOpen, Check({.openError = error}));
        EXPECT_EQ(error, m_error);
    }
}

TEST_F(TraceGate, AnUnansweredAttributeQueryIsCannotOpen) {
    EXPECT_EQ(RvTraceDirVerdict::CannotOpen, Check({.queryError = ERROR_NOT_SUPPORTED}));
    EXPECT_EQ(50u, m_error);
    EXPECT_EQ(0u, m_disk.OwnerQueries().Count());
}

TEST_F(TraceGate, ALinkIsRefusedWithItsTagBeforeItsKindOrOwnerMatters) {
    EXPECT_EQ(RvTraceDirVerdict::ReparsePoint, Check({.attributes = 0x410, .reparseTag = 0xA000000C}));
    EXPECT_EQ(0xA000000Cu, m_error);
    EXPECT_EQ(RvTraceDirVerdict::ReparsePoint, Check({.attributes = 0x400, .reparseTag = 0xA0000003}));
    EXPECT_EQ(2684354563u, m_error);
    EXPECT_EQ(0u, m_disk.OwnerQueries().Count());
}

TEST_F(TraceGate, AFileIsNotADirectory) {
    EXPECT_EQ(RvTraceDirVerdict::NotADirectory, Check({.attributes = FILE_ATTRIBUTE_NORMAL}));
    EXPECT_EQ(0u, m_error);
    EXPECT_EQ(0u, m_disk.OwnerQueries().Count());
}

TEST_F(TraceGate, AnOwnerThatCannotBeReadIsReportedWithTheResultOfTheCall) {
    EXPECT_EQ(RvTraceDirVerdict::OwnerUnreadable, Check({.ownerError = 1305}));
    EXPECT_EQ(1305u, m_error);
}

TEST_F(TraceGate, AForeignOwnerCarriesNoErrorWhileTheAnchorCanBeRead) {
    EXPECT_EQ(RvTraceDirVerdict::ForeignOwner, Check({.owner = kStrangerSid}));
    EXPECT_EQ(0u, m_error);
}

TEST_F(TraceGate, AForeignOwnerCarriesTheErrorOfTheAnchor) {
    m_anchor.DeleteKey();
    EXPECT_EQ(RvTraceDirVerdict::ForeignOwner, Check({.owner = kStrangerSid}));
    EXPECT_EQ(2u, m_error);
    m_anchor.Set(L"");
    EXPECT_EQ(RvTraceDirVerdict::ForeignOwner, Check({.owner = kStrangerSid}));
    EXPECT_EQ(1337u, m_error);
}

TEST_F(TraceGate, AnAcceptedOwnerNeedsNoAnchor) {
    m_anchor.DeleteKey();
    EXPECT_EQ(RvTraceDirVerdict::Ok, Check({.owner = kSystemSid}));
    EXPECT_EQ(0u, m_error);
}

TEST_F(TraceGate, TheAnchoredUserOwnsASoundDirectoryAndAFormerOneDoesNot) {
    m_anchor.Set(kStrangerSid);
    EXPECT_EQ(RvTraceDirVerdict::Ok, Check({.owner = kStrangerSid}));
    EXPECT_EQ(0u, m_error);
    m_anchor.Set(L"S-1-5-21-7-7-7-1235");
    EXPECT_EQ(RvTraceDirVerdict::ForeignOwner, Check({.owner = kStrangerSid}));
}

TEST_F(TraceGate, TheDirectoryItselfIsOpenedForNothingButItsOwner) {
    Check({});
    const auto open = m_disk.Opens().at(0);
    EXPECT_EQ(L"D:\\logs", std::get<0>(open));
    EXPECT_EQ(0x00020000u, std::get<1>(open));  // READ_CONTROL
    EXPECT_EQ(7u, std::get<2>(open));           // read, write and delete are shared
    EXPECT_EQ(nullptr, std::get<3>(open));
    EXPECT_EQ(3u, std::get<4>(open));           // OPEN_EXISTING
    EXPECT_EQ(0x02200000u, std::get<5>(open));  // backup semantics, open the link itself
    EXPECT_EQ(nullptr, std::get<6>(open));

    const auto query = m_disk.AttributeQueries().Calls().at(0);
    EXPECT_EQ(FileAttributeTagInfo, std::get<1>(query));
    EXPECT_EQ(8u, std::get<3>(query));
    const auto owner = m_disk.OwnerQueries().Calls().at(0);
    EXPECT_EQ(SE_FILE_OBJECT, std::get<1>(owner));
    EXPECT_EQ(1u, std::get<2>(owner));  // the owner and nothing else
    EXPECT_EQ(nullptr, std::get<4>(owner));
    EXPECT_EQ(nullptr, std::get<5>(owner));
    EXPECT_EQ(nullptr, std::get<6>(owner));
}

TEST_F(TraceGate, NoVerdictLeavesAHandleOpen) {
    const StagedDirectory looks[] = {
        {}, {.queryError = 5}, {.attributes = 0x410}, {.attributes = 0x20}, {.ownerError = 5}, {.owner = kStrangerSid}};
    Check({});
    const std::size_t before = SettledHandles();
    for (int round = 0; round < 5; ++round) {
        for (const StagedDirectory& look : looks) {
            Check(look);
        }
    }
    EXPECT_TRUE(HandlesSettleAt(before)) << CountHandles() << " instead of " << before;
}

TEST_F(TraceGate, EveryVerdictHasItsWord) {
    const std::pair<LONG, const char*> words[] = {{-2, "REFUSED-UNKNOWN"},
                                                  {-1, "NOT-RUN"},
                                                  {0, "OK"},
                                                  {1, "MISSING"},
                                                  {2, "REFUSED-REPARSE-POINT"},
                                                  {3, "REFUSED-NOT-A-DIRECTORY"},
                                                  {4, "REFUSED-CANNOT-OPEN"},
                                                  {5, "REFUSED-OWNER-UNREADABLE"},
                                                  {6, "REFUSED-FOREIGN-OWNER"},
                                                  {7, "REFUSED-UNKNOWN"}};
    for (const auto& [value, word] : words) {
        EXPECT_STREQ(word, TraceDirVerdictWord(static_cast<RvTraceDirVerdict>(value)));
    }
}

TEST_F(TraceGate, ALocationStartsWithNothingRunAndNoOpenTried) {
    m_disk.Stage(kProgramDataDirectory, {{}});
    RvTraceLocation location;
    std::memset(&location, 0x5A, sizeof location);
    ChooseTraceLocation(location, nullptr);
    EXPECT_STREQ("ravlo_trace_gate_test.exe", location.processName);
    EXPECT_STREQ(kProgramDataLog, location.path);
    EXPECT_EQ(1u, location.candidate);
    EXPECT_EQ(RvTraceDirVerdict::Ok, location.verdicts[0]);
    EXPECT_EQ(RvTraceDirVerdict::NotRun, location.verdicts[1]);
    EXPECT_EQ(RvTraceDirVerdict::NotRun, location.verdicts[2]);
    EXPECT_EQ(0u, location.gateErrors[0] + location.gateErrors[1] + location.gateErrors[2]);
    EXPECT_EQ(0u, location.openErrors[0]);
    EXPECT_EQ(21u, location.openErrors[1]);
    EXPECT_EQ(21u, location.openErrors[2]);
}

TEST_F(TraceGate, WithoutAModuleHandleTheModulesDirectoryIsSkipped) {
    RvTraceLocation location;
    m_disk.Stage(ProgramDirectory(), {{}});
    m_disk.FailCreation(ERROR_ACCESS_DENIED);
    ChooseTraceLocation(location, nullptr);
    EXPECT_EQ(3u, location.candidate);
    EXPECT_STREQ(kTempLog, location.path);
    EXPECT_EQ(RvTraceDirVerdict::Missing, location.verdicts[0]);
    EXPECT_EQ(3u, location.gateErrors[0]);
    EXPECT_EQ(RvTraceDirVerdict::NotRun, location.verdicts[1]);
    EXPECT_EQ(21u, location.openErrors[1]);
    EXPECT_EQ(RvTraceDirVerdict::NotRun, location.verdicts[2]);  // never judged, even when it is taken
    EXPECT_EQ(0u, location.gateErrors[2]);
    EXPECT_EQ(0u, location.openErrors[2]);
}

TEST_F(TraceGate, ALocationThatNobodyOffersIsEmpty) {
    RvTraceLocation location;
    m_disk.FailCreation(ERROR_ACCESS_DENIED);
    m_disk.FailFile(kTempLog, ERROR_DISK_FULL);
    ChooseTraceLocation(location, nullptr);
    EXPECT_EQ(0u, location.candidate);
    EXPECT_STREQ(L"", location.path);
    EXPECT_EQ(112u, location.openErrors[2]);
}

}  // namespace
}  // namespace ravlo::test
