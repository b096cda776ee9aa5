// Ends the test program when one test hangs.
#pragma once

#include <chrono>

namespace ravlo::test {

/// Time that a test gets when it asks for no other.
inline constexpr std::chrono::seconds kTestTimeout{60};

/// Gives the running test this long, from now.
void SetTestTimeout(std::chrono::seconds timeout);

/// Starts the watch over all tests of the program; called once by main. A test that takes too long ends the
/// process with exit code 3 and a message that names the test.
void InstallWatchdog();

}  // namespace ravlo::test
