// The blocks that are allocated and not yet freed, with the place that allocated them. One ledger keeps the module's
// own heap calls, one those of the Media Foundation library, where the platform's objects live.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ravlo::faults {

struct Block {
    void* address = nullptr;
    std::size_t bytes = 0;
    const void* origin = nullptr;  ///< who allocated it, as the caller of Add names it
};

/// Thread-safe, allocation-free while blocks come and go. Holds up to 16384 blocks.
class Ledger {
public:
    void Add(void* address, std::size_t bytes, const void* origin);
    /// True when a block came for which there was no room: the ledger no longer tells what is allocated.
    bool HasOverflown() const;
    /// False when the block is not in the ledger: it was allocated before, or by somebody else.
    bool Remove(void* address);
    std::size_t Count() const;
    /// A copy of the blocks that are in the ledger now.
    std::vector<Block> Blocks() const;
    /// Forgets everything, an overflow included; for blocks that are known to stay.
    void Clear();

private:
    static constexpr std::size_t kCapacity = 32768;
    std::size_t SlotOf(const void* address) const;

    mutable SRWLOCK m_lock = SRWLOCK_INIT;
    Block m_blocks[kCapacity];
    std::size_t m_count = 0;
    bool m_overflown = false;
};

extern Ledger g_moduleHeap;
extern Ledger g_platformHeap;

}  // namespace ravlo::faults
