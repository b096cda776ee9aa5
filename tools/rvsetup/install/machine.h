#pragma once

#include <optional>
#include <string>

#include "rvsetup/install/plan.h"

namespace ravlo {

/// What the machine is like now. Nothing, and a sentence in `problem`, when it cannot be told: changing it then could
/// not be undone.
std::optional<MachineState> ReadMachine(const Places& places, std::string& problem);

/// What install would be done with: the DLL named by the user, or else the one beside this program, and the programs
/// beside it. Without a DLL the request holds no files; `problem` then tells why not.
InstallRequest FindFiles(const Places& places, const std::string& namedDll, std::string& problem);

}  // namespace ravlo
