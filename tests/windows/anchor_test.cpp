// Reading and vetting the authorization anchor: every way in which it can be missing or wrong.
#include "pipe/authorized_user.h"

#include "pipe_objects.h"
#include "program_heap.h"
#include "support/import_hooks.h"
#include "support/registry.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

namespace ravlo::test {
namespace {

constexpr wchar_t kUser[] = L"S-1-5-21-1-2-3-1001";

/// A registry value's bytes: the characters as they are in memory, and then `tail`.
std::vector<std::byte> Bytes(const std::wstring& text, std::initializer_list<int> tail = {}) {
    std::vector<std::byte> bytes(text.size() * sizeof(wchar_t));
    std::memcpy(bytes.data(), text.data(), bytes.size());
    for (const int value : tail) {
        bytes.push_back(static_cast<std::byte>(value));
    }
    return bytes;
}

class Anchor : public ::testing::Test {
protected:
    AnchorReason Read() { return ReadAuthorizedUserAnchor(m_sid); }
    AnchorReason Read(const std::wstring& text) {
        m_anchor.Set(text);
        return Read();
    }

    PrivateLocalMachine m_localMachine;
    AnchorGuard m_anchor;
    std::wstring m_sid = L"from before";
};

TEST_F(Anchor, AUserIsReadAsItStands) {
    EXPECT_EQ(AnchorReason::Ok, Read(kUser));
    EXPECT_EQ(kUser, m_sid);
}

TEST_F(Anchor, WithoutTheKeyItIsAbsent) {
    EXPECT_EQ(AnchorReason::Absent, Read());
    EXPECT_EQ(L"", m_sid);
}

TEST_F(Anchor, WithoutTheValueItIsAbsent) {
    m_anchor.Delete();
    EXPECT_EQ(AnchorReason::Absent, Read());
}

TEST_F(Anchor, EveryOtherTypeIsTheWrongOne) {
    for (const DWORD type : {REG_NONE, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_QWORD}) {
        m_anchor.SetRaw(type, Bytes(kUser, {0, 0}));
        EXPECT_EQ(AnchorReason::WrongType, Read()) << type;
        EXPECT_EQ(L"", m_sid);
    }
}

TEST_F(Anchor, TheTypeDecidesBeforeTheSize) {
    m_anchor.SetRaw(REG_BINARY, {});
    EXPECT_EQ(AnchorReason::WrongType, Read());
    m_anchor.SetRaw(REG_BINARY, std::vector<std::byte>(2000));
    EXPECT_EQ(AnchorReason::WrongType, Read());
}

TEST_F(Anchor, UpTo1024BytesAreReadAndNotOneMore) {
    std::vector<std::byte> bytes = Bytes(kUser);
    bytes.resize(1024);
    m_anchor.SetRaw(REG_SZ, bytes);
    EXPECT_EQ(AnchorReason::Ok, Read());
    EXPECT_EQ(kUser, m_sid);
    bytes.resize(1025);
    m_anchor.SetRaw(REG_SZ, bytes);
    EXPECT_EQ(AnchorReason::TooLarge, Read());
    bytes.resize(1026);
    m_anchor.SetRaw(REG_SZ, bytes);
    EXPECT_EQ(AnchorReason::TooLarge, Read());
    EXPECT_EQ(L"", m_sid);
}

TEST_F(Anchor, ATextOf1026BytesIsTooLargeWhateverItSays) {
    EXPECT_EQ(AnchorReason::TooLarge, Read(std::wstring(512, L'9')));
}

TEST_F(Anchor, AnEmptyValueIsMalformed) {
    m_anchor.SetRaw(REG_SZ, {});
    EXPECT_EQ(AnchorReason::Malformed, Read());
    EXPECT_EQ(AnchorReason::Malformed, Read(L""));
}

TEST_F(Anchor, WhatIsNoSidIsMalformed) {
    for (const wchar_t* text :
         {L"X-1-5-21-1", L"S1-5", L"S-1-5", L"S-1-5-", L"S-", L"S", L"S-1-5-21-1-", L"S-1-5-21-1 ", L" S-1-5-21-1",
          L"S-2-5-18", L"BA", L"SY", L"S-1-5--18", L"S-1-5-4294967296", L"S-1-5-+18", L"S-1-5-21-x", L"root",
          L"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"}) {
        EXPECT_EQ(AnchorReason::Malformed, Read(text)) << text;
        EXPECT_EQ(L"", m_sid);
    }
}

TEST_F(Anchor, ALowerCaseBeginningIsASidAsWell) {
    EXPECT_EQ(AnchorReason::Ok, Read(L"s-1-5-21-1-2-3-1001"));
    EXPECT_EQ(L"s-1-5-21-1-2-3-1001", m_sid);
}

TEST_F(Anchor, WellKnownGroupsAndBuiltinAliasesAreNotAUser) {
    for (const wchar_t* text : {L"S-1-1-0", L"S-1-5-11", L"S-1-5-7", L"S-1-5-4", L"S-1-5-32-544", L"S-1-5-32-545",
                                L"S-1-5-32-555", L"S-1-5-32-1", L"s-1-1-0"}) {
        EXPECT_EQ(AnchorReason::NotAUser, Read(text)) << text;
        EXPECT_EQ(L"", m_sid);
    }
}

TEST_F(Anchor, ATextWithoutTerminatorIsReadAsTerminated) {
    m_anchor.SetUnterminated(kUser);
    EXPECT_EQ(AnchorReason::Ok, Read());
    EXPECT_EQ(kUser, m_sid);
}

TEST_F(Anchor, ATextEndsAtItsFirstTerminator) {
    m_anchor.SetRaw(REG_SZ, Bytes(std::wstring(kUser) + L'\0' + L"behind it"));
    EXPECT_EQ(AnchorReason::Ok, Read());
    EXPECT_EQ(kUser, m_sid);
}

TEST_F(Anchor, HalfACharacterAtTheEndMakesItMalformed) {
    m_anchor.SetRaw(REG_SZ, Bytes(kUser, {0x41}));
    EXPECT_EQ(AnchorReason::Malformed, Read());
}

TEST_F(Anchor, HalfATerminatorAtTheEndIsOne) {
    m_anchor.SetRaw(REG_SZ, Bytes(kUser, {0}));
    EXPECT_EQ(AnchorReason::Ok, Read());
    EXPECT_EQ(kUser, m_sid);
}

TEST_F(Anchor, OneSingleByteIsMalformed) {
    m_anchor.SetRaw(REG_SZ, Bytes(L"", {0x53}));
    EXPECT_EQ(AnchorReason::Malformed, Read());
}

TEST_F(Anchor, TheKeyIsOpenedForReadingInThe64BitView) {
    m_anchor.Set(kUser);
    RAVLO_HOOK(RegOpenKeyExW) opens(ThisProgram());
    ASSERT_EQ(AnchorReason::Ok, Read());
    ASSERT_EQ(1u, opens.Count());
    const auto call = opens.Calls().front();
    EXPECT_EQ(HKEY_LOCAL_MACHINE, std::get<0>(call));
    EXPECT_EQ(L"SOFTWARE\\Ravlo", std::get<1>(call));
    EXPECT_EQ(0u, std::get<2>(call));
    EXPECT_EQ(0x20119u, std::get<3>(call));
}

TEST_F(Anchor, AKeyThatCannotBeOpenedIsAFailedRead) {
    m_anchor.Set(kUser);
    RAVLO_HOOK(RegOpenKeyExW) opens(ThisProgram());
    opens.FailEvery(ERROR_ACCESS_DENIED);
    EXPECT_EQ(AnchorReason::ReadFailed, Read());
    opens.FailEvery(ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(AnchorReason::Absent, Read());
}

using QueryHook = RAVLO_HOOK(RegQueryValueExW);

/// Deals out `status` at the n-th query of the value.
void FailQuery(QueryHook& queries, int n, LSTATUS status) {
    queries.FailCall(n, status);
}

TEST_F(Anchor, AProbeThatFailsIsAFailedReadAndANewlyMissingValueIsAbsent) {
    m_anchor.Set(kUser);
    QueryHook queries(ThisProgram());
    FailQuery(queries, 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(AnchorReason::ReadFailed, Read());
    FailQuery(queries, 1, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(AnchorReason::Absent, Read());
}

TEST_F(Anchor, AReadThatFailsAfterTheProbeIsAFailedReadWhateverTheError) {
    m_anchor.Set(kUser);
    QueryHook queries(ThisProgram());
    for (const LSTATUS status : {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_MORE_DATA}) {
        FailQuery(queries, 2, status);
        EXPECT_EQ(AnchorReason::ReadFailed, Read()) << status;
        EXPECT_EQ(L"", m_sid);
    }
}

TEST_F(Anchor, AValueThatGrowsBetweenProbeAndReadIsAFailedRead) {
    m_anchor.Set(kUser);
    QueryHook queries(ThisProgram());
    queries.Replace([&](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) -> LSTATUS {
        const LSTATUS status = QueryHook::CallOriginal(key, name, reserved, type, data, size);
        if (data == nullptr) {
            *size = 4;  // what it was a moment ago
        }
        return status;
    });
    EXPECT_EQ(AnchorReason::ReadFailed, Read());
}

TEST_F(Anchor, ATypeThatChangesBetweenProbeAndReadIsTheWrongOne) {
    m_anchor.Set(kUser);
    QueryHook queries(ThisProgram());
    queries.Replace([&](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) -> LSTATUS {
        const LSTATUS status = QueryHook::CallOriginal(key, name, reserved, type, data, size);
        if (data != nullptr) {
            *type = REG_BINARY;
        }
        return status;
    });
    EXPECT_EQ(AnchorReason::WrongType, Read());
    EXPECT_EQ(L"", m_sid);
}

TEST_F(Anchor, TheReadOffersAllButTheLastCharacterOfAZeroedBuffer) {
    m_anchor.Set(kUser);  // 19 characters and a terminator: 40 bytes, so 22 characters are allocated
    QueryHook queries(ThisProgram());
    DWORD offered = 0;
    bool zeroed = true;
    queries.Replace([&](HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size) -> LSTATUS {
        if (data != nullptr) {
            offered = *size;
            for (DWORD i = 0; i < *size; ++i) {
                zeroed = zeroed && data[i] == 0;
            }
        }
        return QueryHook::CallOriginal(key, name, reserved, type, data, size);
    });
    EXPECT_EQ(AnchorReason::Ok, Read());
    EXPECT_EQ(42u, offered);
    EXPECT_TRUE(zeroed);
}

TEST_F(Anchor, TheKeyIsClosedOnEveryPath) {
    QueryHook queries(ThisProgram());
    const auto expectOneClose = [&](AnchorReason reason) {
        RAVLO_HOOK(RegCloseKey) closes(ThisProgram());
        EXPECT_EQ(reason, Read());
        EXPECT_EQ(1u, closes.Count()) << static_cast<int>(reason);
    };
    m_anchor.Set(kUser);
    expectOneClose(AnchorReason::Ok);
    FailQuery(queries, 1, ERROR_ACCESS_DENIED);
    expectOneClose(AnchorReason::ReadFailed);
    FailQuery(queries, 2, ERROR_ACCESS_DENIED);
    expectOneClose(AnchorReason::ReadFailed);
    queries.PassOn();
    m_anchor.Set(L"S-1-1-0");
    expectOneClose(AnchorReason::NotAUser);
    m_anchor.Set(L"nobody");
    expectOneClose(AnchorReason::Malformed);
    m_anchor.SetRaw(REG_SZ, {});
    expectOneClose(AnchorReason::Malformed);
    m_anchor.SetRaw(REG_SZ, std::vector<std::byte>(1026));
    expectOneClose(AnchorReason::TooLarge);
    m_anchor.SetRaw(REG_DWORD, std::vector<std::byte>(4));
    expectOneClose(AnchorReason::WrongType);
    m_anchor.Delete();
    expectOneClose(AnchorReason::Absent);
}

TEST_F(Anchor, WithoutMemoryItIsAFailedReadAndLeavesNothingBehind) {
    m_anchor.Set(kUser);
    ProgramHeap heap;
    heap.FailNth(1);
    ASSERT_EQ(AnchorReason::ReadFailed, Read());  // also warms up the runtime's first exception
    int failures = 0;
    for (long n = 1; n < 20; ++n) {
        m_sid.clear();
        m_sid.shrink_to_fit();
        const long before = heap.LiveBlocks();
        heap.FailNth(n);
        const AnchorReason reason = Read();
        const bool hit = heap.Hit();
        heap.PassOn();
        if (!hit) {
            EXPECT_EQ(AnchorReason::Ok, reason);
            EXPECT_EQ(kUser, m_sid);
            break;
        }
        ++failures;
        EXPECT_EQ(AnchorReason::ReadFailed, reason) << "allocation " << n;
        EXPECT_TRUE(m_sid.empty());
        EXPECT_EQ(before, heap.LiveBlocks()) << "allocation " << n;
    }
    EXPECT_GE(failures, 2);
}

}  // namespace
}  // namespace ravlo::test
