#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/parse_text.h"
#include "stream/geometry.h"

namespace ravlo {

/// Why NV12 pictures of this size cannot exist, and one that a camera takes instead, as a sentence; nothing when they can.
std::optional<std::string> WhyNoPictureSize(std::uint32_t width, std::uint32_t height);

/// Why no camera takes pictures of this size at this rate, as a sentence for the user; nothing when one may. `geometry`
/// must be valid.
std::optional<std::string> WhyBeyondCamera(const FrameGeometry& geometry);

/// Why pictures of this size are not those of the width and height that the user expects, and what makes them so, as a
/// sentence; nothing when they are.
std::optional<std::string> WhyUnexpected(const FrameGeometry& geometry, const NumberPair& expected);

}  // namespace ravlo
