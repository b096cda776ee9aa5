#pragma once

#include <cstdint>
#include <span>

#include "stream/geometry.h"

namespace ravlo {

/// Interleaves two chroma planes into the one that NV12 has: Cb Cr Cb Cr. Both planes have the same length and
/// `nv12Chroma` twice that. The spans do not overlap.
void InterleaveChroma(std::span<const std::uint8_t> cb, std::span<const std::uint8_t> cr,
                      std::span<std::uint8_t> nv12Chroma) noexcept;

/// Brings one packed NV12 frame from full range (0..255) to limited range (luma 16..235, chroma 16..240), in place.
void LimitRange(std::span<std::uint8_t> nv12, const FrameGeometry& geometry) noexcept;

/// Converts full-range RGB, three bytes a pixel and rows top-down without padding, to one packed limited-range BT.709
/// NV12 frame. A chroma sample is that of the mean colour of its four pixels. Each sample is within one step of the
/// exact value.
void RgbToNv12(std::span<const std::uint8_t> rgb, const FrameGeometry& geometry, std::span<std::uint8_t> nv12) noexcept;

}  // namespace ravlo
