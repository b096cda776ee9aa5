#include "faults/call_gate.h"

#include <windows.h>

#include <cstddef>
#include <cstring>

// The frame below the return address: 32 bytes that every callee may use, then the CallRecord without its last member,
// which is the return address itself. 216 bytes keep the stack aligned at the call.
static_assert(offsetof(ravlo::faults::CallRecord, kept) == 32);
static_assert(offsetof(ravlo::faults::CallRecord, vectors) == 96);
static_assert(offsetof(ravlo::faults::CallRecord, hook) == 160);
static_assert(offsetof(ravlo::faults::CallRecord, target) == 168);
static_assert(offsetof(ravlo::faults::CallRecord, result) == 176);
static_assert(offsetof(ravlo::faults::CallRecord, returnAddress) == 184);

asm(R"(
    .text
    .p2align 4
    .globl RavloCallGate
    .def RavloCallGate; .scl 2; .type 32; .endef
    .seh_proc RavloCallGate
RavloCallGate:
    subq $216, %rsp
    .seh_stackalloc 216
    .seh_endprologue
    movq %rcx, 32(%rsp)
    movq %rdx, 40(%rsp)
    movq %r8, 48(%rsp)
    movq %r9, 56(%rsp)
    movq %rbx, 64(%rsp)
    movq %rbp, 72(%rsp)
    movq %rsi, 80(%rsp)
    movq %rdi, 88(%rsp)
    movq %r12, 96(%rsp)
    movq %r13, 104(%rsp)
    movq %r14, 112(%rsp)
    movq %r15, 120(%rsp)
    movaps %xmm0, 128(%rsp)
    movaps %xmm1, 144(%rsp)
    movaps %xmm2, 160(%rsp)
    movaps %xmm3, 176(%rsp)
    movq %rax, 192(%rsp)
    leaq 32(%rsp), %rcx
    call RavloDispatchCall
    testl %eax, %eax
    jnz 1f
    movq 32(%rsp), %rcx
    movq 40(%rsp), %rdx
    movq 48(%rsp), %r8
    movq 56(%rsp), %r9
    movaps 128(%rsp), %xmm0
    movaps 144(%rsp), %xmm1
    movaps 160(%rsp), %xmm2
    movaps 176(%rsp), %xmm3
    movq 200(%rsp), %rax
    addq $216, %rsp
    jmp *%rax
1:
    movq 208(%rsp), %rax
    addq $216, %rsp
    ret
    .seh_endproc
)");

extern "C" void RavloCallGate();

namespace ravlo::faults {
namespace {

constexpr std::size_t kStubBytes = 32;
constexpr std::size_t kRegionBytes = 64 * 1024;

BYTE* g_next = nullptr;
BYTE* g_end = nullptr;

}  // namespace

void* MakeGate(Hook* hook) {
    if (g_next == g_end) {
        g_next =
            static_cast<BYTE*>(VirtualAlloc(nullptr, kRegionBytes, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
        if (g_next == nullptr) {
            g_end = nullptr;
            return nullptr;
        }
        g_end = g_next + kRegionBytes;
    }
    // mov rax, hook; jmp [rip + 0]; the address behind the jump.
    constexpr BYTE kLoad[] = {0x48, 0xB8};
    constexpr BYTE kJump[] = {0xFF, 0x25, 0, 0, 0, 0};
    BYTE* const stub = g_next;
    BYTE* cursor = stub;
    const auto put = [&cursor](const void* bytes, std::size_t count) {
        std::memcpy(cursor, bytes, count);
        cursor += count;
    };
    void (*const gate)() = &RavloCallGate;
    put(kLoad, sizeof kLoad);
    put(&hook, sizeof hook);
    put(kJump, sizeof kJump);
    put(&gate, sizeof gate);
    g_next += kStubBytes;
    return stub;
}

}  // namespace ravlo::faults
