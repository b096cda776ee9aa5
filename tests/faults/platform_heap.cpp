#include "faults/platform_heap.h"

#include "faults/ledger.h"
#include "support/import_hooks.h"

#include <windows.h>

#include <cstddef>

namespace ravlo::faults {
namespace {

void* PlatformMalloc(std::size_t bytes);
void* PlatformCalloc(std::size_t count, std::size_t size);
void* PlatformRealloc(void* block, std::size_t bytes);
void PlatformFree(void* block);
void* WINAPI PlatformHeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes);
void* WINAPI PlatformHeapReAlloc(HANDLE heap, DWORD flags, void* block, SIZE_T bytes);
BOOL WINAPI PlatformHeapFree(HANDLE heap, DWORD flags, void* block);

test::ImportSlot g_mallocSlot;
test::ImportSlot g_callocSlot;
test::ImportSlot g_reallocSlot;
test::ImportSlot g_freeSlot;
test::ImportSlot g_heapAllocSlot;
test::ImportSlot g_heapReAllocSlot;
test::ImportSlot g_heapFreeSlot;

template <class F>
F* Original(F*, const test::ImportSlot& slot) {
    return reinterpret_cast<F*>(slot.Original());
}
void* CountedForPlatform(void* block, std::size_t bytes, const void* caller) {
    if (block != nullptr) {
        g_platformHeap.Add(block, bytes, caller);
    }
    return block;
}
void* PlatformMalloc(std::size_t bytes) {
    return CountedForPlatform(Original(&PlatformMalloc, g_mallocSlot)(bytes), bytes, __builtin_return_address(0));
}
void* PlatformCalloc(std::size_t count, std::size_t size) {
    return CountedForPlatform(Original(&PlatformCalloc, g_callocSlot)(count, size), count * size,
                              __builtin_return_address(0));
}
void* PlatformRealloc(void* block, std::size_t bytes) {
    if (block != nullptr) {
        g_platformHeap.Remove(block);
    }
    return CountedForPlatform(Original(&PlatformRealloc, g_reallocSlot)(block, bytes), bytes,
                              __builtin_return_address(0));
}
void PlatformFree(void* block) {
    g_platformHeap.Remove(block);
    Original(&PlatformFree, g_freeSlot)(block);
}
void* WINAPI PlatformHeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
    return CountedForPlatform(Original(&PlatformHeapAlloc, g_heapAllocSlot)(heap, flags, bytes), bytes,
                              __builtin_return_address(0));
}
void* WINAPI PlatformHeapReAlloc(HANDLE heap, DWORD flags, void* block, SIZE_T bytes) {
    g_platformHeap.Remove(block);
    return CountedForPlatform(Original(&PlatformHeapReAlloc, g_heapReAllocSlot)(heap, flags, block, bytes), bytes,
                              __builtin_return_address(0));
}
BOOL WINAPI PlatformHeapFree(HANDLE heap, DWORD flags, void* block) {
    g_platformHeap.Remove(block);
    return Original(&PlatformHeapFree, g_heapFreeSlot)(heap, flags, block);
}

template <class F>
void* Address(F* function) {
    return reinterpret_cast<void*>(function);
}

}  // namespace

void WatchPlatformHeap() {
    const HMODULE library = LoadLibraryW(L"mfplat.dll");
    struct Watched {
        test::ImportSlot& slot;
        const char* name;
        void* function;
    };
    for (const Watched& watched : {Watched{g_mallocSlot, "malloc", Address(&PlatformMalloc)},
                                   Watched{g_callocSlot, "calloc", Address(&PlatformCalloc)},
                                   Watched{g_reallocSlot, "realloc", Address(&PlatformRealloc)},
                                   Watched{g_freeSlot, "free", Address(&PlatformFree)},
                                   Watched{g_heapAllocSlot, "HeapAlloc", Address(&PlatformHeapAlloc)},
                                   Watched{g_heapReAllocSlot, "HeapReAlloc", Address(&PlatformHeapReAlloc)},
                                   Watched{g_heapFreeSlot, "HeapFree", Address(&PlatformHeapFree)}}) {
        watched.slot.Install(library, watched.name, watched.function);
    }
}

}  // namespace ravlo::faults
