#include "support/pattern.h"

#include <algorithm>

namespace ravlo::test {
namespace {

constexpr std::uint8_t kGrey[8] = {16, 47, 78, 109, 140, 171, 202, 235};
constexpr std::uint32_t kSamplesPerStep = 8;

}  // namespace

std::vector<std::uint8_t> TestPattern(std::uint32_t index, std::uint32_t width, std::uint32_t height) {
    const unsigned step = index / kSamplesPerStep % 8;
    const std::uint32_t barWidth = width / 8;
    std::vector<std::uint8_t> row;
    for (std::uint32_t x = 0; x < width; ++x) {
        // Columns left over on the right belong to the last bar.
        const std::uint32_t bar = std::min(x / barWidth, std::uint32_t{7});
        row.push_back(kGrey[(bar + step) % 8]);
    }
    std::vector<std::uint8_t> picture;
    picture.reserve(std::size_t{width} * height * 3 / 2);
    for (std::uint32_t y = 0; y < height; ++y) {
        picture.insert(picture.end(), row.begin(), row.end());
    }
    picture.insert(picture.end(), std::size_t{width} * (height / 2), 128);
    return picture;
}

bool IsTestPattern(std::span<const std::uint8_t> bytes, std::uint32_t index, std::uint32_t width,
                   std::uint32_t height) {
    const std::vector<std::uint8_t> expected = TestPattern(index, width, height);
    return std::equal(bytes.begin(), bytes.end(), expected.begin(), expected.end());
}

std::optional<unsigned> TestPatternShift(std::span<const std::uint8_t> bytes, std::uint32_t width,
                                         std::uint32_t height) {
    for (unsigned shift = 0; shift < 8; ++shift) {
        if (IsTestPattern(bytes, shift * kSamplesPerStep, width, height)) {
            return shift;
        }
    }
    return std::nullopt;
}

}  // namespace ravlo::test
