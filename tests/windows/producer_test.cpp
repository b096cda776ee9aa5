// The writing end of the frame pipe: finding the camera and knowing whom it belongs to.
#include "pipe/pipe_producer.h"

#include <gtest/gtest.h>

#include "account_lookups.h"
#include "made_pipe.h"
#include "pipe_objects.h"
#include "support/import_hooks.h"

#include <aclapi.h>

namespace ravlo::test {
namespace {

using OpenHook = RAVLO_HOOK(CreateFileW);
using SleepHook = RAVLO_HOOK(Sleep);

class Producer : public ::testing::Test {
protected:
    const std::wstring m_name = UniquePipeName();
    PipeProducer m_producer;
};

TEST_F(Producer, NamesOutsideTheGrammarAreRefusedWithoutATry) {
    OpenHook opens(ThisProgram());
    for (const wchar_t* name : {L"\\\\.\\pipe\\Ravlo.", L"\\\\.\\pipe\\Ravlo.0", L"\\\\.\\pipe\\ravlo.1",
                                L"\\\\.\\pipe\\Ravlo.gate", L"\\\\.\\pipe\\Other", L"C:\\file", L""}) {
        EXPECT_FALSE(m_producer.ConnectToServer(name, 1000)) << name;
        EXPECT_EQ(123u, m_producer.LastError()) << name;
    }
    EXPECT_FALSE(m_producer.ConnectToServer(static_cast<const wchar_t*>(nullptr), 1000));
    EXPECT_EQ(123u, m_producer.LastError());
    EXPECT_EQ(0u, opens.Count());
}

TEST_F(Producer, ThePipeIsOpenedForWritingOnlyUnsharedAndAtIdentificationLevel) {
    OpenHook opens(ThisProgram());
    opens.FailEvery(INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(m_producer.ConnectToServer(0));
    EXPECT_EQ(2u, m_producer.LastError());
    ASSERT_EQ(1u, opens.Count()) << "a time-out of 0 is one try";
    const auto call = opens.Calls().front();
    EXPECT_EQ(L"\\\\.\\pipe\\Ravlo", std::get<0>(call));
    EXPECT_EQ(0x40000000u, std::get<1>(call));
    EXPECT_EQ(0u, std::get<2>(call));
    EXPECT_EQ(nullptr, std::get<3>(call));
    EXPECT_EQ(3u, std::get<4>(call));
    EXPECT_EQ(0x40110000u, std::get<5>(call));
    EXPECT_EQ(nullptr, std::get<6>(call));
}

TEST_F(Producer, AMissingServerIsTriedEvery50MillisecondsUntilTheTimeIsOver) {
    OpenHook opens(ThisProgram());
    SleepHook sleeps(ThisProgram());
    const ULONGLONG start = GetTickCount64();
    EXPECT_FALSE(m_producer.ConnectToServer(m_name.c_str(), 200));
    const ULONGLONG waited = GetTickCount64() - start;
    EXPECT_EQ(2u, m_producer.LastError());
    EXPECT_GE(waited, 164u);
    EXPECT_LE(waited, 1000u);
    EXPECT_EQ(opens.Count(), sleeps.Count() + 1) << "the last failure is not slept over";
    EXPECT_GE(opens.Count(), 3u);
    EXPECT_LE(opens.Count(), 6u);
    for (const auto& call : sleeps.Calls()) {
        EXPECT_EQ(50u, std::get<0>(call));
    }
    EXPECT_FALSE(m_producer.IsConnected());
}

TEST_F(Producer, AServerThatComesLateIsFound) {
    OpenHook opens(ThisProgram());
    PipeEndpoint endpoint;
    std::thread server([&] {
        opens.WaitForCalls(2);
        endpoint.Create(m_name.c_str(), CurrentUserSid());
    });
    EXPECT_TRUE(m_producer.ConnectToServer(m_name.c_str(), kPatienceMs, false));
    server.join();
    EXPECT_TRUE(m_producer.IsConnected());
    EXPECT_TRUE(endpoint.WaitForClient(kPatienceMs));
}

TEST_F(Producer, ABusyPipeIsTriedAgainAndItsErrorKept) {
    ConnectedPipe taken;
    EXPECT_FALSE(m_producer.ConnectToServer(taken.name.c_str(), 0, false));
    EXPECT_EQ(231u, m_producer.LastError());
}

TEST_F(Producer, ConnectingAgainLetsGoOfTheOldConnection) {
    PipeEndpoint endpoint;
    ASSERT_TRUE(endpoint.Create(m_name.c_str(), CurrentUserSid()));
    ASSERT_TRUE(m_producer.ConnectToServer(m_name.c_str(), 0, false));
    ASSERT_TRUE(endpoint.WaitForClient(kPatienceMs));
    EXPECT_FALSE(m_producer.ConnectToServer(L"\\\\.\\pipe\\Other", 0, false));
    EXPECT_FALSE(m_producer.IsConnected());
    char byte = 0;
    std::uint32_t done = 0;
    const UniqueObject stop = MakeEvent();
    EXPECT_EQ(ReadOutcome::PeerClosed, endpoint.ReadExact(&byte, 1, stop.Get(), done));
}

/// Owners are verified against an anchor in a registry of the test's own, and an account database that answers by a
/// hook: a registry of one's own hides the real one.
class ProducerOwner : public Producer {
protected:
    ProducerOwner() : m_lookups(ThisProgram()) { AnswerLookups(m_lookups, SidTypeUser); }
    void ExpectRefused() {
        EXPECT_FALSE(m_producer.ConnectToServer(m_name.c_str(), 0));
        EXPECT_EQ(1307u, m_producer.LastError());
        EXPECT_FALSE(m_producer.IsConnected());
        EXPECT_EQ(OwnerTrust::Untrusted, m_producer.Owner());
    }
    void ExpectAccepted(OwnerTrust owner) {
        EXPECT_TRUE(m_producer.ConnectToServer(m_name.c_str(), 0)) << m_producer.LastError();
        EXPECT_EQ(owner, m_producer.Owner());
        m_producer.Disconnect();
    }
    void ServeAsOwnUser() { ASSERT_TRUE(m_endpoint.Create(m_name.c_str(), CurrentUserSid())); }
    /// Makes room for the next try on the endpoint's pipe.
    void Relisten() {
        m_endpoint.DisconnectClient();
        m_endpoint.PollListen();
    }

    PrivateLocalMachine m_localMachine;
    AnchorGuard m_anchor;
    LookupHook m_lookups;
    PipeEndpoint m_endpoint;
};

TEST_F(ProducerOwner, TheAuthorizedUsersOwnPipeIsAccepted) {
    m_anchor.Set(CurrentUserSid());
    ServeAsOwnUser();
    ExpectAccepted(OwnerTrust::AuthorizedUser);
}

TEST_F(ProducerOwner, WithoutAnAnchorTheSamePipeIsAStrangers) {
    ServeAsOwnUser();
    ExpectRefused();
    Relisten();
    m_anchor.Set(L"S-1-5-21-111-222-333-1001");
    ExpectRefused();
    Relisten();
    m_anchor.Set(L"nobody");
    ExpectRefused();
    Relisten();
    m_anchor.Set(CurrentUserSid());
    AnswerLookups(m_lookups, SidTypeGroup);
    ExpectRefused();
    Relisten();
    m_lookups.FailEvery(FALSE, ERROR_NONE_MAPPED);
    ExpectRefused();
    Relisten();
    AnswerLookups(m_lookups, SidTypeUser);
    ExpectAccepted(OwnerTrust::AuthorizedUser);
}

TEST_F(ProducerOwner, ARefusedPipeIsLetGo) {
    ServeAsOwnUser();
    const std::size_t handles = SettledHandles();
    ExpectRefused();
    EXPECT_EQ(handles, CountHandles());
}

TEST_F(ProducerOwner, LocalServiceAndLocalSystemAreTrustedWithoutAnAnchor) {
    {
        const MadePipe pipe(m_name, L"O:LSD:(A;;GA;;;WD)");
        ExpectAccepted(OwnerTrust::LocalService);
    }
    const MadePipe pipe(m_name, L"O:SYD:(A;;GA;;;WD)");
    ExpectAccepted(OwnerTrust::LocalSystem);
}

TEST_F(ProducerOwner, EveryOtherOwnerIsAStranger) {
    m_anchor.Set(CurrentUserSid());
    for (const wchar_t* sddl : {L"O:S-1-5-21-111-222-333-1001D:(A;;GA;;;WD)", L"O:NSD:(A;;GA;;;WD)",
                                L"O:BAD:(A;;GA;;;WD)", L"O:WDD:(A;;GA;;;WD)"}) {
        const MadePipe pipe(m_name, sddl);
        ExpectRefused();
    }
}

TEST_F(ProducerOwner, AnAnchorThatNamesAGroupTrustsNobodyThroughIt) {
    m_anchor.Set(L"S-1-5-32-544");
    const MadePipe pipe(m_name, L"O:BAD:(A;;GA;;;WD)");
    ExpectRefused();
}

TEST_F(ProducerOwner, AnOwnerThatCannotBeReadIsAStranger) {
    const MadePipe pipe(m_name, L"O:SYD:(A;;GA;;;WD)");
    using SecurityHook = RAVLO_HOOK(GetSecurityInfo);
    SecurityHook owners(ThisProgram());
    owners.FailEvery(ERROR_ACCESS_DENIED);
    ExpectRefused();
}

TEST_F(ProducerOwner, APipeThatHasNoOwnerIsAStrangers) {
    UniqueFile pipe(CreateNamedPipeW(m_name.c_str(), PIPE_ACCESS_INBOUND, 0, 1, 4096, 4096, 0, nullptr));
    ASSERT_TRUE(pipe);
    using SecurityHook = RAVLO_HOOK(GetSecurityInfo);
    SecurityHook owners(ThisProgram());
    owners.Replace([](HANDLE, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID* owner, PSID*, PACL*, PACL*,
                      PSECURITY_DESCRIPTOR* descriptor) -> DWORD {
        *owner = nullptr;
        *descriptor = nullptr;
        return ERROR_SUCCESS;
    });
    ExpectRefused();
}

TEST_F(ProducerOwner, WithoutVerificationNobodyIsAskedAndAnyPipeWillDo) {
    const MadePipe pipe(m_name, L"O:S-1-5-21-111-222-333-1001D:(A;;GA;;;WD)");
    RAVLO_HOOK(RegOpenKeyExW) keys(ThisProgram());
    RAVLO_HOOK(GetSecurityInfo) owners(ThisProgram());
    EXPECT_TRUE(m_producer.ConnectToServer(m_name.c_str(), 0, false));
    EXPECT_EQ(OwnerTrust::Untrusted, m_producer.Owner());
    EXPECT_EQ(0u, keys.Count());
    EXPECT_EQ(0u, owners.Count());
}

TEST_F(ProducerOwner, TheAnchorIsReadBeforeThePipeIsOpened) {
    m_anchor.Set(CurrentUserSid());
    ServeAsOwnUser();
    OpenHook opens(ThisProgram());
    RAVLO_HOOK(RegOpenKeyExW) keys(ThisProgram());
    std::atomic<std::size_t> keysAtOpen{0};
    opens.Replace([&](LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes, DWORD disposition,
                      DWORD flags, HANDLE pattern) -> HANDLE {
        keysAtOpen = keys.Count();
        return OpenHook::CallOriginal(name, access, share, attributes, disposition, flags, pattern);
    });
    ExpectAccepted(OwnerTrust::AuthorizedUser);
    EXPECT_EQ(1u, keysAtOpen.load());
}

}  // namespace
}  // namespace ravlo::test
