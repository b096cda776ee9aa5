// Where the log of a service may lie: links, files, strangers' directories and bad anchors at both gated places, and
// what stands in the log afterwards.
#include "trace_staging.h"

#include "pipe/authorized_user.h"
#include "support/pipe_client.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ravlo::test {
namespace {

/// One thing that the gate may find, and what the report shows for it.
struct Finding {
    StagedDirectory look;
    std::string shown;
};

class SecurityLog : public StagedLogTest {
protected:
    /// Loads the module with ProgramData and its own directory like this; its report, from the place that it took.
    std::string ReportOf(const std::vector<StagedDirectory>& programData, const StagedDirectory& moduleDirectory,
                         const std::wstring& log) {
        m_disk.Stage(kProgramDataDirectory, programData);
        m_disk.Stage(m_moduleDirectory, {moduleDirectory});
        for (const wchar_t* const path : {kProgramDataLog, m_moduleLog.c_str(), kTempLog}) {
            DeleteFileW(m_disk.RealPathOf(path).c_str());
        }
        AttachAndDetach();
        return Report(log);
    }
    /// The finding at either place: the log goes on to the next one, and nothing is written where it was found.
    void ExpectRefusedAtBothPlaces(const Finding& finding) {
        SCOPED_TRACE(finding.shown);
        EXPECT_EQ("TRACEPATH candidate=2 path=" + Narrow(m_moduleLog) +
                      " cand1=C:\\ProgramData\\Ravlo gate=" + finding.shown +
                      "/openerr=21 cand2=<dll-directory> gate=OK/gateerr=0/openerr=0 "
                      "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=21",
                  ReportOf({finding.look}, {}, m_moduleLog));
        EXPECT_EQ("TRACEPATH candidate=3 path=C:\\Windows\\Temp\\ravlo-trace.log cand1=C:\\ProgramData\\Ravlo gate=" +
                      finding.shown + "/openerr=21 cand2=<dll-directory> gate=" + finding.shown +
                      "/openerr=21 cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=0",
                  ReportOf({finding.look}, finding.look, kTempLog));
        EXPECT_EQ("", m_disk.TextOf(kProgramDataLog) + m_disk.TextOf(m_moduleLog));
        EXPECT_EQ(0u, m_disk.DirectoryCreations().Count());
    }
};

TEST_F(SecurityLog, ALinkOfAnyKindIsRefusedAtBothPlaces) {
    // Junction, symbolic link, cloud file, subsystem link, application link, deduplicated, compressed, and no tag.
    for (const DWORD tag :
         {0xA0000003u, 0xA000000Cu, 0x9000001Au, 0xA000001Du, 0x8000001Bu, 0x80000013u, 0x80000017u, 0u}) {
        for (const DWORD attributes : {0x410u, 0x400u, 0x420u, 0x2416u}) {
            ExpectRefusedAtBothPlaces({{.attributes = attributes, .reparseTag = tag},
                                       "REFUSED-REPARSE-POINT/gateerr=" + std::to_string(tag)});
        }
    }
}

TEST_F(SecurityLog, WhatIsNoDirectoryOrCannotBeReadIsRefusedAtBothPlaces) {
    for (const DWORD attributes : {0x20u, 0x80u, 0x1u, 0x0u}) {
        ExpectRefusedAtBothPlaces({{.attributes = attributes}, "REFUSED-NOT-A-DIRECTORY/gateerr=0"});
    }
    for (const DWORD error : {1u, 5u, 32u, 53u, 67u, 123u, 161u, 1920u}) {
        ExpectRefusedAtBothPlaces({{.openError = error}, "REFUSED-CANNOT-OPEN/gateerr=" + std::to_string(error)});
        ExpectRefusedAtBothPlaces({{.queryError = error}, "REFUSED-CANNOT-OPEN/gateerr=" + std::to_string(error)});
        ExpectRefusedAtBothPlaces({{.ownerError = error}, "REFUSED-OWNER-UNREADABLE/gateerr=" + std::to_string(error)});
    }
}

TEST_F(SecurityLog, EveryForeignOwnerIsRefusedAtBothPlaces) {
    for (const wchar_t* const owner :
         {L"", L"S-1-5-20", L"S-1-1-0", L"S-1-5-11", L"S-1-5-7", L"S-1-5-4", L"S-1-5-6", L"S-1-3-0", L"S-1-0-0",
          L"S-1-5-32-545", L"S-1-5-32-546", L"S-1-5-32-551", L"S-1-5-18-1", L"S-1-5-19-1", L"S-1-5-180", L"S-1-15-2-1",
          L"S-1-5-21-7-7-7-1234", L"S-1-5-21-7-7-7-500",
          L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478465"}) {
        SCOPED_TRACE(Narrow(owner));
        ExpectRefusedAtBothPlaces({{.owner = owner}, "REFUSED-FOREIGN-OWNER/gateerr=0"});
    }
}

TEST_F(SecurityLog, TheTrustedOwnersAreTakenAtEitherPlace) {
    for (const std::wstring& owner :
         {std::wstring(L"S-1-5-18"), std::wstring(L"S-1-5-19"), std::wstring(L"S-1-5-32-544"),
          std::wstring(L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464"), CurrentUserSid()}) {
        SCOPED_TRACE(Narrow(owner));
        EXPECT_EQ(0u, ReportOf({{.owner = owner}}, {}, kProgramDataLog).find("TRACEPATH candidate=1 "));
        EXPECT_EQ(0u,
                  ReportOf({{.owner = kStrangerSid}}, {.owner = owner}, m_moduleLog).find("TRACEPATH candidate=2 "));
    }
}

TEST_F(SecurityLog, ABadAnchorMakesNobodyAnOwner) {
    struct Row {
        std::wstring anchor;
        std::wstring owner;
        DWORD error;
    };
    const Row rows[] = {
        {L"S-1-1-0", L"S-1-1-0", 1337},
        {L"S-1-5-11", L"S-1-5-11", 1337},
        {L"S-1-5-32-545", L"S-1-5-32-545", 1337},
        {L"s-1-1-0", L"S-1-1-0", 1337},
        {L"S-1-0x1-0", L"S-1-1-0", 1337},
        {L"", kStrangerSid, 1337},
        {L"S-1-5-21-7-7-7-1234 ", kStrangerSid, 1337},
        {L"S-1-5-21-7-7-7-1234x", kStrangerSid, 1337},
        {L"S-1-5-21-7-7-7-4294968530", kStrangerSid, 1337},  // would be the stranger's if it wrapped around
        {L"S-1-5-21-7-7-7-12345", kStrangerSid, 0},          // a good anchor, but not this owner's
        {std::wstring(512, L'1'), kStrangerSid, 234},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.anchor));
        m_anchor.Set(row.anchor);
        ExpectRefusedAtBothPlaces({{.owner = row.owner}, "REFUSED-FOREIGN-OWNER/gateerr=" + std::to_string(row.error)});
    }
    const std::wstring text = kStrangerSid;
    for (DWORD type = REG_NONE; type <= REG_QWORD; ++type) {
        if (type != REG_SZ && type != REG_EXPAND_SZ) {
            SCOPED_TRACE(type);
            m_anchor.SetRaw(type, std::as_bytes(std::span(text.c_str(), text.size() + 1)));
            ExpectRefusedAtBothPlaces({{.owner = kStrangerSid}, "REFUSED-FOREIGN-OWNER/gateerr=1630"});
        }
    }
    m_anchor.Delete();
    ExpectRefusedAtBothPlaces({{.owner = kStrangerSid}, "REFUSED-FOREIGN-OWNER/gateerr=2"});
}

TEST_F(SecurityLog, AnExpandableAnchorIsExpandedForTheLogAndRefusedForThePipes) {
    const std::wstring text = L"%RAVLO_TEST_SID%";
    ASSERT_TRUE(SetEnvironmentVariableW(L"RAVLO_TEST_SID", kStrangerSid));
    m_anchor.SetRaw(REG_EXPAND_SZ, std::as_bytes(std::span(text.c_str(), text.size() + 1)));
    EXPECT_EQ(0u, ReportOf({{.owner = kStrangerSid}}, {}, kProgramDataLog).find("TRACEPATH candidate=1 "));
    SetEnvironmentVariableW(L"RAVLO_TEST_SID", nullptr);
    std::wstring sid;
    EXPECT_EQ(AnchorReason::WrongType, ReadAuthorizedUserAnchor(sid));
}

TEST_F(SecurityLog, WhatSomebodyPutsInPlaceOfTheMissingDirectoryIsJudgedAgain) {
    const Finding findings[] = {
        {{.attributes = 0x410, .reparseTag = 0xA0000003}, "REFUSED-REPARSE-POINT/gateerr=2684354563"},
        {{.attributes = 0x20}, "REFUSED-NOT-A-DIRECTORY/gateerr=0"},
        {{.owner = kStrangerSid}, "REFUSED-FOREIGN-OWNER/gateerr=0"},
        {{.openError = ERROR_ACCESS_DENIED}, "REFUSED-CANNOT-OPEN/gateerr=5"},
        {{.ownerError = ERROR_ACCESS_DENIED}, "REFUSED-OWNER-UNREADABLE/gateerr=5"},
    };
    for (const DWORD created : {DWORD{ERROR_SUCCESS}, DWORD{ERROR_ALREADY_EXISTS}}) {
        m_disk.FailCreation(created);
        for (const Finding& finding : findings) {
            SCOPED_TRACE(finding.shown);
            const std::string report = ReportOf({{.openError = ERROR_FILE_NOT_FOUND}, finding.look}, {}, m_moduleLog);
            EXPECT_NE(std::string::npos,
                      report.find(" cand1=C:\\ProgramData\\Ravlo gate=" + finding.shown + "/openerr=21 "))
                << report;
            EXPECT_EQ("", m_disk.TextOf(kProgramDataLog));
        }
    }
}

TEST_F(SecurityLog, ALinkInPlaceOfTheFileIsOpenedItselfAndNotFollowed) {
    ReportOf({{}}, {}, kProgramDataLog);
    std::size_t opens = 0;
    for (const auto& call : m_disk.Opens()) {
        if (std::get<1>(call) == FILE_APPEND_DATA) {
            ++opens;
            EXPECT_NE(0u, std::get<5>(call) & FILE_FLAG_OPEN_REPARSE_POINT);
            EXPECT_EQ(nullptr, std::get<3>(call)) << "no access list of its own";
        }
    }
    EXPECT_GE(opens, 3u);
}

/// What a service's log tells about the people who use the camera.
class SecurityLogText : public ModuleTest {};

TEST_F(SecurityLogText, APictureReachesNoLineAndARefusedHeaderOnlyAsNumbers) {
    Camera camera(m_module);
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(camera.PipeName()));
    std::vector<std::uint8_t> picture(320 * 180 * 3 / 2);
    const std::string secret = "A-FACE-IN-THE-PICTURE";
    for (std::size_t i = 0; i < picture.size(); ++i) {
        picture[i] = static_cast<std::uint8_t>(secret[i % secret.size()]);
    }
    ASSERT_TRUE(producer.SendHeader(HeaderFor(320, 180, 1)));
    ASSERT_TRUE(producer.SendBytes(picture.data(), picture.size()));
    ASSERT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=1")) << m_log.Text();
    camera.Start();
    EXPECT_EQ(picture, camera.Pull().bytes);
    // Text where a header should be: its fields are shown as numbers.
    std::string noHeader = secret + secret;
    noHeader.resize(sizeof(WireHeader), '!');
    ASSERT_TRUE(producer.SendBytes(noHeader.data(), noHeader.size()));
    ASSERT_TRUE(m_log.WaitForLine("PIPE header rejected: MAGIC (wire magic=0x41462D41 ")) << m_log.Text();
    EXPECT_FALSE(m_log.Contains("FACE"));
}

TEST_F(SecurityLogText, WhoIsInvolvedAndWhatTheOwnerOfTheCameraSetIsInTheLog) {
    ComPtr<IMFActivate> activate = m_module.CreateSource<IMFActivate>();
    ASSERT_EQ(S_OK, activate->SetString(kGeometryAttribute, L"320x180@30/1"));
    ASSERT_EQ(S_OK, activate->SetString(kPipeNameAttribute, UniquePipeName().c_str()));
    constexpr GUID kNote = {0x1234, 5, 6, {7, 8, 9, 10, 11, 12, 13, 14}};
    ASSERT_EQ(S_OK, activate->SetString(kNote, L"written by a client"));
    IMFMediaSource* source = nullptr;
    ASSERT_EQ(S_OK, activate->ActivateObject(__uuidof(IMFMediaSource), reinterpret_cast<void**>(&source)));
    const std::string user = Narrow(CurrentUserSid());
    EXPECT_TRUE(m_log.HasMessage("WHOAMI process_user=" + user));
    EXPECT_TRUE(m_log.WaitForLine("PIPE authorized user read from HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid: " + user));
    EXPECT_TRUE(m_log.Contains(" value=written by a client"));
    source->Shutdown();
    source->Release();
    activate->ShutdownObject();
}

}  // namespace
}  // namespace ravlo::test
