#include "rvsetup/doctor/registered_module.h"

#include <vector>

#include "platform/registry_key.h"

namespace ravlo {
namespace {

LSTATUS OpenKey(const std::wstring& name, RegistryKey& key) noexcept {
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, name.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, key.Put());
}

/// A text value, with the variables in it replaced where its type asks for that; empty when there is none.
std::wstring ReadText(const RegistryKey& key, const wchar_t* name) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (RegQueryValueExW(key.Get(), name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ)) {
        return {};
    }
    // The registry promises no terminator: the last character is one that the read may not fill.
    std::vector<wchar_t> buffer(size / sizeof(wchar_t) + 2, L'\0');
    size = static_cast<DWORD>((buffer.size() - 1) * sizeof(wchar_t));
    if (RegQueryValueExW(key.Get(), name, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()), &size) !=
        ERROR_SUCCESS) {
        return {};
    }
    if (type != REG_EXPAND_SZ) {
        return buffer.data();
    }
    std::vector<wchar_t> expanded(ExpandEnvironmentStringsW(buffer.data(), nullptr, 0) + 1, L'\0');
    ExpandEnvironmentStringsW(buffer.data(), expanded.data(), static_cast<DWORD>(expanded.size()));
    return expanded.data();
}

}  // namespace

RegisteredModule ReadRegisteredModule() {
    RegisteredModule module;
    RegistryKey classKey;
    module.error = static_cast<DWORD>(OpenKey(kCameraClassKey, classKey));
    if (module.error != ERROR_SUCCESS) {
        return module;
    }
    module.friendlyName = ReadText(classKey, nullptr);
    RegistryKey serverKey;
    const LSTATUS status = OpenKey(std::wstring(kCameraClassKey) + L"\\InprocServer32", serverKey);
    if (status == ERROR_SUCCESS) {
        module.path = ReadText(serverKey, nullptr);
        module.threadingModel = ReadText(serverKey, L"ThreadingModel");
    } else if (status != ERROR_FILE_NOT_FOUND) {
        module.error = static_cast<DWORD>(status);
    }
    return module;
}

std::wstring FolderOf(const std::wstring& path) {
    const std::size_t end = path.rfind(L'\\');
    return end == std::wstring::npos ? std::wstring() : path.substr(0, end);
}

}  // namespace ravlo
