#include "stream/test_pattern.h"

#include <cstddef>
#include <cstring>

namespace ravlo {
namespace {

constexpr std::uint32_t kBars = 8;
/// Limited-range luma from black (16) to white (235).
constexpr std::uint8_t kLevels[kBars] = {16, 47, 78, 109, 140, 171, 202, 235};
constexpr std::uint32_t kSamplesPerStep = 8;
constexpr std::uint8_t kNeutralChroma = 128;

void PaintLumaRow(std::uint8_t* row, std::uint32_t width, std::uint32_t shift) noexcept {
    const std::uint32_t barWidth = width / kBars;
    for (std::uint32_t bar = 0; bar < kBars; ++bar) {
        std::memset(row + std::size_t{bar} * barWidth, kLevels[(bar + shift) % kBars], barWidth);
    }
    const std::uint32_t painted = barWidth * kBars;
    std::memset(row + painted, kLevels[(shift + kBars - 1) % kBars], width - painted);
}

}  // namespace

PatternResult PaintTestPattern(std::uint32_t index, std::uint8_t* buffer, std::uint64_t length, std::int32_t stride,
                               const FrameGeometry& geometry) noexcept {
    if (buffer == nullptr) {
        return PatternResult::NullBuffer;
    }
    if (!IsValidGeometry(geometry) || stride < 0 || static_cast<std::uint32_t>(stride) < geometry.width ||
        geometry.width < kBars) {
        return PatternResult::BadArgument;
    }
    const auto rowStep = static_cast<std::uint64_t>(stride);
    if (length < rowStep * (std::uint64_t{geometry.height} + geometry.height / 2)) {
        return PatternResult::BadArgument;
    }
    const std::uint32_t shift = index / kSamplesPerStep % kBars;
    PaintLumaRow(buffer, geometry.width, shift);
    std::uint8_t* row = buffer + rowStep;
    for (std::uint32_t y = 1; y < geometry.height; ++y, row += rowStep) {
        std::memcpy(row, buffer, geometry.width);
    }
    for (std::uint32_t y = 0; y < geometry.height / 2; ++y, row += rowStep) {
        std::memset(row, kNeutralChroma, geometry.width);
    }
    return PatternResult::Painted;
}

}  // namespace ravlo
