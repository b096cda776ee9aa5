// What a process holds, counted exactly, to see that work which is over has left nothing behind.
#pragma once

#include "support/committed_memory.h"
#include "support/handles.h"
#include "support/import_hooks.h"

#include <windows.h>

#include <tlhelp32.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ravlo::test {

/// A thread without the C++ runtime's own: the locks of that one open a handle for good when they are first contended,
/// which nobody who counts handles can tell from a leak.
class PlainThread {
public:
    explicit PlainThread(std::function<void()> work) : m_work(std::move(work)) {
        m_thread = CreateThread(nullptr, 0, &Run, this, 0, nullptr);
        if (!m_thread) {
            throw std::runtime_error("a thread cannot be started");
        }
    }
    ~PlainThread() { Join(); }
    PlainThread(const PlainThread&) = delete;
    PlainThread& operator=(const PlainThread&) = delete;

    /// Waits until the work is done; the test's watchdog bounds it.
    void Join() {
        if (m_thread) {
            WaitForSingleObject(m_thread, INFINITE);
            CloseHandle(std::exchange(m_thread, nullptr));
        }
    }

private:
    static DWORD WINAPI Run(void* self) {
        static_cast<PlainThread*>(self)->m_work();
        return 0;
    }

    std::function<void()> m_work;
    HANDLE m_thread = nullptr;
};

/// The addresses that a loaded module takes up.
struct ModuleRange {
    explicit ModuleRange(HMODULE module) : begin(reinterpret_cast<std::uintptr_t>(module)) {
        const auto* const image = reinterpret_cast<const BYTE*>(module);
        const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
        end = begin + reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew)->OptionalHeader.SizeOfImage;
    }
    bool Contains(std::uintptr_t address) const { return address >= begin && address < end; }

    std::uintptr_t begin;
    std::uintptr_t end = 0;
};

/// Where each thread of this process began. The workers of the system's thread pool, which begin in ntdll, are left
/// out: they come when there is work and go on a clock of their own.
inline std::vector<std::uintptr_t> ThreadStarts() {
    using Query = LONG(NTAPI*)(HANDLE, int, void*, ULONG, ULONG*);
    constexpr int kStartAddress = 9;
    static const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationThread")));
    static const ModuleRange pool(GetModuleHandleW(L"ntdll.dll"));
    std::vector<std::uintptr_t> starts;
    const HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (list == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("the threads cannot be listed");
    }
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(list, &entry); more; more = Thread32Next(list, &entry)) {
        if (entry.th32OwnerProcessID != GetCurrentProcessId()) {
            continue;
        }
        std::uintptr_t start = 0;
        if (const HANDLE thread = OpenThread(THREAD_QUERY_INFORMATION | SYNCHRONIZE, FALSE, entry.th32ThreadID)) {
            query(thread, kStartAddress, &start, sizeof start, nullptr);
            const bool ended = WaitForSingleObject(thread, 0) == WAIT_OBJECT_0;
            CloseHandle(thread);
            if (!ended && !pool.Contains(start)) {
                starts.push_back(start);
            }
        }
    }
    CloseHandle(list);
    return starts;
}

/// Threads that began in these addresses and still run.
inline std::size_t ThreadsOf(const ModuleRange& module) {
    std::size_t count = 0;
    for (const std::uintptr_t start : ThreadStarts()) {
        count += module.Contains(start) ? 1 : 0;
    }
    return count;
}

/// Blocks of the C heap that some modules of the platform hold, by their own imports. One at a time.
class PlatformBlocks {
public:
    /// Counts from now on. Throws when a module is not loaded or has no heap calls to count.
    explicit PlatformBlocks(std::initializer_list<const wchar_t*> modules) {
        s_live = 0;
        std::size_t slot = 0;
        for (const wchar_t* const name : modules) {
            const HMODULE module = GetModuleHandleW(name);
            const std::size_t first = slot;
            for (const Import& import : kImports) {
                if (module && m_slots.at(slot).Install(module, import.function, import.hook)) {
                    *import.original = m_slots.at(slot++).Original();
                }
            }
            if (slot == first) {
                throw std::runtime_error("a module of the platform offers nothing to count");
            }
        }
    }
    ~PlatformBlocks() {
        for (ImportSlot& slot : m_slots) {
            slot.Restore();
        }
    }
    PlatformBlocks(const PlatformBlocks&) = delete;
    PlatformBlocks& operator=(const PlatformBlocks&) = delete;

    /// Blocks taken less blocks given back since construction.
    long Live() const { return s_live.load(); }

private:
    struct Import {
        const char* function;
        void* hook;
        void** original;
    };
    static void* Counted(void* block) {
        s_live += block ? 1 : 0;
        return block;
    }
    static void* Malloc(std::size_t bytes) {
        return Counted(reinterpret_cast<void* (*)(std::size_t)>(s_malloc)(bytes));
    }
    static void* Calloc(std::size_t count, std::size_t bytes) {
        return Counted(reinterpret_cast<void* (*)(std::size_t, std::size_t)>(s_calloc)(count, bytes));
    }
    static void* Realloc(void* block, std::size_t bytes) {
        void* const moved = reinterpret_cast<void* (*)(void*, std::size_t)>(s_realloc)(block, bytes);
        return block ? moved : Counted(moved);
    }
    static void Free(void* block) {
        s_live -= block ? 1 : 0;
        reinterpret_cast<void (*)(void*)>(s_free)(block);
    }
    static void* AlignedMalloc(std::size_t bytes, std::size_t alignment) {
        return Counted(reinterpret_cast<void* (*)(std::size_t, std::size_t)>(s_alignedMalloc)(bytes, alignment));
    }
    static void AlignedFree(void* block) {
        s_live -= block ? 1 : 0;
        reinterpret_cast<void (*)(void*)>(s_alignedFree)(block);
    }

    static inline std::atomic<long> s_live{0};
    static inline void* s_malloc = nullptr;
    static inline void* s_calloc = nullptr;
    static inline void* s_realloc = nullptr;
    static inline void* s_free = nullptr;
    static inline void* s_alignedMalloc = nullptr;
    static inline void* s_alignedFree = nullptr;
    static inline const Import kImports[] = {
        {"malloc", reinterpret_cast<void*>(&Malloc), &s_malloc},
        {"calloc", reinterpret_cast<void*>(&Calloc), &s_calloc},
        {"realloc", reinterpret_cast<void*>(&Realloc), &s_realloc},
        {"free", reinterpret_cast<void*>(&Free), &s_free},
        {"_aligned_malloc", reinterpret_cast<void*>(&AlignedMalloc), &s_alignedMalloc},
        {"_aligned_free", reinterpret_cast<void*>(&AlignedFree), &s_alignedFree},
    };

    std::array<ImportSlot, 24> m_slots;
};

/// Blocks and bytes that are taken from heaps.
struct HeapUse {
    std::size_t blocks = 0;
    std::size_t bytes = 0;
};

/// Everything that is taken in all heaps of the process, whoever took it.
inline HeapUse TakenFromHeaps() {
    HeapUse use;
    HANDLE heaps[64];
    const DWORD count = GetProcessHeaps(64, heaps);
    for (DWORD i = 0; i < count; ++i) {
        HeapLock(heaps[i]);
        for (PROCESS_HEAP_ENTRY entry{}; HeapWalk(heaps[i], &entry);) {
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) {
                ++use.blocks;
                use.bytes += entry.cbData;
            }
        }
        HeapUnlock(heaps[i]);
    }
    return use;
}

}  // namespace ravlo::test
