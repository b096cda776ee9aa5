#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "stream/geometry.h"

namespace ravlo {

/// What rvfeeder's test card carries in its picture for rvhost to read: black and white cells in the upper left corner.
///
/// The cells are square and lie in 4 rows of 32, the first in the corner of the picture. A white cell (luma 235) is a
/// one, a black one (luma 16) a zero, both without colour (chroma 128). Read row by row, and each number from its
/// highest bit on, they hold
///
///     16 bits   0x5256, by which the stamp is recognised
///     32 bits   frame
///     64 bits   time, as two's complement
///     16 bits   CRC-16 (polynomial 0x1021, begins with 0xFFFF) of the 14 bytes before, highest byte first
///
/// A cell is TestCardStampCell pixels wide and high: an even number, so that its chroma is its own, and as large as a
/// stamp within a quarter of the picture's width and half of its height allows, but at least 2.
struct TestCardStamp {
    std::uint32_t frame;  ///< counts from 1
    std::int64_t time;    ///< SteadyTicks() of the machine when the frame was sent, in units of 100 ns

    friend constexpr bool operator==(const TestCardStamp&, const TestCardStamp&) = default;
};

inline constexpr std::uint32_t kStampColumns = 32;
inline constexpr std::uint32_t kStampRows = 4;

/// Pixels along the edge of one cell in pictures of this size; 0 when they are too small for a stamp.
std::uint32_t TestCardStampCell(const FrameGeometry& geometry) noexcept;

/// Draws the stamp over one packed NV12 frame. False, and nothing drawn, when the picture is too small for it.
bool DrawTestCardStamp(std::span<std::uint8_t> nv12, const FrameGeometry& geometry,
                       const TestCardStamp& stamp) noexcept;

/// Reads the stamp of one packed NV12 frame; nothing when there is none or its check sum is wrong. The luma of a cell
/// may be off by up to 100 steps.
std::optional<TestCardStamp> ReadTestCardStamp(std::span<const std::uint8_t> nv12,
                                               const FrameGeometry& geometry) noexcept;

}  // namespace ravlo
