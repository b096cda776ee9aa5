#pragma once

#include <functional>

#include "common/exit_codes.h"
#include "common/interrupt.h"

namespace ravlo {

/// Runs `work` on a thread of its own, because a call into the system may last and cannot be taken back, and says what
/// it throws. When the user wants the program to end, `work` gets a moment to finish and the result is
/// ExitCode::Interrupted unless it failed. The process must end soon after: `work` may still run then, so it must own
/// all that it uses.
ExitCode RunInterruptibly(std::function<ExitCode()> work, const Interrupt& interrupt);

}  // namespace ravlo
