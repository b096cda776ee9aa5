#include "support/heap_faults.h"

#include "support/import_hooks.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#include <malloc.h>

namespace ravlo::test {
namespace {

std::atomic<long> g_untilFailure{0};
std::atomic<std::size_t> g_failFromSize{SIZE_MAX};
std::atomic<bool> g_hit{false};
std::atomic<long> g_live{0};
std::atomic<long> g_allocations{0};
std::atomic<bool> g_inUse{false};

bool MustFail(std::size_t bytes) {
    ++g_allocations;
    const bool counted = g_untilFailure.load() > 0 && --g_untilFailure == 0;
    if (!counted && bytes < g_failFromSize.load()) {
        return false;
    }
    g_hit = true;
    return true;
}

void* Counted(void* block) {
    if (block) {
        ++g_live;
    }
    return block;
}

void* HookedMalloc(std::size_t bytes) {
    return MustFail(bytes) ? nullptr : Counted(std::malloc(bytes));
}
void* HookedCalloc(std::size_t count, std::size_t size) {
    return MustFail(count * size) ? nullptr : Counted(std::calloc(count, size));
}
void* HookedRealloc(void* block, std::size_t bytes) {
    if (MustFail(bytes)) {
        return nullptr;
    }
    void* const moved = std::realloc(block, bytes);
    if (!block) {
        return Counted(moved);
    }
    if (bytes == 0) {
        --g_live;
    }
    return moved;
}
void HookedFree(void* block) {
    if (block) {
        --g_live;
    }
    std::free(block);
}
void* HookedAlignedMalloc(std::size_t bytes, std::size_t alignment) {
    return MustFail(bytes) ? nullptr : Counted(_aligned_malloc(bytes, alignment));
}
void HookedAlignedFree(void* block) {
    if (block) {
        --g_live;
    }
    _aligned_free(block);
}

struct HeapImport {
    const char* function;
    void* hook;
    ImportSlot slot;
};
HeapImport g_imports[] = {
    {"malloc", reinterpret_cast<void*>(&HookedMalloc), {}},
    {"calloc", reinterpret_cast<void*>(&HookedCalloc), {}},
    {"realloc", reinterpret_cast<void*>(&HookedRealloc), {}},
    {"free", reinterpret_cast<void*>(&HookedFree), {}},
    {"_aligned_malloc", reinterpret_cast<void*>(&HookedAlignedMalloc), {}},
    {"_aligned_free", reinterpret_cast<void*>(&HookedAlignedFree), {}},
};

}  // namespace

HeapFaults::HeapFaults(HMODULE module) {
    if (g_inUse.exchange(true)) {
        throw std::runtime_error("the heap is watched already");
    }
    PassOn();
    g_live = 0;
    g_allocations = 0;
    for (HeapImport& import : g_imports) {
        import.slot.Install(module, import.function, import.hook);
    }
    if (!g_imports[0].slot.IsInstalled()) {
        g_inUse = false;
        throw std::runtime_error("the module does not import malloc");
    }
}

HeapFaults::~HeapFaults() {
    for (HeapImport& import : g_imports) {
        import.slot.Restore();
    }
    g_inUse = false;
}

void HeapFaults::FailNth(long n) {
    g_hit = false;
    g_untilFailure = n;
}

void HeapFaults::FailFromSize(std::size_t bytes) {
    g_hit = false;
    g_failFromSize = bytes;
}

void HeapFaults::PassOn() {
    g_untilFailure = 0;
    g_failFromSize = SIZE_MAX;
}

bool HeapFaults::Hit() const {
    return g_hit.load();
}

long HeapFaults::LiveBlocks() const {
    return g_live.load();
}

long HeapFaults::Allocations() const {
    return g_allocations.load();
}

}  // namespace ravlo::test
