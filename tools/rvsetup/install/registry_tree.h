#pragma once

#include <windows.h>

#include <optional>
#include <string>

#include "rvsetup/install/journal.h"

namespace ravlo {

/// All that is below HKEY_LOCAL_MACHINE\`path`. Nothing with `error` 0 when there is no such key, nothing with an error
/// when it cannot be read whole.
std::optional<RegistryTree> ReadTree(const wchar_t* path, LSTATUS& error);

/// Puts `tree` in place of whatever is at HKEY_LOCAL_MACHINE\`path`.
LSTATUS WriteTree(const wchar_t* path, const RegistryTree& tree);

/// Removes the key with everything below it. None there is success.
LSTATUS RemoveTree(const wchar_t* path) noexcept;

/// One value; nothing with `error` 0 when it or its key is absent.
std::optional<RegistryValue> ReadValue(const wchar_t* path, const wchar_t* name, LSTATUS& error);

/// Writes a value and makes its key where there is none.
LSTATUS WriteValue(const wchar_t* path, const RegistryValue& value);

/// Removes a value. None there is success.
LSTATUS RemoveValue(const wchar_t* path, const wchar_t* name) noexcept;

/// False with `error` 0 when there is none.
bool KeyExists(const wchar_t* path, LSTATUS& error) noexcept;

/// Removes the key when it holds nothing. ERROR_DIR_NOT_EMPTY when it does.
LSTATUS RemoveEmptyKey(const wchar_t* path) noexcept;

/// A text value as the registry stores it, and back; empty for a value of another type.
RegistryValue TextValue(const std::string& name, const std::string& text);
std::string TextOf(const RegistryValue& value);

/// What the class key holds once `dllPath` has registered itself.
RegistryTree CameraClass(const std::string& dllPath);

/// The DLL that a class key names; empty when it names none.
std::string ServerPath(const std::optional<RegistryTree>& classKey);

}  // namespace ravlo
