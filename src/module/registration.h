#pragma once

#include <windows.h>

namespace ravlo {

/// Makes the class creatable: writes its keys under HKEY_LOCAL_MACHINE with the file path of `module`. A failure
/// removes the class key again when this call created it, and leaves one that existed before as it then is.
HRESULT RegisterClassKeys(HMODULE module) noexcept;

/// Removes the class key with everything under it. Nothing registered is success.
HRESULT UnregisterClassKeys() noexcept;

}  // namespace ravlo
