// Painting the test pattern. Floor: one memset of as many bytes. Both fill the same buffer, and before each run all of
// it was written: it is as warm for one as for the other. Rows lie without padding, as in the samples of a camera.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "harness/page_buffer.h"
#include "kernels/take_turns.h"
#include "stream/geometry.h"
#include "stream/test_pattern.h"

namespace ravlo::bench {

class PatternKernel {
public:
    explicit PatternKernel(const FrameGeometry& geometry)
        : m_geometry(geometry), m_buffer(static_cast<std::size_t>(FrameBytes(geometry))) {}

    void Prepare(Side) {
        std::memset(m_buffer.Data(), 0, m_buffer.Size());
        UseMemory(m_buffer.Data());
    }

    void Floor() {
        std::memset(m_buffer.Data(), kGrey, m_buffer.Size());
        UseMemory(m_buffer.Data());
    }

    void Product() {
        if (PaintTestPattern(m_index++, m_buffer.Data(), m_buffer.Size(),
                             static_cast<std::int32_t>(DefaultStride(m_geometry)),
                             m_geometry) != PatternResult::Painted) {
            throw std::runtime_error("the test pattern was not painted");
        }
        UseMemory(m_buffer.Data());
    }

private:
    static constexpr int kGrey = 128;

    FrameGeometry m_geometry;
    PageBuffer m_buffer;
    std::uint32_t m_index = 0;
};

}  // namespace ravlo::bench
