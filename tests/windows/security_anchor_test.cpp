// Anchors that must not let anybody in: every refused group in every spelling, every shape that a registry value can
// have, and values that change while they are read.
#include "pipe/authorized_user.h"

#include "pipe_objects.h"
#include "support/import_hooks.h"
#include "support/registry.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <span>

namespace ravlo::test {
namespace {

using QueryHook = RAVLO_HOOK(RegQueryValueExW);

constexpr wchar_t kUser[] = L"S-1-5-21-1-2-3-1001";  // 19 characters, 40 bytes with its terminator

/// An anchor in a registry of the test's own, and what the reading makes of it.
class SecurityAnchor : public ::testing::Test {
protected:
    void Expect(AnchorReason reason, const std::wstring& sid = L"") {
        std::wstring read = L"from before";
        EXPECT_EQ(reason, ReadAuthorizedUserAnchor(read));
        EXPECT_EQ(sid, read) << "what is refused is not handed on";
    }
    void ExpectOf(const std::wstring& text, AnchorReason reason, const std::wstring& sid = L"") {
        SCOPED_TRACE(Narrow(text));
        m_anchor.Set(text);
        Expect(reason, sid);
    }
    /// A value of exactly these bytes.
    void SetBytes(const std::wstring& text, std::size_t bytes, DWORD type = REG_SZ) {
        m_anchor.SetRaw(type, std::as_bytes(std::span(text.data(), text.size())).first(bytes));
    }

    PrivateLocalMachine m_localMachine;
    AnchorGuard m_anchor;
};

TEST_F(SecurityAnchor, EveryRefusedGroupIsRefusedInEverySpelling) {
    for (const wchar_t* const tail : {L"1-0", L"5-11", L"5-7", L"5-4", L"5-32-544", L"5-32-545"}) {
        const std::wstring text = tail;
        ExpectOf(L"S-1-" + text, AnchorReason::NotAUser);
        ExpectOf(L"s-1-" + text, AnchorReason::NotAUser);
        ExpectOf(L"S-1-0x" + text, AnchorReason::NotAUser);
        ExpectOf(L"S-1-0X000000000" + text, AnchorReason::NotAUser);
        ExpectOf(L"S-1-0" + text, AnchorReason::NotAUser);
    }
}

TEST_F(SecurityAnchor, EveryBuiltinAliasIsRefusedNamedOrNot) {
    for (DWORD rid = 500; rid <= 1100; ++rid) {
        ExpectOf(L"S-1-5-32-" + std::to_wstring(rid), AnchorReason::NotAUser);
    }
    for (const wchar_t* const text : {L"S-1-5-32", L"S-1-5-32-0", L"S-1-5-32-4294967295", L"S-1-5-32-544-1001",
                                      L"S-1-5-32-21-1-2-3-1001", L"S-1-5-32-1-2-3-4-5-6-7-8-9-10-11-12-13-14"}) {
        ExpectOf(text, AnchorReason::NotAUser);
    }
}

TEST_F(SecurityAnchor, WhatOnlyResemblesARefusedGroupIsLeftToTheAccountDatabase) {
    for (const wchar_t* const text :
         {L"S-1-5-33-544", L"S-1-5-31-544", L"S-1-4-32-544", L"S-1-6-32-544", L"S-1-261-32-544", L"S-1-5-21-32-544",
          L"S-1-5-320-544", L"S-1-1-1", L"S-1-1-0-0", L"S-1-5-11-0", L"S-1-5-8", L"S-1-5-5"}) {
        ExpectOf(text, AnchorReason::Ok, text);
    }
}

TEST_F(SecurityAnchor, EveryTypeButAStringIsTheWrongOneWhateverItHolds) {
    std::vector<DWORD> types;
    for (DWORD type = REG_NONE; type <= REG_QWORD; ++type) {
        if (type != REG_SZ) {
            types.push_back(type);
        }
    }
    types.insert(types.end(), {REG_QWORD + 1, 0x10001, 0x7FFFFFFF, 0x80000001, 0xFFFFFFFF});
    ASSERT_EQ(16u, types.size());
    for (const DWORD type : types) {
        SCOPED_TRACE(type);
        for (const std::size_t bytes : {std::size_t{0}, std::size_t{4}, std::size_t{40}}) {
            SetBytes(std::wstring(kUser) + L'\0', bytes, type);
            Expect(AnchorReason::WrongType);
        }
        SetBytes(std::wstring(600, L'S'), 1200, type);
        Expect(AnchorReason::WrongType);
    }
}

TEST_F(SecurityAnchor, EveryNumberOfBytesIsReadAsFarAsItGoes) {
    const std::wstring text = kUser;
    for (std::size_t bytes = 1; bytes <= 2 * text.size(); ++bytes) {
        SCOPED_TRACE(bytes);
        SetBytes(text, bytes);
        // An odd byte is the lower half of a character whose upper half is 0.
        const std::wstring seen = text.substr(0, (bytes + 1) / 2);
        const bool isSid = seen.size() >= 7 && seen.back() != L'-';
        Expect(isSid ? AnchorReason::Ok : AnchorReason::Malformed, isSid ? seen : L"");
    }
}

TEST_F(SecurityAnchor, TheLimitIs1024BytesWithAndWithoutATerminator) {
    const std::wstring padded = std::wstring(kUser) + std::wstring(600, L'\0');
    for (const std::size_t bytes : {1022u, 1023u, 1024u}) {
        SetBytes(padded, bytes);
        Expect(AnchorReason::Ok, kUser);
    }
    const std::wstring endless = kUser + std::wstring(600, L'1');
    for (const std::size_t bytes : {1022u, 1023u, 1024u}) {
        SetBytes(endless, bytes);
        Expect(AnchorReason::Malformed);
    }
    for (const std::size_t bytes : {1025u, 1026u, 1200u}) {
        SetBytes(padded, bytes);
        Expect(AnchorReason::TooLarge);
        SetBytes(endless, bytes);
        Expect(AnchorReason::TooLarge);
    }
}

TEST_F(SecurityAnchor, EveryPartOfASidIsReadUpToItsLimitAndNotOneMore) {
    const auto withParts = [](int count) {
        std::wstring text = L"S-1-5";
        for (int i = 0; i < count; ++i) {
            text += L"-4294967295";
        }
        return text;
    };
    ExpectOf(withParts(0), AnchorReason::Malformed);
    ExpectOf(withParts(1), AnchorReason::Ok, withParts(1));
    ExpectOf(withParts(15), AnchorReason::Ok, withParts(15));
    ExpectOf(withParts(16), AnchorReason::Malformed);
    ExpectOf(L"S-1-5-21-1-2-3-4294967296", AnchorReason::Malformed);
    ExpectOf(L"S-1-281474976710656-1", AnchorReason::Malformed);
    ExpectOf(L"S-1-18446744073709551621-18", AnchorReason::Malformed);
}

TEST_F(SecurityAnchor, ATerminatorInTheMiddleEndsTheTextThatIsJudgedAndTheTextThatIsUsed) {
    const auto expectOf = [&](std::wstring text, AnchorReason reason, const std::wstring& sid) {
        text += L'\0';
        SetBytes(text, text.size() * sizeof(wchar_t));
        SCOPED_TRACE(Narrow(text));
        Expect(reason, sid);
    };
    const std::wstring nul(1, L'\0');
    expectOf(nul + kUser, AnchorReason::Malformed, L"");
    expectOf(L"S-1-1-0" + nul + L"-21-1-2-3-1001", AnchorReason::NotAUser, L"");
    expectOf(L"S-1-5-32-544" + nul + kUser, AnchorReason::NotAUser, L"");
    expectOf(kUser + nul + L"S-1-1-0", AnchorReason::Ok, kUser);
    expectOf(L"S-1-5-" + nul + L"21-1-2-3-1001", AnchorReason::Malformed, L"");
}

TEST_F(SecurityAnchor, WhatOnlyLooksLikeASidIsMalformed) {
    for (const wchar_t* const text :
         {L"\x405-1-5-21-1-2-3-1001", L"S\x2013\x31-5-21-1-2-3-1001", L"S-1-5-21-1-2-3-\xFF11\xFF10\xFF10\xFF11",
          L"\xFEFFS-1-5-21-1-2-3-1001", L"S-1-5-21-1-2-3-1001\r\n", L"S-1-5-21-1-2-3-1001;S-1-1-0", L"O:S-1-1-0",
          L"(A;;GA;;;WD)", L"WD", L"AU", L"AN", L"IU", L"BA", L"BU", L"Everyone", L"BUILTIN\\Administrators", L"*",
          L"%USERNAME%", L"S-1-5-21-1-2-3-1001,S-1-1-0"}) {
        ExpectOf(text, AnchorReason::Malformed);
    }
}

/// What happens to the value after its size was asked for and before it is read.
struct Change {
    const char* what;
    std::function<void(AnchorGuard&)> make;
    AnchorReason reason;
    std::wstring sid;
};

TEST_F(SecurityAnchor, AValueThatChangesBetweenTheTwoLooksIsJudgedAsItIsReadTheSecondTime) {
    const auto text = [](std::wstring sid) { return [sid](AnchorGuard& anchor) { anchor.Set(sid); }; };
    const auto ofType = [](DWORD wrong) {
        return [wrong](AnchorGuard& anchor) { anchor.SetRaw(wrong, std::as_bytes(std::span(kUser))); };
    };
    const Change changes[] = {
        {"another user", text(L"S-1-5-21-1-2-3-1002"), AnchorReason::Ok, L"S-1-5-21-1-2-3-1002"},
        {"one character more", text(L"S-1-5-21-1-2-3-10012"), AnchorReason::Ok, L"S-1-5-21-1-2-3-10012"},
        {"two characters more", text(L"S-1-5-21-1-2-3-100123"), AnchorReason::ReadFailed, L""},
        {"far too long", text(std::wstring(600, L'1')), AnchorReason::ReadFailed, L""},
        {"a shorter user", text(L"S-1-5-21-1"), AnchorReason::Ok, L"S-1-5-21-1"},
        {"everyone", text(L"S-1-1-0"), AnchorReason::NotAUser, L""},
        {"an alias", text(L"S-1-5-32-580"), AnchorReason::NotAUser, L""},
        {"no SID", text(L"nobody"), AnchorReason::Malformed, L""},
        {"an empty text", text(L""), AnchorReason::Malformed, L""},
        {"no bytes", [](AnchorGuard& anchor) { anchor.SetRaw(REG_SZ, {}); }, AnchorReason::Malformed, L""},
        {"unterminated", [](AnchorGuard& anchor) { anchor.SetUnterminated(L"S-1-5-21-1-2-3-10012"); }, AnchorReason::Ok,
         L"S-1-5-21-1-2-3-10012"},
        {"bytes", ofType(REG_BINARY), AnchorReason::WrongType, L""},
        {"text to be expanded", ofType(REG_EXPAND_SZ), AnchorReason::WrongType, L""},
        {"several texts", ofType(REG_MULTI_SZ), AnchorReason::WrongType, L""},
        {"gone", [](AnchorGuard& anchor) { anchor.Delete(); }, AnchorReason::ReadFailed, L""},
        {"gone with its key", [](AnchorGuard& anchor) { anchor.DeleteKey(); }, AnchorReason::ReadFailed, L""},
    };
    QueryHook queries(ThisProgram());
    for (const Change& change : changes) {
        SCOPED_TRACE(change.what);
        m_anchor.Set(kUser);
        queries.Replace(
            [&](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) -> LSTATUS {
                if (data != nullptr) {
                    change.make(m_anchor);
                }
                return QueryHook::CallOriginal(key, name, reserved, type, data, size);
            });
        Expect(change.reason, change.sid);
    }
}

TEST_F(SecurityAnchor, AValueThatChangesBeforeTheFirstLookIsJudgedLikeAnyOther) {
    m_anchor.Set(kUser);
    QueryHook queries(ThisProgram());
    queries.Replace([&](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) -> LSTATUS {
        if (data == nullptr) {
            m_anchor.Set(L"S-1-5-11");
        }
        return QueryHook::CallOriginal(key, name, reserved, type, data, size);
    });
    Expect(AnchorReason::NotAUser);
}

TEST_F(SecurityAnchor, AReadThatFillsItsBufferToTheLastByteStaysInside) {
    m_anchor.Set(kUser);
    QueryHook queries(ThisProgram());
    queries.Replace([&](HKEY, LPCWSTR, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size) -> LSTATUS {
        *type = REG_SZ;
        if (data == nullptr) {
            *size = 1024;
        } else {
            const std::wstring digits = L"S-1-5-21" + std::wstring(1024, L'1');
            std::memcpy(data, digits.data(), *size);
        }
        return ERROR_SUCCESS;
    });
    Expect(AnchorReason::Malformed);
}

TEST_F(SecurityAnchor, ARegistryThatCannotBeReadIsNoPermission) {
    m_anchor.Set(kUser);
    RAVLO_HOOK(RegOpenKeyExW) opens(ThisProgram());
    QueryHook queries(ThisProgram());
    for (const LSTATUS status :
         {ERROR_ACCESS_DENIED, ERROR_KEY_DELETED, ERROR_BADDB, ERROR_REGISTRY_CORRUPT, ERROR_REGISTRY_IO_FAILED,
          ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_SYSTEM_RESOURCES, ERROR_INVALID_HANDLE, ERROR_MORE_DATA}) {
        SCOPED_TRACE(status);
        opens.FailEvery(status);
        Expect(AnchorReason::ReadFailed);
        opens.PassOn();
        for (const int n : {1, 2}) {
            queries.FailCall(n, status);
            Expect(AnchorReason::ReadFailed);
        }
        queries.PassOn();
    }
    Expect(AnchorReason::Ok, kUser);
}

}  // namespace
}  // namespace ravlo::test
