#include "rvsetup/install/registry_tree.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "common/wide_text.h"
#include "platform/registry_key.h"
#include "platform/registry_names.h"

namespace ravlo {
namespace {

/// A name of a key has at most 255 characters, a name of a value 16383.
constexpr DWORD kNameCapacity = 16384;

constexpr char kServerKey[] = "InprocServer32";

LSTATUS Open(HKEY parent, const wchar_t* path, REGSAM access, RegistryKey& key) noexcept {
    return RegOpenKeyExW(parent, path, 0, access | KEY_WOW64_64KEY, key.Put());
}

LSTATUS Create(HKEY parent, const wchar_t* path, RegistryKey& key) noexcept {
    return RegCreateKeyExW(parent, path, 0, nullptr, 0, KEY_READ | KEY_WRITE | KEY_WOW64_64KEY, nullptr, key.Put(),
                           nullptr);
}

LSTATUS QueryValue(HKEY key, const wchar_t* name, RegistryValue& value) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    LSTATUS status = RegQueryValueExW(key, name, nullptr, &type, nullptr, &size);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    // Room for a terminator that some systems add on reading; what counts is the size that they report.
    std::vector<std::uint8_t> bytes(std::size_t{size} + sizeof(wchar_t));
    DWORD read = size;
    status = RegQueryValueExW(key, name, nullptr, &type, bytes.data(), &read);
    if (status == ERROR_SUCCESS) {
        bytes.resize(std::min<std::size_t>(read, bytes.size()));
        value = {ToUtf8(name), type, std::move(bytes)};
    }
    return status;
}

LSTATUS SetValue(HKEY key, const RegistryValue& value) {
    // A byte that is no terminator behind the data: some systems store one that they find there.
    std::vector<std::uint8_t> bytes = value.bytes;
    bytes.resize(bytes.size() + sizeof(DWORD), 0xA5);
    return RegSetValueExW(key, ToWide(value.name).c_str(), 0, value.type, bytes.data(),
                          static_cast<DWORD>(value.bytes.size()));
}

LSTATUS ReadValues(HKEY key, RegistryTree& tree) {
    std::vector<wchar_t> name(kNameCapacity);
    for (DWORD index = 0;; ++index) {
        DWORD length = kNameCapacity;
        LSTATUS status = RegEnumValueW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) {
            return ERROR_SUCCESS;
        }
        RegistryValue value;
        if (status == ERROR_SUCCESS) {
            status = QueryValue(key, name.data(), value);
        }
        if (status != ERROR_SUCCESS) {
            return status;
        }
        tree.values.push_back(std::move(value));
    }
}

LSTATUS ReadKey(HKEY key, RegistryTree& tree) {
    LSTATUS status = ReadValues(key, tree);
    std::vector<wchar_t> name(kNameCapacity);
    for (DWORD index = 0; status == ERROR_SUCCESS; ++index) {
        DWORD length = kNameCapacity;
        status = RegEnumKeyExW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) {
            return ERROR_SUCCESS;
        }
        RegistryKey below;
        if (status == ERROR_SUCCESS) {
            status = Open(key, name.data(), KEY_READ, below);
        }
        if (status == ERROR_SUCCESS) {
            status = ReadKey(below.Get(), tree.keys.emplace_back(RegistryTree{ToUtf8(name.data()), {}, {}}));
        }
    }
    return status;
}

LSTATUS WriteKey(HKEY key, const RegistryTree& tree) {
    LSTATUS status = ERROR_SUCCESS;
    for (const RegistryValue& value : tree.values) {
        status = status == ERROR_SUCCESS ? SetValue(key, value) : status;
    }
    for (const RegistryTree& subtree : tree.keys) {
        RegistryKey below;
        status = status == ERROR_SUCCESS ? Create(key, ToWide(subtree.name).c_str(), below) : status;
        status = status == ERROR_SUCCESS ? WriteKey(below.Get(), subtree) : status;
    }
    return status;
}

/// Absent is no error.
LSTATUS ForgiveAbsence(LSTATUS status) noexcept {
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

}  // namespace

std::optional<RegistryTree> ReadTree(const wchar_t* path, LSTATUS& error) {
    RegistryKey key;
    RegistryTree tree;
    error = Open(HKEY_LOCAL_MACHINE, path, KEY_READ, key);
    if (error == ERROR_SUCCESS) {
        error = ReadKey(key.Get(), tree);
        if (error == ERROR_SUCCESS) {
            return tree;
        }
    }
    error = ForgiveAbsence(error);
    return std::nullopt;
}

LSTATUS WriteTree(const wchar_t* path, const RegistryTree& tree) {
    const LSTATUS status = RemoveTree(path);
    RegistryKey key;
    const LSTATUS created = status == ERROR_SUCCESS ? Create(HKEY_LOCAL_MACHINE, path, key) : status;
    return created == ERROR_SUCCESS ? WriteKey(key.Get(), tree) : created;
}

LSTATUS RemoveTree(const wchar_t* path) noexcept {
    return ForgiveAbsence(RegDeleteTreeW(HKEY_LOCAL_MACHINE, path));
}

std::optional<RegistryValue> ReadValue(const wchar_t* path, const wchar_t* name, LSTATUS& error) {
    RegistryKey key;
    RegistryValue value;
    error = Open(HKEY_LOCAL_MACHINE, path, KEY_READ, key);
    if (error == ERROR_SUCCESS) {
        error = QueryValue(key.Get(), name, value);
        if (error == ERROR_SUCCESS) {
            return value;
        }
    }
    error = ForgiveAbsence(error);
    return std::nullopt;
}

LSTATUS WriteValue(const wchar_t* path, const RegistryValue& value) {
    RegistryKey key;
    const LSTATUS status = Create(HKEY_LOCAL_MACHINE, path, key);
    return status == ERROR_SUCCESS ? SetValue(key.Get(), value) : status;
}

LSTATUS RemoveValue(const wchar_t* path, const wchar_t* name) noexcept {
    RegistryKey key;
    const LSTATUS status = Open(HKEY_LOCAL_MACHINE, path, KEY_SET_VALUE, key);
    return ForgiveAbsence(status == ERROR_SUCCESS ? RegDeleteValueW(key.Get(), name) : status);
}

bool KeyExists(const wchar_t* path, LSTATUS& error) noexcept {
    RegistryKey key;
    const LSTATUS status = Open(HKEY_LOCAL_MACHINE, path, KEY_READ, key);
    error = ForgiveAbsence(status);
    return status == ERROR_SUCCESS;
}

LSTATUS RemoveEmptyKey(const wchar_t* path) noexcept {
    DWORD keys = 0;
    DWORD values = 0;
    {
        RegistryKey key;
        LSTATUS status = Open(HKEY_LOCAL_MACHINE, path, KEY_READ, key);
        if (status == ERROR_SUCCESS) {
            status = RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr,
                                      nullptr, nullptr, nullptr);
        }
        if (status != ERROR_SUCCESS) {
            return ForgiveAbsence(status);
        }
    }
    if (keys != 0 || values != 0) {
        return ERROR_DIR_NOT_EMPTY;
    }
    return ForgiveAbsence(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, path, KEY_WOW64_64KEY, 0));
}

RegistryValue TextValue(const std::string& name, const std::string& text) {
    const std::wstring wide = ToWide(text);
    RegistryValue value{name, REG_SZ, std::vector<std::uint8_t>((wide.size() + 1) * sizeof(wchar_t))};
    std::memcpy(value.bytes.data(), wide.c_str(), value.bytes.size());
    return value;
}

std::string TextOf(const RegistryValue& value) {
    if (value.type != REG_SZ) {
        return {};
    }
    std::wstring wide(value.bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(wide.data(), value.bytes.data(), wide.size() * sizeof(wchar_t));
    return ToUtf8(wide.c_str());  // up to the terminator, where there is one
}

RegistryTree CameraClass(const std::string& dllPath) {
    return {"",
            {TextValue("", ToUtf8(kFriendlyName))},
            {{kServerKey, {TextValue("", dllPath), TextValue("ThreadingModel", "Both")}, {}}}};
}

std::string ServerPath(const std::optional<RegistryTree>& classKey) {
    if (!classKey) {
        return {};
    }
    for (const RegistryTree& key : classKey->keys) {
        if (key.name != kServerKey) {
            continue;
        }
        for (const RegistryValue& value : key.values) {
            if (value.name.empty()) {
                return TextOf(value);
            }
        }
    }
    return {};
}

}  // namespace ravlo
