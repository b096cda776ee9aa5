#pragma once

#include "common/exit_codes.h"
#include "common/interrupt.h"
#include "rvfeeder/options.h"

namespace ravlo {

/// Sends the pictures to the camera, one by one at their own pace, until they end, the user interrupts, a limit is
/// reached or the camera stays away too long. Says what happens and ends with a summary on standard error; reports on
/// standard output when asked to.
ExitCode Feed(const FeederOptions& options, const Interrupt& interrupt);

}  // namespace ravlo
