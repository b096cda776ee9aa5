#pragma once

#include <stdexcept>
#include <string>

#include "support/process.h"

namespace ravlo::bench {

/// A word that stands in the command line of one process only.
inline std::wstring UniqueMark() {
    static unsigned counter = 0;
    return L"mark-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount64()) + L"-" +
           std::to_wstring(counter++) + L"-end";
}

/// Waits for a child, `who` in messages, to end well and returns what it wrote. Throws when it fails or does not end in
/// time.
inline std::string OutputOf(test::ChildProcess& child, const char* who, DWORD timeoutMs) {
    const auto exitCode = child.Wait(timeoutMs);
    std::string output = child.Output();
    if (exitCode != DWORD{0}) {
        throw std::runtime_error(std::string(who) + (exitCode ? " failed: " : " did not end: ") + output);
    }
    return output;
}

}  // namespace ravlo::bench
