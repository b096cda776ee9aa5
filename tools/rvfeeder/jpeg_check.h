#pragma once

#include <cstdint>
#include <span>

namespace ravlo {

enum class JpegState : std::uint8_t {
    Whole,     ///< may be given to the decoder
    CutShort,  ///< the marker that ends the picture is missing
    Damaged,   ///< its segments make no sense
};

/// Looks over the segments of a JPEG file for what the decoder does not notice: that it ends early, for which it shows
/// grey and reports success, and Huffman tables with more symbols than there are bytes, which it writes past its end.
JpegState CheckJpeg(std::span<const std::uint8_t> file) noexcept;

/// How the picture of a JPEG file is to be turned before it is shown, as cameras note it: 1 for not at all, up to 8. 1 also
/// when the file says nothing about it that can be understood.
unsigned JpegOrientation(std::span<const std::uint8_t> file) noexcept;

}  // namespace ravlo
