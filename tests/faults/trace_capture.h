// The lines of the module's log, taken where it writes them.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

namespace ravlo::faults {

/// Keeps one line that was written, prefix and line end included. Any thread; lines beyond 1 MiB are dropped.
void KeepLogLine(const char* line, std::size_t length);
void ForgetLog();

/// The lines since the last ForgetLog, without prefix and line end.
std::vector<std::string> LogLines();
bool LogContains(const char* text);

}  // namespace ravlo::faults
