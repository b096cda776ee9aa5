// Who may open the two pipes, who owns them, and with which arguments they are created.
#include "pipe/pipe_security.h"

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <mutex>

#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"

namespace ravlo::test {
namespace {

std::wstring TextOf(PSID sid) {
    LPWSTR text = nullptr;
    if (sid == nullptr || !ConvertSidToStringSidW(sid, &text)) {
        return L"(none)";
    }
    const std::wstring result = text;
    LocalFree(text);
    return result;
}

/// One entry of an access list as "type flags rights sid".
std::wstring TextOfAce(PACL acl, DWORD index) {
    void* entry = nullptr;
    if (!GetAce(acl, index, &entry)) {
        return L"(no such entry)";
    }
    auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    wchar_t text[32];
    swprintf(text, 32, L"%u %u 0x%lX ", allowed->Header.AceType, allowed->Header.AceFlags, allowed->Mask);
    return text + TextOf(&allowed->SidStart);
}

struct Security {
    std::wstring owner;
    std::vector<std::wstring> entries;
};

/// The security of an open pipe, read through either end.
Security SecurityOf(HANDLE pipe) {
    PSID owner = nullptr;
    PACL acl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error = GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                                        &owner, nullptr, &acl, nullptr, &descriptor);
    if (error != ERROR_SUCCESS || acl == nullptr) {
        throw std::runtime_error("the pipe's security cannot be read, error " + std::to_string(error));
    }
    Security result{TextOf(owner), {}};
    for (DWORD i = 0; i < acl->AceCount; ++i) {
        result.entries.push_back(TextOfAce(acl, i));
    }
    LocalFree(descriptor);
    return result;
}

constexpr wchar_t kStranger[] = L"S-1-5-21-111-222-333-1001";

class PipeSecurityTest : public ModuleTest {};

TEST_F(PipeSecurityTest, TheFramePipeAdmitsTheAnchorsUserAndLocalSystemAndNobodyElse) {
    m_anchor.Set(kStranger);  // cannot be resolved, so it is told apart from the owner
    Camera camera(m_module);
    PipeClient client;
    ASSERT_TRUE(client.Connect(camera.PipeName())) << m_log.Text();
    const Security security = SecurityOf(client.Handle());
    EXPECT_EQ(CurrentUserSid(), security.owner);
    EXPECT_EQ((std::vector<std::wstring>{std::wstring(L"0 0 0x12019F ") + kStranger, L"0 0 0x1F01FF S-1-5-18"}),
              security.entries);
}

TEST_F(PipeSecurityTest, TheGatePipeAdmitsTheSame) {
    m_anchor.Set(kStranger);
    Camera camera(m_module);
    GateClient client;
    ASSERT_TRUE(client.Connect(camera.PipeName())) << m_log.Text();
    const Security security = SecurityOf(client.Handle());
    EXPECT_EQ(CurrentUserSid(), security.owner);
    EXPECT_EQ((std::vector<std::wstring>{std::wstring(L"0 0 0x12019F ") + kStranger, L"0 0 0x1F01FF S-1-5-18"}),
              security.entries);
}

/// What the security attributes of a creation said while they were there to be read.
struct CreationSecurity {
    std::wstring name;
    DWORD length = 0;
    BOOL inheritable = TRUE;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    std::wstring owner;
    std::vector<std::wstring> entries;
};

CreationSecurity Describe(LPCWSTR name, const SECURITY_ATTRIBUTES* attributes) {
    CreationSecurity seen{name, 0, TRUE, 0, 0, L"", {}};
    if (attributes == nullptr) {
        return seen;
    }
    seen.length = attributes->nLength;
    seen.inheritable = attributes->bInheritHandle;
    GetSecurityDescriptorControl(attributes->lpSecurityDescriptor, &seen.control, &seen.revision);
    PSID owner = nullptr;
    BOOL defaulted = FALSE;
    GetSecurityDescriptorOwner(attributes->lpSecurityDescriptor, &owner, &defaulted);
    seen.owner = TextOf(owner);
    BOOL present = FALSE;
    PACL acl = nullptr;
    GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &acl, &defaulted);
    for (DWORD i = 0; acl != nullptr && i < acl->AceCount; ++i) {
        seen.entries.push_back(TextOfAce(acl, i));
    }
    return seen;
}

TEST_F(PipeSecurityTest, BothPipesAreCreatedWithExactlyTheseArguments) {
    using PipeHook = RAVLO_HOOK(CreateNamedPipeW);
    PipeHook pipes(m_module.Handle());
    std::mutex lock;
    std::vector<CreationSecurity> seen;
    pipes.Replace([&](LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD out, DWORD in, DWORD timeout,
                      LPSECURITY_ATTRIBUTES attributes) -> HANDLE {
        {
            const std::lock_guard<std::mutex> guard(lock);
            seen.push_back(Describe(name, attributes));
        }
        return PipeHook::CallOriginal(name, openMode, pipeMode, instances, out, in, timeout, attributes);
    });
    const std::wstring name = UniquePipeName();
    {
        Camera camera(m_module, {.pipeName = name});
        ASSERT_TRUE(m_log.WaitForLine("GATE serving ")) << m_log.Text();
    }
    const auto calls = pipes.Calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(name, std::get<0>(calls[0]));
    EXPECT_EQ(0x40080001u, std::get<1>(calls[0]));
    EXPECT_EQ(0u, std::get<2>(calls[0]));
    EXPECT_EQ(1u, std::get<3>(calls[0]));
    EXPECT_EQ(1048576u, std::get<4>(calls[0]));
    EXPECT_EQ(1048576u, std::get<5>(calls[0]));
    EXPECT_EQ(0u, std::get<6>(calls[0]));
    EXPECT_EQ(name + L".gate", std::get<0>(calls[1]));
    EXPECT_EQ(0x40080002u, std::get<1>(calls[1]));
    EXPECT_EQ(4u, std::get<2>(calls[1]));
    EXPECT_EQ(1u, std::get<3>(calls[1]));
    EXPECT_EQ(4096u, std::get<4>(calls[1]));
    EXPECT_EQ(0u, std::get<5>(calls[1]));
    EXPECT_EQ(0u, std::get<6>(calls[1]));
    ASSERT_EQ(2u, seen.size());
    for (const CreationSecurity& security : seen) {
        EXPECT_EQ(24u, security.length) << security.name;
        EXPECT_EQ(FALSE, security.inheritable) << security.name;
        EXPECT_EQ(1u, security.revision) << security.name;
        EXPECT_EQ(SE_DACL_PRESENT, security.control) << "present, and neither list nor owner defaulted";
        EXPECT_EQ(CurrentUserSid(), security.owner) << security.name;
        EXPECT_EQ((std::vector<std::wstring>{L"0 0 0x12019F " + CurrentUserSid(), L"0 0 0x1F01FF S-1-5-18"}),
                  security.entries);
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
