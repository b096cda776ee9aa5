// Who a SID is: judged by value, asked of the account database, read from a token or a pipe, and trusted as a pipe's
// owner.
#include "pipe/authorized_user.h"

#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "support/import_hooks.h"

#include <aclapi.h>
#include <sddl.h>

namespace ravlo::test {
namespace {

using KnownHook = RAVLO_HOOK(CreateWellKnownSid);
using LookupHook = RAVLO_HOOK(LookupAccountSidW);
using SecurityHook = RAVLO_HOOK(GetSecurityInfo);

constexpr wchar_t kStranger[] = L"S-1-5-21-111-222-333-1001";

TEST(GroupOrBuiltinSid, SixWellKnownOnesAndEveryBuiltinAliasAreGroups) {
    for (const wchar_t* sid : {L"S-1-1-0", L"S-1-5-11", L"S-1-5-7", L"S-1-5-4", L"S-1-5-32-544", L"S-1-5-32-545",
                               L"S-1-5-32-555", L"S-1-5-32", L"S-1-5-32-544-1"}) {
        EXPECT_TRUE(IsGroupOrBuiltinSid(sid)) << sid;
    }
}

TEST(GroupOrBuiltinSid, OthersAreNot) {
    for (const wchar_t* sid : {kStranger, L"S-1-5-18", L"S-1-5-19", L"S-1-5-33-544", L"S-1-5-21-32", L"S-1-1-32",
                               L"S-1-4-32-544", L"S-1-1-1"}) {
        EXPECT_FALSE(IsGroupOrBuiltinSid(sid)) << sid;
    }
}

TEST(GroupOrBuiltinSid, WhatIsNoSidIsNoGroup) {
    EXPECT_FALSE(IsGroupOrBuiltinSid(L""));
    EXPECT_FALSE(IsGroupOrBuiltinSid(L"nobody"));
}

TEST(GroupOrBuiltinSid, TheComparisonsComeInThisOrder) {
    KnownHook known(ThisProgram());
    EXPECT_FALSE(IsGroupOrBuiltinSid(kStranger));
    std::vector<WELL_KNOWN_SID_TYPE> asked;
    for (const auto& call : known.Calls()) {
        asked.push_back(std::get<0>(call));
    }
    EXPECT_EQ((std::vector<WELL_KNOWN_SID_TYPE>{WinWorldSid, WinAuthenticatedUserSid, WinAnonymousSid,
                                                WinInteractiveSid, WinBuiltinAdministratorsSid, WinBuiltinUsersSid}),
              asked);
}

TEST(GroupOrBuiltinSid, AComparisonThatCannotBeMadeCountsAsAMatch) {
    KnownHook known(ThisProgram());
    for (const WELL_KNOWN_SID_TYPE type : {WinWorldSid, WinAuthenticatedUserSid, WinAnonymousSid, WinInteractiveSid,
                                           WinBuiltinAdministratorsSid, WinBuiltinUsersSid}) {
        known.FailWhen(
            [type](const WELL_KNOWN_SID_TYPE& asked, const PSID&, const PSID&, DWORD* const&) { return asked == type; },
            FALSE, ERROR_INSUFFICIENT_BUFFER);
        EXPECT_TRUE(IsGroupOrBuiltinSid(kStranger)) << type;
    }
}

TEST(GroupOrBuiltinSid, ATextThatCannotBeConvertedIsNoGroup) {
    RAVLO_HOOK(ConvertStringSidToSidW) converts(ThisProgram());
    converts.FailEvery(FALSE, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(IsGroupOrBuiltinSid(L"S-1-1-0"));
}

TEST(SidString, LooksLikeOneByFormAndByConversion) {
    for (const wchar_t* text : {L"S-1-5-18", L"s-1-5-18", kStranger, L"S-1-1-0"}) {
        EXPECT_TRUE(LooksLikeSidString(text)) << text;
    }
    for (const wchar_t* text :
         {L"", L"S", L"S-", L"S1-5-18", L"X-1-5-18", L"S_1-5-18", L"SY", L"BA", L"S-1", L"S-1-5-18x"}) {
        EXPECT_FALSE(LooksLikeSidString(text)) << text;
    }
    RAVLO_HOOK(ConvertStringSidToSidW) converts(ThisProgram());
    converts.FailEvery(FALSE, ERROR_INVALID_SID);
    EXPECT_FALSE(LooksLikeSidString(L"S-1-5-18"));
}

class SidUse : public ::testing::Test {
protected:
    SidLookup Lookup(const std::wstring& sid) { return LookupSidUse(sid, m_account, m_use); }
    std::wstring m_account = L"before";
    DWORD m_use = 77;
};

TEST_F(SidUse, TheThreeAnswersHaveTheseNumbers) {
    EXPECT_EQ(0u, static_cast<DWORD>(SidLookup::User));
    EXPECT_EQ(1u, static_cast<DWORD>(SidLookup::NotAUser));
    EXPECT_EQ(2u, static_cast<DWORD>(SidLookup::NotResolvable));
}

TEST_F(SidUse, TheOwnUserIsAUser) {
    EXPECT_EQ(SidLookup::User, Lookup(CurrentUserSid()));
    EXPECT_EQ(1u, m_use);
    wchar_t user[256];
    DWORD length = 256;
    ASSERT_TRUE(GetUserNameW(user, &length));
    EXPECT_TRUE(m_account.ends_with(std::wstring(L"\\") + user)) << Narrow(m_account);
}

TEST_F(SidUse, LocalSystemAndAnAliasAreResolvedAndNoUsers) {
    EXPECT_EQ(SidLookup::NotAUser, Lookup(L"S-1-5-18"));
    EXPECT_EQ(5u, m_use);
    EXPECT_EQ(L"NT AUTHORITY\\SYSTEM", m_account);
    EXPECT_EQ(SidLookup::NotAUser, Lookup(L"S-1-5-32-544"));
    EXPECT_EQ(4u, m_use);
    EXPECT_EQ(L"BUILTIN\\Administrators", m_account);
}

TEST_F(SidUse, AnAccountWithoutADomainIsItsNameAlone) {
    EXPECT_EQ(SidLookup::NotAUser, Lookup(L"S-1-1-0"));
    EXPECT_EQ(5u, m_use);
    EXPECT_EQ(L"Everyone", m_account);
}

TEST_F(SidUse, WhoIsUnknownStaysUnknown) {
    for (const wchar_t* sid : {kStranger, L"nobody", L""}) {
        EXPECT_EQ(SidLookup::NotResolvable, Lookup(sid)) << sid;
        EXPECT_EQ(8u, m_use);
        EXPECT_EQ(L"", m_account);
    }
}

TEST_F(SidUse, TheLocalSystemIsAskedWithRoomFor256Characters) {
    LookupHook lookups(ThisProgram());
    DWORD nameRoom = 0;
    DWORD domainRoom = 0;
    lookups.Replace([&](LPCWSTR, PSID, LPWSTR name, LPDWORD nameLength, LPWSTR domain, LPDWORD domainLength,
                        PSID_NAME_USE use) -> BOOL {
        nameRoom = *nameLength;
        domainRoom = *domainLength;
        lstrcpyW(name, L"User");
        lstrcpyW(domain, L"CORP");
        *use = SidTypeUser;
        return TRUE;
    });
    EXPECT_EQ(SidLookup::User, Lookup(kStranger));
    EXPECT_EQ(L"CORP\\User", m_account);
    EXPECT_EQ(256u, nameRoom);
    EXPECT_EQ(256u, domainRoom);
    EXPECT_EQ(L"", std::get<0>(lookups.Calls().front())) << "no other system by name";
}

TEST(UsableAnchor, IsAResolvableUserAndNothingElse) {
    EXPECT_TRUE(IsUsableUserAnchor(CurrentUserSid()));
    for (const wchar_t* sid : {L"", L"nobody", L"S-1-1-0", L"S-1-5-32-544", L"S-1-5-18", kStranger}) {
        EXPECT_FALSE(IsUsableUserAnchor(sid)) << sid;
    }
}

class OwnUser : public ::testing::Test {
protected:
    void ExpectFailure(DWORD expected) {
        std::wstring sid = L"before";
        DWORD error = 77;
        EXPECT_FALSE(GetOwnTokenUserSid(sid, error));
        EXPECT_EQ(expected, error);
        EXPECT_EQ(L"", sid);
    }
    const std::wstring m_user = CurrentUserSid();
};

TEST_F(OwnUser, IsThatOfTheProcessTokenAskedForWithQueryRightsOnly) {
    RAVLO_HOOK(OpenProcessToken) tokens(ThisProgram());
    RAVLO_HOOK(GetTokenInformation) queries(ThisProgram());
    const std::size_t handles = SettledHandles();
    std::wstring sid;
    DWORD error = 77;
    EXPECT_TRUE(GetOwnTokenUserSid(sid, error));
    EXPECT_EQ(m_user, sid);
    EXPECT_EQ(handles, CountHandles());
    ASSERT_EQ(1u, tokens.Count());
    EXPECT_EQ(8u, std::get<1>(tokens.Calls().front()));
    ASSERT_EQ(2u, queries.Count()) << "once for the size, once for the user";
    EXPECT_EQ(TokenUser, std::get<1>(queries.Calls().at(0)));
    EXPECT_EQ(0u, std::get<3>(queries.Calls().at(0)));
    EXPECT_EQ(TokenUser, std::get<1>(queries.Calls().at(1)));
}

TEST_F(OwnUser, EveryFailureGivesItsError) {
    {
        RAVLO_HOOK(OpenProcessToken) tokens(ThisProgram());
        tokens.FailEvery(FALSE, ERROR_ACCESS_DENIED);
        ExpectFailure(5);
    }
    {
        RAVLO_HOOK(GetTokenInformation) queries(ThisProgram());
        queries.FailEvery(FALSE, ERROR_INVALID_HANDLE);
        ExpectFailure(6);
        queries.FailCall(2, FALSE, ERROR_NOT_ENOUGH_MEMORY);
        ExpectFailure(8);
    }
    RAVLO_HOOK(ConvertSidToStringSidW) texts(ThisProgram());
    texts.FailEvery(FALSE, ERROR_INVALID_SID);
    ExpectFailure(1337);
}

class PipeOwner : public ::testing::Test {
protected:
    UniqueFile Make(const wchar_t* sddl) {
        SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1,
                                                                  &attributes.lpSecurityDescriptor, nullptr)) {
            throw std::runtime_error("no security descriptor");
        }
        UniqueFile pipe(CreateNamedPipeW(UniquePipeName().c_str(), PIPE_ACCESS_INBOUND, 0, 1, 64, 64, 0, &attributes));
        LocalFree(attributes.lpSecurityDescriptor);
        return pipe;
    }
    std::wstring m_owner = L"before";
};

TEST_F(PipeOwner, IsReadFromTheHandle) {
    for (const wchar_t* sid : {L"S-1-5-18", L"S-1-5-19", kStranger}) {
        const UniqueFile pipe = Make((std::wstring(L"O:") + sid + L"D:(A;;GA;;;WD)").c_str());
        EXPECT_TRUE(GetPipeOwnerSid(pipe.Get(), m_owner));
        EXPECT_EQ(sid, m_owner);
    }
}

TEST_F(PipeOwner, IsAskedOfAKernelObjectAndNothingElseIsAsked) {
    const UniqueFile pipe = Make(L"O:SYD:(A;;GA;;;WD)");
    SecurityHook queries(ThisProgram());
    EXPECT_TRUE(GetPipeOwnerSid(pipe.Get(), m_owner));
    ASSERT_EQ(1u, queries.Count());
    EXPECT_EQ(SE_KERNEL_OBJECT, std::get<1>(queries.Calls().front()));
    EXPECT_EQ(static_cast<SECURITY_INFORMATION>(OWNER_SECURITY_INFORMATION), std::get<2>(queries.Calls().front()));
}

TEST_F(PipeOwner, OfABadHandleOrWithoutPermissionCannotBeRead) {
    EXPECT_FALSE(GetPipeOwnerSid(nullptr, m_owner));
    EXPECT_EQ(L"", m_owner);
    const UniqueFile pipe = Make(L"O:SYD:(A;;GA;;;WD)");
    SecurityHook queries(ThisProgram());
    queries.FailEvery(ERROR_ACCESS_DENIED);
    EXPECT_FALSE(GetPipeOwnerSid(pipe.Get(), m_owner));
}

TEST_F(PipeOwner, ThatIsMissingOrNoValidSidIsNone) {
    const UniqueFile pipe = Make(L"O:SYD:(A;;GA;;;WD)");
    SecurityHook queries(ThisProgram());
    SID broken{99, 1, {{0, 0, 0, 0, 0, 5}}, {18}};
    for (const PSID owner : {PSID{nullptr}, static_cast<PSID>(&broken)}) {
        queries.Replace([owner](HANDLE, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID* found, PSID*, PACL*, PACL*,
                                PSECURITY_DESCRIPTOR* descriptor) -> DWORD {
            *found = owner;
            *descriptor = nullptr;
            return ERROR_SUCCESS;
        });
        EXPECT_FALSE(GetPipeOwnerSid(pipe.Get(), m_owner));
        EXPECT_EQ(L"", m_owner);
    }
}

TEST_F(PipeOwner, ThatCannotBeMadeIntoATextIsNone) {
    const UniqueFile pipe = Make(L"O:SYD:(A;;GA;;;WD)");
    RAVLO_HOOK(ConvertSidToStringSidW) texts(ThisProgram());
    texts.FailEvery(FALSE, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_FALSE(GetPipeOwnerSid(pipe.Get(), m_owner));
}

TEST(OwnerClass, FollowsFromOwnerAndExpectedUser) {
    const std::wstring user = CurrentUserSid();
    EXPECT_EQ(OwnerTrust::LocalService, ClassifyOwner(L"S-1-5-19", L""));
    EXPECT_EQ(OwnerTrust::LocalSystem, ClassifyOwner(L"S-1-5-18", L""));
    EXPECT_EQ(OwnerTrust::LocalSystem, ClassifyOwner(L"S-1-5-18", L"S-1-5-18"))
        << "the account counts before the anchor";
    EXPECT_EQ(OwnerTrust::LocalService, ClassifyOwner(L"S-1-5-19", user));
    EXPECT_EQ(OwnerTrust::AuthorizedUser, ClassifyOwner(user, user));
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(user, L""));
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(kStranger, user));
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(kStranger, kStranger)) << "whom nobody can resolve is not trusted";
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(L"S-1-5-32-544", L"S-1-5-32-544"));
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(L"S-1-1-0", L"S-1-1-0"));
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(L"S-1-5-20", user));
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(L"", user));
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(L"nobody", L"nobody"));
}

TEST(OwnerClass, IsNotTrustedBecauseAWellKnownSidCannotBeBuilt) {
    KnownHook known(ThisProgram());
    known.FailEvery(FALSE, ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(L"S-1-5-19", L""));
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(L"S-1-5-18", L""));
    EXPECT_EQ(OwnerTrust::Untrusted, ClassifyOwner(CurrentUserSid(), CurrentUserSid()));
}

}  // namespace
}  // namespace ravlo::test
