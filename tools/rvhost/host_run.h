#pragma once

#include "common/exit_codes.h"
#include "common/interrupt.h"
#include "rvhost/options.h"

namespace ravlo {

/// Activates the camera, pulls samples until the wanted length, the user or a failure ends it, and prints what was seen
/// on standard output. The samples are pulled on a thread of its own, so that a camera that delivers nothing holds up
/// nobody; such a thread is left behind, and the process must then end without waiting for it.
ExitCode RunHost(const HostOptions& options, const Interrupt& interrupt);

}  // namespace ravlo
