// A machine-code gate in front of any function: it saves the caller's registers, asks the dispatcher what shall happen,
// and then either jumps to the function, as if nothing had been there, or returns a staged failure. It needs no type
// for the function, so one gate serves every import and every method that the module calls.
#pragma once

#include <cstdint>

namespace ravlo::faults {

struct Hook;

/// What the gate knows about one call. The layout is known to the assembly in call_gate.cpp.
struct CallRecord {
    std::uint64_t arguments[4];            ///< rcx, rdx, r8, r9
    std::uint64_t kept[8];                 ///< rbx, rbp, rsi, rdi, r12 to r15: what a stack walk needs
    alignas(16) std::uint8_t vectors[64];  ///< xmm0 to xmm3, which may hold arguments too
    Hook* hook;
    void* target;          ///< where a call that passes goes
    std::uint64_t result;  ///< what a failing call returns
    const void* returnAddress;

    /// The caller's stack pointer once the call has returned.
    std::uint64_t StackPointer() const { return reinterpret_cast<std::uint64_t>(&returnAddress) + 8; }
};
static_assert(sizeof(CallRecord) == 192);

/// A new entry point that leads through the gate with `hook`. Lives as long as the process. Null without memory.
void* MakeGate(Hook* hook);

}  // namespace ravlo::faults
