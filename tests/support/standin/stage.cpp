#include "stage.h"

#include <objbase.h>

#include <array>
#include <cwchar>

namespace ravlo::standin {
namespace {

SRWLOCK g_lock = SRWLOCK_INIT;

std::wstring Variable(const wchar_t* name) {
    std::array<wchar_t, 1024> text{};
    const DWORD length = GetEnvironmentVariableW(name, text.data(), static_cast<DWORD>(text.size()));
    return length < text.size() ? std::wstring(text.data(), length) : std::wstring();
}

std::string Utf8(const std::wstring& wide) {
    const int units = static_cast<int>(wide.size());
    std::string text(wide.size() * 3, '\0');
    text.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, text.data(),
                                                             static_cast<int>(text.size()), nullptr, nullptr)));
    return text;
}

}  // namespace

bool IsAsked(const wchar_t* variable) {
    return !Variable(variable).empty();
}

void Record(const std::wstring& line) {
    const std::wstring path = Variable(L"RAVLO_STANDIN_RECORD");
    if (path.empty()) {
        return;
    }
    const std::string bytes = Utf8(line) + "\n";
    AcquireSRWLockExclusive(&g_lock);
    const HANDLE file =
        CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        DWORD written = 0;
        WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
        CloseHandle(file);
    }
    ReleaseSRWLockExclusive(&g_lock);
}

HRESULT Enter(const wchar_t* method, const std::wstring& arguments) {
    Record(arguments.empty() ? std::wstring(method) : std::wstring(method) + L" " + arguments);
    const std::wstring failures = L" " + Variable(L"RAVLO_STANDIN_FAIL");
    const std::wstring wanted = std::wstring(L" ") + method + L"=";
    const std::size_t at = failures.find(wanted);
    if (at == std::wstring::npos) {
        return S_OK;
    }
    const std::wstring value = failures.substr(at + wanted.size());
    if (value.starts_with(L"hang")) {
        Sleep(30000);  // the test ends the process long before
        return E_ABORT;
    }
    return static_cast<HRESULT>(std::wcstoul(value.c_str(), nullptr, 16));
}

std::wstring GuidText(REFGUID guid) {
    std::array<wchar_t, 39> text{};
    StringFromGUID2(guid, text.data(), static_cast<int>(text.size()));
    return text.data();
}

}  // namespace ravlo::standin
