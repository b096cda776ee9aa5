// Self-registration, in a machine registry of the test's own.
#include "support/fixtures.h"

#include <string>

namespace ravlo::test {
namespace {

using CreateKey = RAVLO_HOOK(RegCreateKeyExW);
using SetValue = RAVLO_HOOK(RegSetValueExW);
using FileName = RAVLO_HOOK(GetModuleFileNameW);

const std::wstring kClassKey = L"SOFTWARE\\Classes\\CLSID\\{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}";
const std::wstring kServerKey = kClassKey + L"\\InprocServer32";

/// The REG_SZ of that name; "(none)" when there is none.
std::wstring ReadText(const std::wstring& key, const wchar_t* name) {
    wchar_t text[2100]{};
    DWORD bytes = sizeof text - sizeof(wchar_t);
    const LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_SZ, nullptr, text, &bytes);
    return status == ERROR_SUCCESS ? text : L"(none)";
}

bool KeyExists(const std::wstring& key) {
    HKEY opened = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) {
        return false;
    }
    RegCloseKey(opened);
    return true;
}

void MakeKey(const std::wstring& key) {
    HKEY created = nullptr;
    ASSERT_EQ(ERROR_SUCCESS,
              RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &created, nullptr));
    RegCloseKey(created);
}

class ModuleRegistration : public ModuleTest {};

TEST_F(ModuleRegistration, TheClassIsWrittenWithItsThreeValues) {
    ASSERT_FALSE(KeyExists(kClassKey));
    EXPECT_EQ(S_OK, m_module.RegisterServer());
    EXPECT_EQ(L"Ravlo Source", ReadText(kClassKey, nullptr));
    EXPECT_EQ(m_module.Path(), ReadText(kServerKey, nullptr));
    EXPECT_EQ(L"Both", ReadText(kServerKey, L"ThreadingModel"));
}

TEST_F(ModuleRegistration, KeysAreOpenedForWritingAndValuesCountTheirTerminator) {
    CreateKey keys(m_module.Handle());
    SetValue values(m_module.Handle());
    RAVLO_HOOK(RegCloseKey) closed(m_module.Handle());
    ASSERT_EQ(S_OK, m_module.RegisterServer());

    ASSERT_EQ(2u, keys.Count());
    const auto classKey = keys.Calls()[0];
    EXPECT_EQ(HKEY_LOCAL_MACHINE, std::get<0>(classKey));
    EXPECT_EQ(kClassKey, std::get<1>(classKey));
    EXPECT_EQ(0u, std::get<4>(classKey));
    EXPECT_EQ(0x20006u, std::get<5>(classKey));
    EXPECT_NE(nullptr, std::get<8>(classKey));
    const auto serverKey = keys.Calls()[1];
    EXPECT_EQ(L"InprocServer32", std::get<1>(serverKey));
    EXPECT_EQ(0u, std::get<4>(serverKey));
    EXPECT_EQ(0x20006u, std::get<5>(serverKey));
    EXPECT_EQ(nullptr, std::get<8>(serverKey));

    ASSERT_EQ(3u, values.Count());
    const auto name = values.Calls()[0];
    const auto path = values.Calls()[1];
    const auto model = values.Calls()[2];
    EXPECT_EQ(DWORD{REG_SZ}, std::get<3>(name));
    EXPECT_EQ(26u, std::get<5>(name));
    EXPECT_EQ(DWORD{REG_SZ}, std::get<3>(path));
    EXPECT_EQ((m_module.Path().size() + 1) * 2, std::get<5>(path));
    EXPECT_EQ(L"ThreadingModel", std::get<1>(model));
    EXPECT_EQ(DWORD{REG_SZ}, std::get<3>(model));
    EXPECT_EQ(10u, std::get<5>(model));

    // The subkey first, then the class key.
    ASSERT_EQ(2u, closed.Count());
    EXPECT_EQ(std::get<0>(path), std::get<0>(closed.Calls()[0]));
    EXPECT_EQ(std::get<0>(name), std::get<0>(closed.Calls()[1]));
}

TEST_F(ModuleRegistration, RegisteringAgainRefreshesThePath) {
    ASSERT_EQ(S_OK, m_module.RegisterServer());
    const std::wstring stale = L"C:\\elsewhere\\old.dll";
    ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(HKEY_LOCAL_MACHINE, kServerKey.c_str(), nullptr, REG_SZ, stale.c_str(),
                                             static_cast<DWORD>((stale.size() + 1) * 2)));
    EXPECT_EQ(S_OK, m_module.RegisterServer());
    EXPECT_EQ(m_module.Path(), ReadText(kServerKey, nullptr));
}

TEST_F(ModuleRegistration, AFailingValueRemovesTheKeyThatThisCallCreated) {
    for (int failing = 1; failing <= 3; ++failing) {
        SetValue values(m_module.Handle());
        values.FailCall(failing, ERROR_ACCESS_DENIED);
        EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), m_module.RegisterServer()) << failing;
        EXPECT_EQ(static_cast<std::size_t>(failing), values.Count());
        EXPECT_FALSE(KeyExists(kClassKey)) << failing;
    }
    EXPECT_EQ(S_OK, m_module.RegisterServer());
    EXPECT_EQ(L"Both", ReadText(kServerKey, L"ThreadingModel"));
}

TEST_F(ModuleRegistration, AFailingValueLeavesAKeyThatWasThereBefore) {
    MakeKey(kClassKey + L"\\Kept");
    SetValue values(m_module.Handle());
    values.FailCall(2, ERROR_DISK_FULL);
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_DISK_FULL), m_module.RegisterServer());
    EXPECT_TRUE(KeyExists(kClassKey + L"\\Kept"));
    EXPECT_EQ(L"Ravlo Source", ReadText(kClassKey, nullptr));
    EXPECT_EQ(L"(none)", ReadText(kServerKey, nullptr));
}

TEST_F(ModuleRegistration, TheClassKeyThatCannotBeCreatedEndsItAtOnce) {
    CreateKey keys(m_module.Handle());
    keys.FailCall(1, ERROR_ACCESS_DENIED);
    SetValue values(m_module.Handle());
    RAVLO_HOOK(RegDeleteTreeW) deletions(m_module.Handle());
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), m_module.RegisterServer());
    EXPECT_EQ(1u, keys.Count());
    EXPECT_EQ(0u, values.Count());
    EXPECT_EQ(0u, deletions.Count());
}

TEST_F(ModuleRegistration, TheServerKeyThatCannotBeCreatedTakesTheClassKeyAlong) {
    CreateKey keys(m_module.Handle());
    keys.FailCall(2, ERROR_ACCESS_DENIED);
    RAVLO_HOOK(RegCloseKey) closed(m_module.Handle());
    RAVLO_HOOK(RegDeleteTreeW) deletions(m_module.Handle());
    std::size_t closedBefore = 0;
    deletions.Replace([&](HKEY key, LPCWSTR name) {
        closedBefore = closed.Count();
        return decltype(deletions)::CallOriginal(key, name);
    });
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), m_module.RegisterServer());
    ASSERT_EQ(1u, deletions.Count());
    EXPECT_EQ(HKEY_LOCAL_MACHINE, std::get<0>(deletions.Calls()[0]));
    EXPECT_EQ(kClassKey, std::get<1>(deletions.Calls()[0]));
    EXPECT_EQ(1u, closedBefore) << "the class key is closed before it is deleted";
    EXPECT_FALSE(KeyExists(kClassKey));
}

TEST_F(ModuleRegistration, TheFirstErrorStaysTheResultWhenTheRemovalFailsToo) {
    SetValue values(m_module.Handle());
    values.FailCall(3, ERROR_DISK_FULL);
    RAVLO_HOOK(RegDeleteTreeW) deletions(m_module.Handle());
    deletions.FailEvery(ERROR_ACCESS_DENIED);
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_DISK_FULL), m_module.RegisterServer());
}

TEST_F(ModuleRegistration, AnEmptyAndACutPathGiveTheSameResultAndTouchNothing) {
    for (const DWORD length : {0u, 1040u, 1041u, 32768u}) {
        FileName names(m_module.Handle());
        names.FailEvery(length, ERROR_INSUFFICIENT_BUFFER);
        CreateKey keys(m_module.Handle());
        EXPECT_EQ(static_cast<HRESULT>(0x8007007A), m_module.RegisterServer()) << length;
        EXPECT_EQ(0u, keys.Count()) << length;
        ASSERT_EQ(1u, names.Count());
        EXPECT_EQ(m_module.Handle(), std::get<0>(names.Calls()[0]));
        EXPECT_EQ(1040u, std::get<2>(names.Calls()[0]));
    }
    EXPECT_FALSE(KeyExists(kClassKey));
}

TEST_F(ModuleRegistration, ThePathThatJustFitsIsWrittenWhole) {
    FileName names(m_module.Handle());
    const std::wstring longest = L"C:\\" + std::wstring(1036, L'a');
    names.Replace([&](HMODULE, LPWSTR text, DWORD) {
        longest.copy(text, longest.size());
        text[longest.size()] = L'\0';
        return static_cast<DWORD>(longest.size());
    });
    EXPECT_EQ(1039u, longest.size());
    EXPECT_EQ(S_OK, m_module.RegisterServer());
    EXPECT_EQ(longest, ReadText(kServerKey, nullptr));
}

TEST_F(ModuleRegistration, ThePathEndsAtItsFirstTerminator) {
    FileName names(m_module.Handle());
    names.Replace([](HMODULE, LPWSTR text, DWORD) {
        std::wstring(L"C:\\a\0b", 6).copy(text, 6);
        return DWORD{6};
    });
    SetValue values(m_module.Handle());
    EXPECT_EQ(S_OK, m_module.RegisterServer());
    EXPECT_EQ(L"C:\\a", ReadText(kServerKey, nullptr));
    EXPECT_EQ(10u, std::get<5>(values.Calls().at(1)));
}

TEST_F(ModuleRegistration, UnregisteringRemovesTheWholeClassKey) {
    ASSERT_EQ(S_OK, m_module.RegisterServer());
    MakeKey(kClassKey + L"\\More\\Deeper");
    EXPECT_EQ(S_OK, m_module.UnregisterServer());
    EXPECT_FALSE(KeyExists(kClassKey));
}

TEST_F(ModuleRegistration, UnregisteringTwiceSucceedsTwice) {
    ASSERT_EQ(S_OK, m_module.RegisterServer());
    EXPECT_EQ(S_OK, m_module.UnregisterServer());
    EXPECT_EQ(S_OK, m_module.UnregisterServer());
}

TEST_F(ModuleRegistration, ErrorsBecomeResultsWithTheirLowSixteenBits) {
    const struct {
        LSTATUS status;
        HRESULT result;
    } rows[] = {
        {ERROR_FILE_NOT_FOUND, S_OK},
        {ERROR_ACCESS_DENIED, static_cast<HRESULT>(0x80070005)},
        {0x12345, static_cast<HRESULT>(0x80072345)},
        {static_cast<LSTATUS>(0x80004005), static_cast<HRESULT>(0x80004005)},
    };
    for (const auto& row : rows) {
        RAVLO_HOOK(RegDeleteTreeW) deletions(m_module.Handle());
        deletions.FailEvery(row.status);
        EXPECT_EQ(row.result, m_module.UnregisterServer()) << row.status;
    }
}

TEST_F(ModuleRegistration, NeitherSuccessNorFailureIsLogged) {
    const std::size_t before = m_log.Lines().size();
    EXPECT_EQ(S_OK, m_module.RegisterServer());
    EXPECT_EQ(S_OK, m_module.UnregisterServer());
    CreateKey keys(m_module.Handle());
    keys.FailEvery(ERROR_ACCESS_DENIED);
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), m_module.RegisterServer());
    EXPECT_EQ(before, m_log.Lines().size()) << m_log.Text();
}

TEST_F(ModuleRegistration, TheCurrentUserIsNeverWritten) {
    CreateKey keys(m_module.Handle());
    ASSERT_EQ(S_OK, m_module.RegisterServer());
    for (const auto& call : keys.Calls()) {
        EXPECT_NE(HKEY_CURRENT_USER, std::get<0>(call));
    }
    HKEY opened = nullptr;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Classes\\CLSID\\{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}", 0,
                            KEY_READ, &opened));
}

}  // namespace
}  // namespace ravlo::test
