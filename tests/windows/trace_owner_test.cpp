// Whose directory may hold the log, and who the authorized user is.
#include "trace_staging.h"

#include "platform/sid.h"
#include "trace/directory_gate.h"

#include <gtest/gtest.h>

namespace ravlo::test {
namespace {

constexpr wchar_t kTrustedInstaller[] = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
constexpr wchar_t kUser[] = L"S-1-5-21-1-2-3-1001";

/// A SID from its text, by the platform alone.
class Sid {
public:
    explicit Sid(const wchar_t* text) {
        if (!ConvertStringSidToSidW(text, &m_sid)) {
            throw std::runtime_error("no SID: " + Narrow(text));
        }
    }
    ~Sid() { LocalFree(m_sid); }
    Sid(const Sid&) = delete;
    Sid& operator=(const Sid&) = delete;
    PSID Get() const { return m_sid; }

private:
    PSID m_sid = nullptr;
};

bool IsAccepted(const wchar_t* owner, const wchar_t* authorized = nullptr) {
    const Sid ownerSid(owner);
    if (authorized == nullptr) {
        return RvIsAcceptedTraceOwner(ownerSid.Get(), nullptr);
    }
    const Sid authorizedSid(authorized);
    return RvIsAcceptedTraceOwner(ownerSid.Get(), authorizedSid.Get());
}

TEST(TraceOwner, TheFourTrustedAccountsAreAcceptedWithAndWithoutAnAuthorizedUser) {
    for (const wchar_t* const owner : {L"S-1-5-18", L"S-1-5-19", L"S-1-5-32-544", kTrustedInstaller}) {
        EXPECT_TRUE(IsAccepted(owner)) << Narrow(owner);
        EXPECT_TRUE(IsAccepted(owner, kUser)) << Narrow(owner);
    }
}

TEST(TraceOwner, EverybodyElseIsRefused) {
    for (const wchar_t* const owner :
         {L"S-1-5-20", L"S-1-1-0", L"S-1-5-11", L"S-1-5-32-545", L"S-1-5-32-551", L"S-1-5-7", L"S-1-3-0", L"S-1-5-18-1",
          L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478465", kUser}) {
        EXPECT_FALSE(IsAccepted(owner)) << Narrow(owner);
        EXPECT_FALSE(IsAccepted(owner, L"S-1-5-21-1-2-3-1002")) << Narrow(owner);
    }
}

TEST(TraceOwner, TheAuthorizedUserIsAccepted) {
    EXPECT_TRUE(IsAccepted(kUser, kUser));
    EXPECT_FALSE(IsAccepted(L"S-1-5-21-1-2-3-10010", kUser));
}

TEST(TraceOwner, AMissingOrInvalidOwnerIsRefusedWhoeverIsAuthorized) {
    const Sid user(kUser);
    EXPECT_FALSE(RvIsAcceptedTraceOwner(nullptr, nullptr));
    EXPECT_FALSE(RvIsAcceptedTraceOwner(nullptr, user.Get()));
    SID invalid{};
    invalid.Revision = 9;
    invalid.SubAuthorityCount = 1;
    EXPECT_FALSE(RvIsAcceptedTraceOwner(&invalid, user.Get()));
    EXPECT_FALSE(RvIsAcceptedTraceOwner(&invalid, &invalid));
    EXPECT_FALSE(RvIsAcceptedTraceOwner(user.Get(), &invalid));
}

TEST(TraceOwner, AWellKnownSidThatCannotBeBuiltEqualsNobody) {
    RAVLO_HOOK(CreateWellKnownSid) sids(GetModuleHandleW(nullptr));
    sids.FailEvery(FALSE, ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(IsAccepted(L"S-1-5-18"));
    EXPECT_FALSE(IsAccepted(L"S-1-5-19"));
    EXPECT_FALSE(IsAccepted(L"S-1-5-32-544"));
    EXPECT_TRUE(IsAccepted(kTrustedInstaller));
    EXPECT_TRUE(IsAccepted(L"S-1-5-18", L"S-1-5-18"));
}

TEST(TraceOwner, AnInstallerSidThatCannotBeConvertedEqualsNobody) {
    const Sid installer(kTrustedInstaller);
    const Sid system(L"S-1-5-18");
    RAVLO_HOOK(ConvertStringSidToSidW) conversion(GetModuleHandleW(nullptr));
    conversion.FailEvery(FALSE, ERROR_INVALID_SID);
    EXPECT_FALSE(RvIsAcceptedTraceOwner(installer.Get(), nullptr));
    EXPECT_TRUE(RvIsAcceptedTraceOwner(system.Get(), nullptr));
}

TEST(TraceOwner, TheWellKnownAccountsAreBuiltInOrderIntoRoomForAnySid) {
    RAVLO_HOOK(CreateWellKnownSid) sids(GetModuleHandleW(nullptr));
    std::vector<DWORD> rooms;
    sids.Replace([&](WELL_KNOWN_SID_TYPE type, PSID domain, PSID sid, DWORD* size) {
        rooms.push_back(*size);
        return decltype(sids)::CallOriginal(type, domain, sid, size);
    });
    EXPECT_FALSE(IsAccepted(L"S-1-5-20"));
    ASSERT_EQ(3u, sids.Count());
    EXPECT_EQ(WinLocalSystemSid, std::get<0>(sids.Calls()[0]));
    EXPECT_EQ(WinLocalServiceSid, std::get<0>(sids.Calls()[1]));
    EXPECT_EQ(WinBuiltinAdministratorsSid, std::get<0>(sids.Calls()[2]));
    EXPECT_EQ((std::vector<DWORD>{68, 68, 68}), rooms);
}

class TraceAuthorizedUser : public AnchoredTest {
protected:
    /// 0 and the SID's text, or the error.
    DWORD Read(std::wstring* text = nullptr) {
        LocalSid sid;
        DWORD error = 0xDEAD;
        const bool read = RvReadAuthorizedUserSid(&sid, &error);
        EXPECT_EQ(read, static_cast<bool>(sid));
        EXPECT_EQ(read, error == 0);
        if (read && text) {
            LPWSTR converted = nullptr;
            EXPECT_TRUE(ConvertSidToStringSidW(sid.Get(), &converted));
            *text = converted;
            LocalFree(converted);
        }
        return error;
    }
    /// The same for a value of the registry.
    DWORD ReadOf(const std::wstring& value) {
        m_anchor.Set(value);
        return Read();
    }
};

TEST_F(TraceAuthorizedUser, AUsersSidIsReturned) {
    m_anchor.Set(kUser);
    std::wstring text;
    EXPECT_EQ(0u, Read(&text));
    EXPECT_EQ(kUser, text);
}

TEST_F(TraceAuthorizedUser, AnAbsentValueOrKeyGivesTheErrorOfTheRead) {
    m_anchor.Delete();
    EXPECT_EQ(2u, Read());
    m_anchor.DeleteKey();
    EXPECT_EQ(2u, Read());
}

TEST_F(TraceAuthorizedUser, AnotherTypeIsRefused) {
    const DWORD number = 18;
    m_anchor.SetRaw(REG_DWORD, std::as_bytes(std::span(&number, 1)));
    EXPECT_EQ(1630u, Read());
    m_anchor.SetRaw(REG_BINARY, std::as_bytes(std::span(kUser)));
    EXPECT_EQ(1630u, Read());
    m_anchor.SetRaw(REG_MULTI_SZ, std::as_bytes(std::span(kUser)));
    EXPECT_EQ(1630u, Read());
}

TEST_F(TraceAuthorizedUser, AnEmptyStringIsNoSid) {
    EXPECT_EQ(1337u, ReadOf(L""));
    m_anchor.SetRaw(REG_SZ, {});
    EXPECT_EQ(1337u, Read());
}

TEST_F(TraceAuthorizedUser, ATextThatDoesNotConvertIsNoSid) {
    for (const wchar_t* const text : {L"X-1-5-21-1", L"S1-5", L"S-1-5", L"S-2-5-18", L"S-1-5-21-1x", L"somebody"}) {
        EXPECT_EQ(1337u, ReadOf(text)) << Narrow(text);
    }
}

TEST_F(TraceAuthorizedUser, ABroadGroupIsNobody) {
    EXPECT_EQ(1337u, ReadOf(L"S-1-1-0"));
    EXPECT_EQ(1337u, ReadOf(L"S-1-5-11"));
    EXPECT_EQ(1337u, ReadOf(L"S-1-5-32-545"));
}

TEST_F(TraceAuthorizedUser, ASmallerGroupIsTakenAsItStands) {
    EXPECT_EQ(0u, ReadOf(L"S-1-5-32-544"));
    EXPECT_EQ(0u, ReadOf(L"S-1-5-4"));
}

TEST_F(TraceAuthorizedUser, AConversionThatFailsGivesItsErrorOrElseInvalidSid) {
    RAVLO_HOOK(ConvertStringSidToSidW) conversion(GetModuleHandleW(nullptr));
    conversion.FailEvery(FALSE, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(8u, Read());
    conversion.FailEvery(FALSE, ERROR_SUCCESS);
    EXPECT_EQ(1337u, Read());
}

TEST_F(TraceAuthorizedUser, NoPlaceForTheSidIsAnInvalidParameter) {
    RAVLO_HOOK(RegGetValueW) reads(GetModuleHandleW(nullptr));
    DWORD error = 0;
    EXPECT_FALSE(RvReadAuthorizedUserSid(nullptr, &error));
    EXPECT_EQ(87u, error);
    EXPECT_EQ(0u, reads.Count());
}

TEST_F(TraceAuthorizedUser, AnUnterminatedStringIsReadToItsEnd) {
    m_anchor.SetUnterminated(kUser);
    std::wstring text;
    EXPECT_EQ(0u, Read(&text));
    EXPECT_EQ(kUser, text);
}

TEST_F(TraceAuthorizedUser, AReadThatFillsTheBufferWithoutATerminatorStaysInside) {
    RAVLO_HOOK(RegGetValueW) reads(GetModuleHandleW(nullptr));
    reads.Replace([](HKEY, LPCWSTR, LPCWSTR, DWORD, LPDWORD, PVOID data, LPDWORD size) -> LSTATUS {
        std::wstring text = L"S-1-5-21";
        text.resize(*size / sizeof(wchar_t), L'1');
        std::memcpy(data, text.data(), *size);
        return ERROR_SUCCESS;
    });
    EXPECT_EQ(1337u, Read());
}

TEST_F(TraceAuthorizedUser, AValueBeyondTheBufferIsTooLong) {
    EXPECT_EQ(234u, ReadOf(std::wstring(512, L'1')));   // 1026 bytes with its terminator
    EXPECT_EQ(1337u, ReadOf(std::wstring(511, L'1')));  // 1024 bytes are read, and are no SID
}

TEST_F(TraceAuthorizedUser, TheReadAsksForAStringOfTheMachineKeyAndNothingElse) {
    RAVLO_HOOK(RegGetValueW) reads(GetModuleHandleW(nullptr));
    DWORD room = 0;
    reads.Replace([&](HKEY key, LPCWSTR path, LPCWSTR name, DWORD flags, LPDWORD type, PVOID data, LPDWORD size) {
        room = *size;
        return decltype(reads)::CallOriginal(key, path, name, flags, type, data, size);
    });
    EXPECT_EQ(0u, Read());
    ASSERT_EQ(1u, reads.Count());
    const auto read = reads.Calls()[0];
    EXPECT_EQ(HKEY_LOCAL_MACHINE, std::get<0>(read));
    EXPECT_EQ(L"SOFTWARE\\Ravlo", std::get<1>(read));
    EXPECT_EQ(L"AuthorizedUserSid", std::get<2>(read));
    EXPECT_EQ(2u, std::get<3>(read));  // RRF_RT_REG_SZ
    EXPECT_EQ(1024u, room);
}

TEST_F(TraceAuthorizedUser, AnyOtherFailureOfTheReadIsPassedOn) {
    RAVLO_HOOK(RegGetValueW) reads(GetModuleHandleW(nullptr));
    reads.FailEvery(ERROR_ACCESS_DENIED);
    EXPECT_EQ(5u, Read());
}

}  // namespace
}  // namespace ravlo::test
