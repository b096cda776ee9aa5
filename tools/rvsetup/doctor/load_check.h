#pragma once

#include <string>
#include <vector>

#include "rvsetup/doctor/facts.h"

namespace ravlo {

/// Who, besides the system, administrators, the installer of Windows and the camera's own service, may change the module
/// or put another file in its place: SIDs, each once. `S-1-1-0` (everyone) for an object without an access list.
std::vector<std::string> WhoMayReplace(const AccessFacts& access);

/// Why the module is not to be run for a look, as part of a sentence; empty when it may be. It runs with the rights of
/// whoever looks, and writes into the first log folder that takes it, which it makes where it is missing: so only code that
/// nobody else could have put there, and only where the log is there already.
std::string WhyNotRun(const DoctorFacts& facts);

}  // namespace ravlo
