#pragma once

#include <windows.h>

#include <string>

#include "rvsetup/doctor/facts.h"
#include "rvsetup/doctor/registered_module.h"

namespace ravlo {

/// Looks at the registration and at the file behind it, without running anything of it. A signalled `interrupt` (may be
/// null) ends the reading.
ModuleFacts ReadModuleFacts(const RegisteredModule& registered, HANDLE interrupt);

/// Loads the module into this process and asks it for its class, as a host does, unless its headers tell that it cannot be.
/// The module writes its usual lines into the trace log, under this program's name. See WhyNotRun before.
void TryToLoad(const RegisteredModule& registered, ModuleFacts& facts);

/// Who may read and change the module and its folder.
AccessFacts ReadAccessFacts(const std::wstring& modulePath);

}  // namespace ravlo
