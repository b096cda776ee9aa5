#pragma once

#include <array>
#include <cstdint>

#include "stream/frame_pool.h"

namespace ravlo::bench {

/// Where the two slots of a pool keep their bytes. They are the pool's own affair, which has no method that tells;
/// whoever wants to time a copy out of cold memory has to know. Naming a private member as the argument of an explicit
/// instantiation is the one way that the language offers.
std::array<const std::uint8_t*, 2> SlotBytes(const FramePool& pool);

template <auto Slots>
struct SlotAccess {
    friend std::array<const std::uint8_t*, 2> SlotBytes(const FramePool& pool) {
        return {(pool.*Slots)[0].storage.get(), (pool.*Slots)[1].storage.get()};
    }
};
template struct SlotAccess<&FramePool::m_slots>;

}  // namespace ravlo::bench
