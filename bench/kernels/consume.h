// Taking a frame out of the pool, as each sample does. Floor: one memcpy of the frame. Before each run its source is
// written afresh - the pool's by a publish, the floor's by a copy to one of two buffers in turns, all from the same
// frame - and after that the destination, which floor and product share: the source has just arrived, the destination
// is warm, and both are as near to the processor as a frame of that size can be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "harness/page_buffer.h"
#include "kernels/take_turns.h"
#include "stream/frame_copy.h"
#include "stream/frame_pool.h"
#include "stream/geometry.h"

namespace ravlo::bench {

class ConsumeKernel {
public:
    explicit ConsumeKernel(const FrameGeometry& geometry)
        : m_bytes(static_cast<std::size_t>(FrameBytes(geometry))),
          m_frame(m_bytes),
          m_destination(m_bytes),
          m_copy(DescribeCopy(geometry, m_destination.Data(), static_cast<std::uint32_t>(m_bytes),
                              static_cast<std::int32_t>(DefaultStride(geometry)))) {
        if (!m_pool.Allocate(kSlotBytes)) {
            throw std::runtime_error("no memory for the frame pool");
        }
        m_pool.TouchSlots(m_bytes);  // as a stream does
    }

    void Prepare(Side side) {
        if (side == Side::Floor) {
            m_turn = 1 - m_turn;
            CopyFrameBytes(m_sources[m_turn].Data(), m_frame.Data(), m_bytes);  // as a publish does
        } else if (!m_pool.Publish({m_frame.Data(), m_bytes}, ++m_stamp)) {
            throw std::runtime_error("the frame pool refused a frame");
        }
        std::memset(m_destination.Data(), 0, m_bytes);
        UseMemory(m_destination.Data());
    }

    void Floor() {
        std::memcpy(m_destination.Data(), m_sources[m_turn].Data(), m_bytes);
        UseMemory(m_destination.Data());
    }

    void Product() {
        if (!m_pool.Consume(m_stamp, kFreshness, m_stamp, m_bytes, m_copy)) {
            throw std::runtime_error("the frame pool gave no frame");
        }
        UseMemory(m_destination.Data());
    }

private:
    static constexpr std::size_t kSlotBytes = FrameBytes(kLargestGeometry);
    static constexpr std::uint64_t kFreshness = 1000;  // ms

    std::size_t m_bytes;
    PageBuffer m_frame;
    PageBuffer m_sources[2] = {PageBuffer(kSlotBytes), PageBuffer(kSlotBytes)};
    PageBuffer m_destination;
    CopyDescriptor m_copy;
    FramePool m_pool;
    std::size_t m_turn = 0;
    std::uint64_t m_stamp = 0;
};

}  // namespace ravlo::bench
