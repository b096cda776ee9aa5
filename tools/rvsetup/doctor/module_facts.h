#pragma once

#include <windows.h>

#include <string>

#include "rvsetup/doctor/facts.h"
#include "rvsetup/doctor/registered_module.h"

namespace ravlo {

/// The bytes of a file, up to 256 MiB. False leaves the reason in `error`.
bool ReadFileBytes(const std::wstring& path, std::string& bytes, DWORD& error);

/// Looks at the registration and at the file behind it, without running anything of it.
ModuleFacts ReadModuleFacts(const RegisteredModule& registered);

/// Loads the module into this process and asks it for its class, as a host does. The module writes its usual lines into
/// the trace log, under this program's name.
void TryToLoad(const RegisteredModule& registered, ModuleFacts& facts);

/// Who may read the module and its folder.
AccessFacts ReadAccessFacts(const std::wstring& modulePath);

}  // namespace ravlo
