#pragma once

#include <cstdint>

#include "stream/geometry.h"

namespace ravlo {

/// How a painting ended; nothing is painted unless it says so.
enum class PatternResult { Painted, NullBuffer, BadArgument };

/// Paints the picture that stands in for a missing frame: a grey ramp of eight vertical bars that steps one bar to the
/// left every 8 samples. `index` is the number of the sample; `buffer` holds `length` bytes, rows are `stride` bytes
/// apart in both planes, chroma behind `height` rows of luma. Row padding is left alone. A null buffer is NullBuffer;
/// an invalid geometry, one narrower than 8 pixels, a stride below the width or a short buffer is BadArgument.
PatternResult PaintTestPattern(std::uint32_t index, std::uint8_t* buffer, std::uint64_t length, std::int32_t stride,
                               const FrameGeometry& geometry) noexcept;

}  // namespace ravlo
