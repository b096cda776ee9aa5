#pragma once

namespace ravlo {

/// Writes which process, thread, user and session this call runs as, and whom the thread impersonates, one WHOAMI line
/// each. A system call that fails costs its own line only.
void TraceIdentity() noexcept;

}  // namespace ravlo
