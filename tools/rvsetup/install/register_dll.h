#pragma once

#include <string>

namespace ravlo {

/// Loads the DLL as COM does and lets it register itself. Empty when it has, else why it could not.
std::string RegisterDll(const std::string& path);

}  // namespace ravlo
