#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "stream/geometry.h"

namespace ravlo {

/// What a sample shows.
enum class PictureKind : std::uint8_t {
    Live,     ///< anything that is not the test pattern to the last byte
    Pattern,  ///< the camera's moving test pattern
};

/// "live" or "pattern".
const char* PictureKindWord(PictureKind kind) noexcept;

/// How many bars to the left the grey ramp of the test pattern stands, 0..7; nothing when even one byte differs from
/// the pattern. `nv12` is one packed frame of `geometry`, which must be at least 8 wide.
std::optional<unsigned> FindPatternShift(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry);

/// Judges one packed NV12 frame.
PictureKind JudgePicture(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry);

}  // namespace ravlo
