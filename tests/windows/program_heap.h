// Allocation failures inside the test program itself, for the objects that are linked into it. A hook in a module's own
// import table must not allocate through that table, so the heap's functions are taken from the runtime library
// directly.
#pragma once

#include "support/import_hooks.h"

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace ravlo::test {

/// Watches every `operator new` and `delete` of the calling thread for the life of the object. One at a time.
class ProgramHeap {
public:
    ProgramHeap()
        : m_malloc(GetModuleHandleW(nullptr), "malloc", &Malloc), m_free(GetModuleHandleW(nullptr), "free", &Free) {
        s_thread = GetCurrentThreadId();
        s_untilFailure = 0;
        s_failFromSize = SIZE_MAX;
        s_live = 0;
        s_allocations = 0;
        s_hit = false;
    }
    ~ProgramHeap() { s_thread = 0; }
    ProgramHeap(const ProgramHeap&) = delete;
    ProgramHeap& operator=(const ProgramHeap&) = delete;

    /// The n-th allocation from now fails, once.
    void FailNth(long n) {
        s_hit = false;
        s_untilFailure = n;
    }
    /// Every allocation of at least `bytes` fails until PassOn.
    void FailFromSize(std::size_t bytes) {
        s_hit = false;
        s_failFromSize = bytes;
    }
    void PassOn() {
        s_untilFailure = 0;
        s_failFromSize = SIZE_MAX;
    }
    bool Hit() const { return s_hit; }
    long LiveBlocks() const { return s_live; }
    long Allocations() const { return s_allocations; }

private:
    template <class F>
    static F FromRuntime(const char* name) {
        return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"msvcrt.dll"), name)));
    }
    static void* Malloc(std::size_t bytes) {
        static const auto original = FromRuntime<void* (*)(std::size_t)>("malloc");
        if (GetCurrentThreadId() != s_thread) {
            return original(bytes);
        }
        ++s_allocations;
        if ((s_untilFailure > 0 && --s_untilFailure == 0) || bytes >= s_failFromSize) {
            s_hit = true;
            return nullptr;
        }
        ++s_live;
        return original(bytes);
    }
    static void Free(void* block) {
        static const auto original = FromRuntime<void (*)(void*)>("free");
        if (block != nullptr && GetCurrentThreadId() == s_thread) {
            --s_live;
        }
        original(block);
    }

    static inline std::atomic<DWORD> s_thread{0};
    static inline std::atomic<long> s_untilFailure{0};
    static inline std::atomic<std::size_t> s_failFromSize{SIZE_MAX};
    static inline std::atomic<long> s_live{0};
    static inline std::atomic<long> s_allocations{0};
    static inline std::atomic<bool> s_hit{false};

    ScopedHook<void*(std::size_t)> m_malloc;
    ScopedHook<void(void*)> m_free;
};

}  // namespace ravlo::test
