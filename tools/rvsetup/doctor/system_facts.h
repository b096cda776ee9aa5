#pragma once

#include <optional>
#include <vector>

#include "rvsetup/doctor/facts.h"

namespace ravlo {

/// The version of Windows as it is, whatever compatibility mode this program runs in. Zeros when it cannot be found out.
WindowsFacts ReadWindowsFacts() noexcept;

/// All processes; nothing when the system does not tell. Needs no rights in them.
std::optional<std::vector<ProcessFacts>> ListProcesses();

}  // namespace ravlo
