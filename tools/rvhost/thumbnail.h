#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "stream/geometry.h"

namespace ravlo {

/// A picture of 8-bit red, green, blue, rows top-down without padding.
struct RgbImage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> pixels;  ///< width x height x 3 bytes
};

struct Rgb {
    std::uint8_t red;
    std::uint8_t green;
    std::uint8_t blue;

    friend constexpr bool operator==(const Rgb&, const Rgb&) = default;
};

/// One limited-range BT.709 colour as RGB, rounded to the nearest step and held within 0..255.
Rgb ConvertBt709(double luma, double cb, double cr) noexcept;

/// One packed NV12 frame as an RGB picture `width` wide and as high as the frame's shape demands, but never larger than
/// the frame. Every pixel is the mean of the area that it covers.
RgbImage MakeThumbnail(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry, std::uint32_t width);

}  // namespace ravlo
