#pragma once

#include <cstdint>
#include <span>

#include "rvhost/thumbnail.h"
#include "stream/geometry.h"

namespace ravlo {

/// One packed NV12 frame in limited-range BT.709 as packed RGB24, rows top-down: width x height x 3 bytes. Every
/// component is within one step of the exact conversion, whatever the input; values outside 0..255 are held at the
/// ends. The four pixels that share a chroma sample take it unchanged: chroma is replicated, not interpolated.
/// Throws std::invalid_argument when either buffer has not exactly the size that `geometry` demands.
void ConvertNv12ToRgb(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry, std::span<std::uint8_t> rgb);

RgbImage ConvertNv12ToRgb(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry);

/// The same as blue, green, red and a zero byte a pixel, as a 32-bit device independent bitmap has them: width x height
/// x 4 bytes, rows top-down.
void ConvertNv12ToBgrx(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry, std::span<std::uint8_t> bgrx);

}  // namespace ravlo
