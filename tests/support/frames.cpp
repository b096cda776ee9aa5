#include "support/frames.h"

#include <algorithm>

namespace ravlo::test {

std::size_t Nv12Size(std::uint32_t width, std::uint32_t height) {
    return std::size_t{width} * height * 3 / 2;
}

std::vector<std::uint8_t> MakeFrame(std::uint32_t width, std::uint32_t height, std::uint32_t signature) {
    std::vector<std::uint8_t> frame(Nv12Size(width, height));
    std::uint32_t state = signature * 2654435761U + 12345U;
    for (std::uint8_t& byte : frame) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    // The signature stands in plain in the first luma bytes, low byte first.
    for (unsigned i = 0; i < 4; ++i) {
        frame.at(i) = static_cast<std::uint8_t>(signature >> (8 * i));
    }
    return frame;
}

std::optional<std::uint32_t> SignatureOf(std::span<const std::uint8_t> bytes, std::uint32_t width,
                                         std::uint32_t height) {
    if (bytes.size() != Nv12Size(width, height) || bytes.size() < 4) {
        return std::nullopt;
    }
    const std::uint32_t signature =
        bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 | std::uint32_t{bytes[3]} << 24;
    const std::vector<std::uint8_t> frame = MakeFrame(width, height, signature);
    if (!std::equal(bytes.begin(), bytes.end(), frame.begin())) {
        return std::nullopt;
    }
    return signature;
}

}  // namespace ravlo::test
