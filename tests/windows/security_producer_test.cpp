// A producer in front of pipes of every owner, under every anchor: into which one it writes.
#include "pipe/pipe_producer.h"

#include "account_lookups.h"
#include "made_pipe.h"
#include "pipe_objects.h"
#include "security_descriptor.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"

#include <gtest/gtest.h>

namespace ravlo::test {
namespace {

using OpenHook = RAVLO_HOOK(CreateFileW);
using SecurityHook = RAVLO_HOOK(GetSecurityInfo);

constexpr wchar_t kUser[] = L"S-1-5-21-11-22-33-1001";
constexpr DWORD kInvalidOwner = 1307;

/// An account database in which everybody of a domain is a user, unless a test says otherwise.
class SecurityProducer : public AnchoredTest {
protected:
    SecurityProducer() : m_lookups(ThisProgram()) { AnswerLookups(m_lookups, SidTypeUser); }
    void ExpectRefused() {
        RAVLO_HOOK(WriteFile) writes(ThisProgram());
        EXPECT_FALSE(m_producer.ConnectToServer(m_name.c_str(), 0));
        EXPECT_EQ(kInvalidOwner, m_producer.LastError());
        EXPECT_EQ(OwnerTrust::Untrusted, m_producer.Owner());
        EXPECT_FALSE(m_producer.IsConnected());
        // Whoever does not look at the result writes nothing all the same.
        EXPECT_EQ(WriteOutcome::Failed, m_producer.WriteFrame(MakeFrameHeader(2, 2, 1), "123456", 1000));
        EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_HANDLE), m_producer.LastError());
        EXPECT_EQ(0u, writes.Count());
    }
    void ExpectTrusted(OwnerTrust owner) {
        EXPECT_TRUE(m_producer.ConnectToServer(m_name.c_str(), 0)) << m_producer.LastError();
        EXPECT_EQ(owner, m_producer.Owner());
        EXPECT_TRUE(m_producer.IsConnected());
        m_producer.Disconnect();
    }
    /// A real pipe of this owner.
    void ExpectOf(const std::wstring& owner, OwnerTrust trust) {
        SCOPED_TRACE(Narrow(owner));
        const MadePipe pipe(m_name, (L"O:" + owner + L"D:(A;;GA;;;WD)").c_str());
        if (trust == OwnerTrust::Untrusted) {
            ExpectRefused();
        } else {
            ExpectTrusted(trust);
        }
    }

    const std::wstring m_name = UniquePipeName();
    LookupHook m_lookups;
    PipeProducer m_producer;
};

TEST_F(SecurityProducer, TheServicesAreTrustedUnderEveryAnchor) {
    for (const wchar_t* const anchor : {kUser, L"S-1-5-18", L"S-1-1-0", L"nobody", L""}) {
        SCOPED_TRACE(Narrow(anchor));
        m_anchor.Set(anchor);
        ExpectOf(L"S-1-5-19", OwnerTrust::LocalService);
        ExpectOf(L"S-1-5-18", OwnerTrust::LocalSystem);
    }
    m_anchor.DeleteKey();
    ExpectOf(L"S-1-5-19", OwnerTrust::LocalService);
    ExpectOf(L"S-1-5-18", OwnerTrust::LocalSystem);
}

TEST_F(SecurityProducer, TheAuthorizedUserIsTrustedAndHisNeighboursAreNot) {
    m_anchor.Set(kUser);
    ExpectOf(kUser, OwnerTrust::AuthorizedUser);
    for (const wchar_t* const owner :
         {L"S-1-5-21-11-22-33-1002", L"S-1-5-21-11-22-33-10010", L"S-1-5-21-11-22-33-100", L"S-1-5-21-11-22-33",
          L"S-1-5-21-11-22-33-1001-1", L"S-1-5-21-11-22-34-1001", L"S-1-5-22-11-22-33-1001"}) {
        ExpectOf(owner, OwnerTrust::Untrusted);
    }
    m_anchor.Set(L"s-1-5-21-11-22-33-1001");
    ExpectOf(kUser, OwnerTrust::AuthorizedUser);
}

TEST_F(SecurityProducer, EverybodyElseIsAStranger) {
    m_anchor.Set(kUser);
    for (const wchar_t* const owner :
         {L"S-1-5-20", L"S-1-5-32-544", L"S-1-5-32-545", L"S-1-5-32-551", L"S-1-1-0", L"S-1-5-11", L"S-1-5-7",
          L"S-1-5-4", L"S-1-5-6", L"S-1-3-0", L"S-1-0-0", L"S-1-5-18-1", L"S-1-5-19-1", L"S-1-5-180", L"S-1-5-1",
          L"S-1-15-2-1", L"S-1-16-12288", L"S-1-5-21-0-0-0-513",
          L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464"}) {
        ExpectOf(owner, OwnerTrust::Untrusted);
    }
    ExpectOf(CurrentUserSid(), OwnerTrust::Untrusted);
}

TEST_F(SecurityProducer, WithoutAUsableAnchorNoUserIsTrusted) {
    m_anchor.DeleteKey();
    ExpectOf(kUser, OwnerTrust::Untrusted);
    m_anchor.Set(kUser);
    m_anchor.Delete();
    ExpectOf(kUser, OwnerTrust::Untrusted);
    for (const DWORD type : {REG_NONE, REG_EXPAND_SZ, REG_BINARY, REG_MULTI_SZ}) {
        m_anchor.SetRaw(type, std::as_bytes(std::span(kUser)));
        ExpectOf(kUser, OwnerTrust::Untrusted);
    }
    m_anchor.Set(std::wstring(kUser) + L" ");
    ExpectOf(kUser, OwnerTrust::Untrusted);
    m_anchor.Set(kUser);
    RAVLO_HOOK(RegQueryValueExW) queries(ThisProgram());
    queries.FailEvery(ERROR_ACCESS_DENIED);
    ExpectOf(kUser, OwnerTrust::Untrusted);
    queries.PassOn();
    ExpectOf(kUser, OwnerTrust::AuthorizedUser);
}

TEST_F(SecurityProducer, AGroupIsNotTrustedThroughTheAnchorThatNamesIt) {
    // Refused by value, whatever the account database says.
    for (const wchar_t* const group :
         {L"S-1-1-0", L"S-1-5-11", L"S-1-5-7", L"S-1-5-4", L"S-1-5-32-544", L"S-1-5-32-545", L"S-1-5-32-580"}) {
        m_anchor.Set(group);
        ExpectOf(group, OwnerTrust::Untrusted);
    }
    // Refused because the database says so, or says nothing.
    m_anchor.Set(kUser);
    for (int use = SidTypeGroup; use <= 12; ++use) {
        SCOPED_TRACE(use);
        AnswerLookups(m_lookups, static_cast<SID_NAME_USE>(use));
        ExpectOf(kUser, OwnerTrust::Untrusted);
    }
    m_lookups.FailEvery(FALSE, ERROR_NONE_MAPPED);
    ExpectOf(kUser, OwnerTrust::Untrusted);
}

TEST_F(SecurityProducer, APipeWithoutAnOwnerIsAStrangers) {
    SecurityHook owners(ThisProgram());
    SID broken{99, 1, {{0, 0, 0, 0, 0, 5}}, {19}};
    for (const PSID owner : {PSID{nullptr}, static_cast<PSID>(&broken)}) {
        const UniqueFile pipe(CreateNamedPipeW(m_name.c_str(), PIPE_ACCESS_INBOUND, 0, 1, 4096, 4096, 0, nullptr));
        ASSERT_TRUE(pipe);
        owners.Replace([owner](HANDLE, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID* found, PSID*, PACL*, PACL*,
                               PSECURITY_DESCRIPTOR* descriptor) -> DWORD {
            *found = owner;
            *descriptor = nullptr;
            return ERROR_SUCCESS;
        });
        ExpectRefused();
    }
}

TEST_F(SecurityProducer, AnOwnerThatCannotBeReadIsAStranger) {
    {
        SecurityHook owners(ThisProgram());
        for (const DWORD error : {5u, 6u, 8u, 50u, 87u, 1305u, 1307u, 1314u, 1338u}) {
            SCOPED_TRACE(error);
            owners.FailEvery(error);
            ExpectOf(L"S-1-5-19", OwnerTrust::Untrusted);
        }
    }
    {
        RAVLO_HOOK(ConvertSidToStringSidW) texts(ThisProgram());
        texts.FailEvery(FALSE, ERROR_NOT_ENOUGH_MEMORY);
        ExpectOf(L"S-1-5-19", OwnerTrust::Untrusted);
    }
    {
        RAVLO_HOOK(CreateWellKnownSid) known(ThisProgram());
        known.FailEvery(FALSE, ERROR_INVALID_PARAMETER);
        ExpectOf(L"S-1-5-19", OwnerTrust::Untrusted);
    }
    ExpectOf(L"S-1-5-19", OwnerTrust::LocalService);
}

TEST_F(SecurityProducer, APipeThatDoesNotAdmitItIsTriedUntilTheDeadlineAndReportedAsDenied) {
    OpenHook opens(ThisProgram());
    opens.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);  // as an enforced access list answers
    SecurityHook owners(ThisProgram());
    EXPECT_FALSE(m_producer.ConnectToServer(m_name.c_str(), 120));
    EXPECT_EQ(5u, m_producer.LastError());
    EXPECT_GE(opens.Count(), 2u);
    EXPECT_EQ(0u, owners.Count());
    EXPECT_FALSE(m_producer.IsConnected());
}

TEST_F(SecurityProducer, AServerLearnsWhoItIsAndNothingMore) {
    const MadePipe pipe(m_name, L"O:SYD:(A;;GA;;;WD)");
    OpenHook opens(ThisProgram());
    ExpectTrusted(OwnerTrust::LocalSystem);
    ASSERT_EQ(1u, opens.Count());
    const auto call = opens.Calls().front();
    EXPECT_EQ(0x40000000u, std::get<1>(call)) << "writing alone, which includes reading the owner";
    EXPECT_EQ(nullptr, std::get<3>(call)) << "the handle is not inherited";
    EXPECT_EQ(static_cast<DWORD>(SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION),
              std::get<5>(call) & static_cast<DWORD>(SECURITY_VALID_SQOS_FLAGS));
}

TEST_F(SecurityProducer, TheCamerasOwnPipeIsTrustedByTheAccountThatHostsIt) {
    const ModuleUnderTest module;
    TokenHook tokens(module.Handle());
    struct Row {
        const wchar_t* host;
        OwnerTrust trust;
    };
    m_anchor.Set(kUser);
    for (const Row& row : {Row{L"S-1-5-19", OwnerTrust::LocalService}, Row{L"S-1-5-18", OwnerTrust::LocalSystem},
                           Row{kUser, OwnerTrust::AuthorizedUser}, Row{L"S-1-5-20", OwnerTrust::Untrusted},
                           Row{L"S-1-5-21-11-22-33-1002", OwnerTrust::Untrusted}}) {
        SCOPED_TRACE(Narrow(row.host));
        PretendToRunAs(tokens, row.host);
        const Camera camera(module, {.pipeName = m_name});
        ASSERT_TRUE(WaitForPipe(m_name)) << m_log.Text();
        if (row.trust == OwnerTrust::Untrusted) {
            ExpectRefused();
        } else {
            ExpectTrusted(row.trust);
        }
    }
}

}  // namespace
}  // namespace ravlo::test
