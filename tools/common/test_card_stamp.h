#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "stream/geometry.h"

namespace ravlo {

/// What rvfeeder's test card carries in its picture for rvhost to read: black and white cells in the upper left corner.
struct TestCardStamp {
    std::uint32_t frame;  ///< counts from 1
    std::int64_t time;    ///< SteadyTicks() of the machine when the frame was sent, in units of 100 ns

    friend constexpr bool operator==(const TestCardStamp&, const TestCardStamp&) = default;
};

/// Draws the stamp over one packed NV12 frame. False, and nothing drawn, when the picture is too small for it.
bool DrawTestCardStamp(std::span<std::uint8_t> nv12, const FrameGeometry& geometry,
                       const TestCardStamp& stamp) noexcept;

/// Reads the stamp of one packed NV12 frame; nothing when there is none or its check sum is wrong.
std::optional<TestCardStamp> ReadTestCardStamp(std::span<const std::uint8_t> nv12,
                                               const FrameGeometry& geometry) noexcept;

}  // namespace ravlo
