// Publishing a frame. Floor: one memcpy of the frame. The pool writes its two slots in turns, so the floor writes two
// buffers of a slot's size in turns. Both read the same source, and both sources and destinations are taken out of the
// caches before each run: a frame of a camera has long left them when the next one comes to the same slot, and a copy
// that finds its destination in a cache would measure the cache.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "harness/cold_cache.h"
#include "harness/page_buffer.h"
#include "kernels/pool_slots.h"
#include "kernels/take_turns.h"
#include "stream/frame_pool.h"
#include "stream/geometry.h"

namespace ravlo::bench {

class PublishKernel {
public:
    explicit PublishKernel(const FrameGeometry& geometry)
        : m_bytes(static_cast<std::size_t>(FrameBytes(geometry))), m_source(m_bytes) {
        if (!m_pool.Allocate(kSlotBytes)) {
            throw std::runtime_error("no memory for the frame pool");
        }
        m_pool.TouchSlots(m_bytes);  // as a stream does
    }

    void Prepare(Side side) {
        const auto slots = SlotBytes(m_pool);
        MakeCold(m_source.Data(), m_bytes);
        for (std::size_t i = 0; i < 2; ++i) {
            MakeCold(side == Side::Floor ? m_destinations[i].Data() : slots[i], m_bytes);
        }
    }

    void Floor() {
        m_turn = 1 - m_turn;
        std::memcpy(m_destinations[m_turn].Data(), m_source.Data(), m_bytes);
        UseMemory(m_destinations[m_turn].Data());
    }

    void Product() {
        if (!m_pool.Publish({m_source.Data(), m_bytes}, ++m_stamp)) {
            throw std::runtime_error("the frame pool refused a frame");
        }
        UseMemory(&m_pool);
    }

private:
    static constexpr std::size_t kSlotBytes = FrameBytes(kLargestGeometry);

    std::size_t m_bytes;
    PageBuffer m_source;
    PageBuffer m_destinations[2] = {PageBuffer(kSlotBytes), PageBuffer(kSlotBytes)};
    FramePool m_pool;
    std::size_t m_turn = 0;
    std::uint64_t m_stamp = 0;
};

}  // namespace ravlo::bench
