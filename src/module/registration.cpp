#include "module/registration.h"

#include <cstddef>
#include <iterator>

#include "platform/hresult.h"

namespace ravlo {
namespace {

constexpr wchar_t kClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}";
constexpr wchar_t kServerKey[] = L"InprocServer32";
constexpr wchar_t kFriendlyName[] = L"Ravlo Source";
constexpr wchar_t kThreadingModelName[] = L"ThreadingModel";
constexpr wchar_t kThreadingModel[] = L"Both";
/// Room for a path of 1024 characters with something to spare.
constexpr DWORD kPathCapacity = 1040;

class RegistryKey {
public:
    RegistryKey() noexcept = default;
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    ~RegistryKey() {
        if (m_key != nullptr) {
            RegCloseKey(m_key);
        }
    }

    LSTATUS Create(HKEY parent, const wchar_t* name, DWORD* disposition) noexcept {
        return RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_WRITE, nullptr, &m_key, disposition);
    }

    LSTATUS SetString(const wchar_t* valueName, const wchar_t* text, std::size_t length) const noexcept {
        return RegSetValueExW(m_key, valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                              static_cast<DWORD>((length + 1) * sizeof(wchar_t)));
    }

    HKEY Get() const noexcept { return m_key; }

private:
    HKEY m_key = nullptr;
};

/// Characters before the terminator, or `capacity` when there is none within it.
std::size_t BoundedLength(const wchar_t* text, std::size_t capacity) noexcept {
    std::size_t length = 0;
    while (length < capacity && text[length] != L'\0') {
        ++length;
    }
    return length;
}

LSTATUS WriteServerKey(const RegistryKey& classKey, const wchar_t (&path)[kPathCapacity]) noexcept {
    RegistryKey serverKey;
    LSTATUS status = serverKey.Create(classKey.Get(), kServerKey, nullptr);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    const std::size_t length = BoundedLength(path, kPathCapacity);
    if (length == kPathCapacity) {
        return ERROR_INVALID_DATA;
    }
    status = serverKey.SetString(nullptr, path, length);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    return serverKey.SetString(kThreadingModelName, kThreadingModel, std::size(kThreadingModel) - 1);
}

}  // namespace

HRESULT RegisterClassKeys(HMODULE module) noexcept {
    wchar_t path[kPathCapacity]{};
    const DWORD written = GetModuleFileNameW(module, path, kPathCapacity);
    if (written == 0 || written >= kPathCapacity) {
        // One result for an empty and for a cut path: either way there is nothing that could be registered.
        return HresultFromWin32(ERROR_INSUFFICIENT_BUFFER);
    }
    path[kPathCapacity - 1] = L'\0';

    DWORD disposition = 0;
    LSTATUS status = ERROR_SUCCESS;
    {
        RegistryKey classKey;
        status = classKey.Create(HKEY_LOCAL_MACHINE, kClassKey, &disposition);
        if (status != ERROR_SUCCESS) {
            return HresultFromWin32(static_cast<DWORD>(status));
        }
        status = classKey.SetString(nullptr, kFriendlyName, std::size(kFriendlyName) - 1);
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
