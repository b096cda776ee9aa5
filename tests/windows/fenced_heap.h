// A heap that makes every touch of a freed block a crash, for a module from its load on.
#pragma once

#include "support/import_hooks.h"

#include <windows.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <vector>

namespace ravlo::test {

/// Gives every block that a module takes pages of its own, ending where the block ends, and takes these pages away when
/// it is freed; their addresses are never used again. Remembers who freed what. Its hooks go with the import table, so
/// Watch comes before the module is loaded. One a process, never destroyed: blocks outlive any scope.
class FencedHeap {
public:
    struct Block {
        std::uintptr_t address = 0;
        std::size_t bytes = 0;
        DWORD takenBy = 0;  ///< thread id
        DWORD freedBy = 0;  ///< thread id; 0 while the block is taken
    };

    static void Watch(LoadHooks& loading) {
        static std::array<ImportSlot, 4>& slots = *new std::array<ImportSlot, 4>;
        loading.Add(&slots[0], "malloc", reinterpret_cast<void*>(&Malloc));
        loading.Add(&slots[1], "calloc", reinterpret_cast<void*>(&Calloc));
        loading.Add(&slots[2], "realloc", reinterpret_cast<void*>(&Realloc));
        loading.Add(&slots[3], "free", reinterpret_cast<void*>(&Free));
    }

    /// All blocks that are taken now.
    static std::vector<Block> Taken() {
        const detail::SrwGuard guard(Lock());
        std::vector<Block> taken;
        for (const auto& [end, block] : Blocks()) {
            if (block.freedBy == 0) {
                taken.push_back(block);
            }
        }
        return taken;
    }

    /// The block in which this address lies, freed or not; nothing when the module took no such block.
    static std::optional<Block> BlockOf(const void* address) {
        const auto wanted = reinterpret_cast<std::uintptr_t>(address);
        const detail::SrwGuard guard(Lock());
        const auto found = Blocks().upper_bound(wanted);
        if (found == Blocks().end() || wanted < found->second.address) {
            return std::nullopt;
        }
        return found->second;
    }

private:
    static constexpr std::size_t kPage = 4096;
    static constexpr std::size_t kAlignment = 16;

    static SRWLOCK& Lock() {
        static SRWLOCK lock = SRWLOCK_INIT;
        return lock;
    }
    /// By the address behind the block's last byte.
    static std::map<std::uintptr_t, Block>& Blocks() {
        static auto& blocks = *new std::map<std::uintptr_t, Block>;
        return blocks;
    }

    static void* Malloc(std::size_t bytes) {
        const std::size_t whole = (bytes + kPage) / kPage * kPage;  // at least one byte more than asked for
        auto* const pages = static_cast<BYTE*>(VirtualAlloc(nullptr, whole, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        if (!pages) {
            return nullptr;
        }
        const std::uintptr_t last = reinterpret_cast<std::uintptr_t>(pages) + whole - bytes;
        const Block block{last / kAlignment * kAlignment, bytes, GetCurrentThreadId(), 0};
        const detail::SrwGuard guard(Lock());
        Blocks()[block.address + (bytes == 0 ? 1 : bytes)] = block;
        return reinterpret_cast<void*>(block.address);
    }
    static void* Calloc(std::size_t count, std::size_t bytes) { return Malloc(count * bytes); }  // fresh pages are zero
    static void* Realloc(void* block, std::size_t bytes) {
        if (!block) {
            return Malloc(bytes);
        }
        const std::optional<Block> old = BlockOf(block);
        if (!old) {
            return std::realloc(block, bytes);
        }
        void* const moved = Malloc(bytes);
        if (moved) {
            std::memcpy(moved, block, old->bytes < bytes ? old->bytes : bytes);
            Free(block);
        }
        return moved;
    }
    static void Free(void* block) {
        const auto address = reinterpret_cast<std::uintptr_t>(block);
        {
            const detail::SrwGuard guard(Lock());
            const auto found = Blocks().upper_bound(address);
            if (found != Blocks().end() && found->second.address == address) {
                // A block that is freed twice has no pages any more, and this touch shows it.
                *static_cast<volatile BYTE*>(block) = 0;
                found->second.freedBy = GetCurrentThreadId();
                VirtualFree(block, found->second.bytes == 0 ? 1 : found->second.bytes, MEM_DECOMMIT);
                return;
            }
        }
        std::free(block);
    }
};

}  // namespace ravlo::test
