#include "module/registration.h"

#include <cstddef>
#include <iterator>

#include "platform/hresult.h"
#include "platform/registry_key.h"
#include "platform/registry_names.h"

namespace ravlo {
namespace {

constexpr wchar_t kClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}";
constexpr wchar_t kServerKey[] = L"InprocServer32";
constexpr wchar_t kThreadingModelName[] = L"ThreadingModel";
constexpr wchar_t kThreadingModel[] = L"Both";
/// Room for a path of 1024 characters with something to spare.
constexpr DWORD kModulePathCapacity = 1040;

LSTATUS CreateKey(HKEY parent, const wchar_t* name, RegistryKey& key, DWORD* disposition) noexcept {
    return RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_WRITE, nullptr, key.Put(), disposition);
}

/// Writes `length` characters and the terminator behind them.
LSTATUS SetString(const RegistryKey& key, const wchar_t* valueName, const wchar_t* text, std::size_t length) noexcept {
    return RegSetValueExW(key.Get(), valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                          static_cast<DWORD>((length + 1) * sizeof(wchar_t)));
}

/// Characters before the terminator, or `capacity` when there is none within it.
std::size_t BoundedLength(const wchar_t* text, std::size_t capacity) noexcept {
    std::size_t length = 0;
    while (length < capacity && text[length] != L'\0') {
        ++length;
    }
    return length;
}

LSTATUS WriteServerKey(const RegistryKey& classKey, const wchar_t (&path)[kModulePathCapacity]) noexcept {
    RegistryKey serverKey;
    LSTATUS status = CreateKey(classKey.Get(), kServerKey, serverKey, nullptr);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    const std::size_t length = BoundedLength(path, kModulePathCapacity);
    if (length == kModulePathCapacity) {
        return ERROR_INVALID_DATA;
    }
    status = SetString(serverKey, nullptr, path, length);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    return SetString(serverKey, kThreadingModelName, kThreadingModel, std::size(kThreadingModel) - 1);
}

}  // namespace

HRESULT RegisterClassKeys(HMODULE module) noexcept {
    wchar_t path[kModulePathCapacity]{};
    const DWORD written = GetModuleFileNameW(module, path, kModulePathCapacity);
    if (written == 0 || written >= kModulePathCapacity) {
        // One result for an empty and for a cut path: either way there is nothing that could be registered.
        return HresultFromWin32(ERROR_INSUFFICIENT_BUFFER);
    }
    path[kModulePathCapacity - 1] = L'\0';

    DWORD disposition = 0;
    LSTATUS status = ERROR_SUCCESS;
    {
        RegistryKey classKey;
        status = CreateKey(HKEY_LOCAL_MACHINE, kClassKey, classKey, &disposition);
        if (status != ERROR_SUCCESS) {
            return HresultFromWin32(static_cast<DWORD>(status));
        }
        status = SetString(classKey, nullptr, kFriendlyName, std::size(kFriendlyName) - 1);
        if (status == ERROR_SUCCESS) {
            status = WriteServerKey(classKey, path);
        }
    }
    if (status != ERROR_SUCCESS && disposition == REG_CREATED_NEW_KEY) {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey);
    }
    return HresultFromWin32(static_cast<DWORD>(status));
}

HRESULT UnregisterClassKeys() noexcept {
    const LSTATUS status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey);
    return status == ERROR_FILE_NOT_FOUND ? S_OK : HresultFromWin32(static_cast<DWORD>(status));
}

}  // namespace ravlo
