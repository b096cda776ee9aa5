// What can fail, how the platform fails it, and what is left out for which reason. One entry for every import of the
// module and every method of the platform's objects; an import without an entry fails the sweep.
#pragma once

#include <windows.h>

#include <cstdint>
#include <span>

namespace ravlo::faults {

/// One way in which a function fails.
struct Failure {
    std::uint64_t result = 0;
    DWORD lastError = 0;
    bool setsLastError = false;
    /// The function does its work and reports the failure all the same: for calls that give something back or end an
    /// operation, which the platform fails only when there is nothing left to do.
    bool performs = false;

    /// The code by which the failure is recognised in the log: the HRESULT or status it returns, or its last error.
    constexpr DWORD Code() const { return setsLastError ? lastError : static_cast<DWORD>(result); }
};

/// How a function's results speak, which decides how its code is written in the log.
enum class CodeKind { None, Win32, Hresult };

/// An import of the module.
struct ImportRule {
    const char* name;
    CodeKind kind;
    /// Likeliest first. Empty: the function is left out.
    std::span<const Failure> failures;
    /// Why the function is left out; null when it is not.
    const char* leftOut;
};

const ImportRule* FindImportRule(const char* name);
/// True for a function that is left out because only the runtime calls it: the sweep looks whether that holds.
bool IsLeftToRuntime(const ImportRule& rule);

/// Functions that the module resolves at run time; they are gated when the module asks for them.
const ImportRule* FindResolvedRule(const char* name);

/// The failures of a method of a platform object that returns an HRESULT.
std::span<const Failure> MethodFailures(const char* method);

}  // namespace ravlo::faults
