// Who may open the two pipes, who owns them, and how their access list is built.
#include "pipe/pipe_security.h"

#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "security_descriptor.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"

namespace ravlo::test {
namespace {

constexpr wchar_t kStranger[] = L"S-1-5-21-111-222-333-1001";

class PipeSecurityTest : public ModuleTest {
protected:
    /// The pipe as its client sees it.
    static void ExpectAdmitsTheStranger(HANDLE client) {
        const DescriptorFields seen = FieldsOfPipe(client);
        EXPECT_EQ(CurrentUserSid(), seen.owner);
        EXPECT_EQ((std::vector<std::wstring>{std::wstring(L"0 0 0x12019F ") + kStranger, L"0 0 0x1F01FF S-1-5-18"}),
                  seen.entries);
    }
};

TEST_F(PipeSecurityTest, TheFramePipeAdmitsTheAnchorsUserAndLocalSystemAndNobodyElse) {
    m_anchor.Set(kStranger);  // cannot be resolved, so it is told apart from the owner
    Camera camera(m_module);
    PipeClient client;
    ASSERT_TRUE(client.Connect(camera.PipeName())) << m_log.Text();
    ExpectAdmitsTheStranger(client.Handle());
}

TEST_F(PipeSecurityTest, TheGatePipeAdmitsTheSame) {
    m_anchor.Set(kStranger);
    Camera camera(m_module);
    GateClient client;
    ASSERT_TRUE(client.Connect(camera.PipeName())) << m_log.Text();
    ExpectAdmitsTheStranger(client.Handle());
}

/// Everything that the user of this process, a member of Administrators, would be allowed by the security of an open
/// object; 0 when that is nothing. The system's own judgement, which it does not apply to pipes everywhere.
DWORD AllowedToThisUser(HANDLE object) {
    PSID owner = nullptr;
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR read = nullptr;
    if (GetSecurityInfo(object, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner,
                        nullptr, &dacl, nullptr, &read) != ERROR_SUCCESS) {
        throw std::runtime_error("the pipe's security cannot be read");
    }
    // A judgement needs a group as well, which decides nothing.
    SECURITY_DESCRIPTOR judged{};
    InitializeSecurityDescriptor(&judged, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorOwner(&judged, owner, FALSE);
    SetSecurityDescriptorGroup(&judged, owner, FALSE);
    SetSecurityDescriptorDacl(&judged, TRUE, dacl, FALSE);
    HANDLE process = nullptr;
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_DUPLICATE, &process) ||
        !DuplicateToken(process, SecurityIdentification, &token)) {
        throw std::runtime_error("no token to judge");
    }
    GENERIC_MAPPING mapping{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
    PRIVILEGE_SET privileges{};
    DWORD size = sizeof privileges;
    DWORD granted = 0;
    BOOL allowed = FALSE;
    const BOOL judgedAtAll =
        AccessCheck(&judged, token, MAXIMUM_ALLOWED, &mapping, &privileges, &size, &granted, &allowed);
    const DWORD error = GetLastError();
    CloseHandle(token);
    CloseHandle(process);
    LocalFree(read);
    if (!judgedAtAll) {
        throw std::runtime_error("the access cannot be judged, error " + std::to_string(error));
    }
    return allowed ? granted : 0;
}

TEST_F(PipeSecurityTest, AnAdministratorIsAdmittedToNeitherPipeUnlessTheAnchorNamesHim) {
    // To an owner the system allows besides what concerns the descriptor itself; how much of it is the system's matter.
    constexpr DWORD kDataRights = 0x0000FFFF;
    struct Row {
        std::wstring host;
        std::wstring anchor;
        DWORD looked;
        DWORD allowed;
    };
    const Row rows[] = {{L"S-1-5-19", kStranger, 0xFFFFFFFF, 0},
                        {L"S-1-5-19", CurrentUserSid(), 0xFFFFFFFF, 0x12019F},
                        {CurrentUserSid(), kStranger, kDataRights, 0},
                        {CurrentUserSid(), CurrentUserSid(), kDataRights, 0x019F}};
    TokenHook tokens(m_module.Handle());
    using WaitHook = RAVLO_HOOK(WaitForSingleObject);
    WaitHook waits(m_module.Handle());
    waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
        return WaitHook::CallOriginal(handle, timeout == 500 ? 10 : timeout);
    });
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.host + L" serves " + row.anchor));
        m_anchor.Set(row.anchor);
        PretendToRunAs(tokens, row.host);
        const Camera camera(m_module);
        PipeClient frames;
        ASSERT_TRUE(frames.Connect(camera.PipeName())) << m_log.Text();
        EXPECT_EQ(row.allowed, AllowedToThisUser(frames.Handle()) & row.looked);
        GateClient gate;
        ASSERT_TRUE(gate.Connect(camera.PipeName())) << m_log.Text();
        EXPECT_EQ(row.allowed, AllowedToThisUser(gate.Handle()) & row.looked);
    }
}

TEST_F(PipeSecurityTest, TheListenEventIsUnnamedManualResetAndNotSignalled) {
    RAVLO_HOOK(CreateEventW) events(ThisProgram());
    PipeEndpoint endpoint;
    ASSERT_TRUE(endpoint.Create(UniquePipeName().c_str(), CurrentUserSid()));
    ASSERT_EQ(1u, events.Count());
    const auto call = events.Calls().front();
    EXPECT_EQ(nullptr, std::get<0>(call));
    EXPECT_EQ(TRUE, std::get<1>(call));
    EXPECT_EQ(FALSE, std::get<2>(call));
    EXPECT_EQ(L"", std::get<3>(call));
}

TEST(PipeDacl, HasRoomForItsTwoEntriesAndNothingMore) {
    AclBuffer acl;
    DWORD error = 99;
    ASSERT_TRUE(BuildPipeDacl(kStranger, acl, error));
    ASSERT_NE(nullptr, acl.Get());
    EXPECT_EQ(2u, acl.Get()->AclRevision);
    EXPECT_EQ(28u + 12u + 24u, acl.Get()->AclSize) << "both SIDs and 24 bytes";
    EXPECT_EQ(2u, acl.Get()->AceCount);
    EXPECT_EQ(std::wstring(L"0 0 0x12019F ") + kStranger, TextOfAce(acl.Get(), 0));
    EXPECT_EQ(L"0 0 0x1F01FF S-1-5-18", TextOfAce(acl.Get(), 1));
}

TEST(PipeDacl, AnEmptySidIsAnInvalidParameter) {
    AclBuffer acl;
    DWORD error = 0;
    EXPECT_FALSE(BuildPipeDacl(std::wstring(), acl, error));
    EXPECT_EQ(87u, error);
    EXPECT_EQ(nullptr, acl.Get());
}

TEST(PipeDacl, EveryFailureEmptiesTheBufferAndGivesTheError) {
    AclBuffer acl;
    DWORD error = 0;
    ASSERT_TRUE(BuildPipeDacl(kStranger, acl, error));
    EXPECT_FALSE(BuildPipeDacl(L"nobody", acl, error));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_SID), error);
    EXPECT_EQ(nullptr, acl.Get());
    const auto expectFailure = [&](auto& hook, int n, DWORD expected) {
        hook.PassOn();
        EXPECT_TRUE(BuildPipeDacl(kStranger, acl, error));
        hook.FailCall(n, FALSE, expected);
        EXPECT_FALSE(BuildPipeDacl(kStranger, acl, error));
        EXPECT_EQ(expected, error);
        EXPECT_EQ(nullptr, acl.Get());
    };
    RAVLO_HOOK(ConvertStringSidToSidW) converts(ThisProgram());
    expectFailure(converts, 1, ERROR_NOT_ENOUGH_MEMORY);
    converts.PassOn();
    RAVLO_HOOK(CreateWellKnownSid) known(ThisProgram());
    expectFailure(known, 1, ERROR_INSUFFICIENT_BUFFER);
    known.PassOn();
    RAVLO_HOOK(InitializeAcl) initialises(ThisProgram());
    expectFailure(initialises, 1, ERROR_INVALID_ACL);
    initialises.PassOn();
    RAVLO_HOOK(AddAccessAllowedAce) adds(ThisProgram());
    expectFailure(adds, 1, ERROR_ALLOTTED_SPACE_EXCEEDED);
    expectFailure(adds, 2, ERROR_INVALID_ACL);
}

}  // namespace
}  // namespace ravlo::test
