#pragma once

#include <cstddef>

#include "platform/wide_char.h"
#include "stream/geometry.h"

namespace ravlo {

/// Characters of a geometry request with its terminator; nothing longer can be well-formed.
inline constexpr std::size_t kGeometryRequestCapacity = 32;

/// Parses a request such as 1280x720@30/1: width "x" height "@" numerator "/" denominator and nothing else. Each number
/// has 1 to 6 digits without a leading zero. False, and `geometry` left alone, unless the sizes are even and within
/// 1..16384 and the rate is above 0 and at most 1000 frames a second.
bool ParseGeometryRequest(const WideChar* text, FrameGeometry& geometry) noexcept;

/// True when a camera may be built for this geometry: valid, and a frame of at most as many bytes as the largest
/// geometry's.
bool IsAcceptableGeometry(const FrameGeometry& geometry) noexcept;

}  // namespace ravlo
