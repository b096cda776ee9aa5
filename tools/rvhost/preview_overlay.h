#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "rvhost/preview_facts.h"
#include "stream/geometry.h"

namespace ravlo {

/// What the strip says after the word for the picture's kind, from left to right; an empty text is left out.
std::array<std::string, 4> PreviewTexts(const PreviewFacts& facts);

/// Draws a translucent strip along the lower edge of a picture of blue, green, red, x bytes (rows top-down): LIVE or
/// PATTERN on its colour, then frame rate, lateness, latency where it is known, and the number of samples. The text
/// grows with the picture; what does not fit into the width is left out, from the right. A picture too small for any
/// text stays as it is. Throws std::invalid_argument when `bgrx` has not the size of `geometry`.
void DrawPreviewOverlay(std::span<std::uint8_t> bgrx, const FrameGeometry& geometry, const PreviewFacts& facts);

}  // namespace ravlo
