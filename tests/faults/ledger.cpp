#include "faults/ledger.h"

namespace ravlo::faults {

Ledger g_moduleHeap;
Ledger g_platformHeap;

namespace {

struct Guard {
    explicit Guard(SRWLOCK& lock) : m_lock(lock) { AcquireSRWLockExclusive(&m_lock); }
    ~Guard() { ReleaseSRWLockExclusive(&m_lock); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    SRWLOCK& m_lock;
};

std::size_t Home(const void* address, std::size_t capacity) {
    return static_cast<std::size_t>((reinterpret_cast<std::uint64_t>(address) >> 4) * 0x9E3779B97F4A7C15ULL >> 40) %
           capacity;
}

}  // namespace

/// Where the address is, or the free slot at which a search for it ends.
std::size_t Ledger::SlotOf(const void* address) const {
    std::size_t slot = Home(address, kCapacity);
    while (m_blocks[slot].address != nullptr && m_blocks[slot].address != address) {
        slot = (slot + 1) % kCapacity;
    }
    return slot;
}

void Ledger::Add(void* address, std::size_t bytes, const void* origin) {
    const Guard guard(m_lock);
    if (m_count >= kCapacity / 2) {
        m_overflown = true;
        return;
    }
    Block& block = m_blocks[SlotOf(address)];
    m_count += block.address == nullptr ? 1 : 0;
    block = {address, bytes, origin};
}

bool Ledger::Remove(void* address) {
    const Guard guard(m_lock);
    std::size_t hole = SlotOf(address);
    if (m_blocks[hole].address == nullptr) {
        return false;
    }
    --m_count;
    m_blocks[hole] = {};
    // Close the gap: whatever lies behind it must stay reachable from its home.
    for (std::size_t next = (hole + 1) % kCapacity; m_blocks[next].address != nullptr; next = (next + 1) % kCapacity) {
        const std::size_t home = Home(m_blocks[next].address, kCapacity);
        const bool reachable = hole <= next ? hole < home && home <= next : hole < home || home <= next;
        if (!reachable) {
            m_blocks[hole] = m_blocks[next];
            m_blocks[next] = {};
            hole = next;
        }
    }
    return true;
}

bool Ledger::HasOverflown() const {
    const Guard guard(m_lock);
    return m_overflown;
}

std::size_t Ledger::Count() const {
    const Guard guard(m_lock);
    return m_count;
}

std::vector<Block> Ledger::Blocks() const {
    std::vector<Block> blocks;
    blocks.reserve(kCapacity / 2);  // before the lock: this may be the heap that is watched
    const Guard guard(m_lock);
    for (const Block& block : m_blocks) {
        if (block.address != nullptr) {
            blocks.push_back(block);
        }
    }
    return blocks;
}

void Ledger::Clear() {
    const Guard guard(m_lock);
    for (Block& block : m_blocks) {
        block = {};
    }
    m_count = 0;
    m_overflown = false;
}

}  // namespace ravlo::faults
