#pragma once

#include <optional>
#include <string>

#include "rvsetup/install/plan.h"

namespace ravlo {

/// Asks the system, not the environment: whoever starts an elevated program may have set its environment. Nothing when
/// the system does not know its program folder.
std::optional<Places> FindPlaces();

/// The folder of the running program, without a backslash at the end; empty when it cannot be told.
std::string OwnFolder();

}  // namespace ravlo
