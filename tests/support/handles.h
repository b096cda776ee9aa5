// Counting this process's handles. GetProcessHandleCount always answers 0 under Wine.
#pragma once

#include "support/wait.h"

#include <cstddef>

namespace ravlo::test {

/// Open handles of this process now.
std::size_t CountHandles();

/// Waits until at most `count` handles are open: the handle of a thread that just ended may linger a moment.
bool HandlesSettleAt(std::size_t count, DWORD timeoutMs = kPatienceMs);

}  // namespace ravlo::test
