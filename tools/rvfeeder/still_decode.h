#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace ravlo {

/// A decoded picture, red green blue in 8 bits each, rows top-down without padding.
struct StillImage {
    std::uint32_t width;
    std::uint32_t height;
    bool isTurned;  ///< its file says that it is to be turned or mirrored before it is shown, which it is not yet
    std::vector<std::uint8_t> rgb;
};

/// Decodes a whole PNG or JPEG file. Transparent parts stand over black; 16 bits become 8. The size is judged before
/// anything of that size is allocated, and the decoder's memory is bounded whatever the file says. Throws InputError for
/// a file that is neither, that is damaged or cut short, and for a size that the camera does not take.
StillImage DecodeStill(std::span<const std::uint8_t> file);

}  // namespace ravlo
