#pragma once

#include "common/exit_codes.h"

namespace ravlo {

/// The whole of a program's main(): names its messages, runs `body`, turns an exception that gets this far into a
/// sentence and ExitCode::Failure (a ProgramError: its own code), writes out what is buffered, and ends the process at
/// once. Ending at once matters: a thread may be stuck in a read that cannot be taken back, and destructors must not
/// run under it.
[[noreturn]] void RunProgram(const char* name, ExitCode (*body)());

}  // namespace ravlo
