#include "stream/test_pattern.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "stream/string_move.h"

namespace ravlo {
namespace {

constexpr std::uint32_t kBars = 8;
/// Limited-range luma from black (16) to white (235).
constexpr std::uint8_t kLevels[kBars] = {16, 47, 78, 109, 140, 171, 202, 235};
constexpr std::uint32_t kSamplesPerStep = 8;
constexpr std::uint8_t kNeutralChroma = 128;
/// Rows without padding are copied about this much at a time: few copies, from a block that stays near the processor.
constexpr std::size_t kBlockBytes = 32768;
static_assert(kBlockBytes >= kMaxFrameDimension, "a block holds a row at least");

void PaintLumaRow(std::uint8_t* row, std::uint32_t width, std::uint32_t shift) noexcept {
    const std::uint32_t barWidth = width / kBars;
    for (std::uint32_t bar = 0; bar < kBars; ++bar) {
        std::memset(row + std::size_t{bar} * barWidth, kLevels[(bar + shift) % kBars], barWidth);
    }
    const std::uint32_t painted = barWidth * kBars;
    std::memset(row + painted, kLevels[(shift + kBars - 1) % kBars], width - painted);
}

/// Paints rows that follow each other without padding. The painted rows double until they are a block, and whole blocks
/// follow.
void PaintPacked(std::uint8_t* buffer, std::uint32_t shift, const FrameGeometry& geometry) noexcept {
    PaintLumaRow(buffer, geometry.width, shift);
    const auto lumaBytes = static_cast<std::size_t>(LumaBytes(geometry));
    const std::size_t block = std::min(kBlockBytes / geometry.width * geometry.width, lumaBytes);
    std::size_t painted = geometry.width;
    while (painted < block) {
        const std::size_t count = std::min(painted, block - painted);
        std::memcpy(buffer + painted, buffer, count);
        painted += count;
    }
    while (painted < lumaBytes) {
        const std::size_t count = std::min(block, lumaBytes - painted);
        StringMove(buffer + painted, buffer, count);
        painted += count;
    }
    std::memset(buffer + lumaBytes, kNeutralChroma, static_cast<std::size_t>(ChromaBytes(geometry)));
}

/// Paints rows that are `rowStep` bytes apart.
void PaintRows(std::uint8_t* buffer, std::uint64_t rowStep, std::uint32_t shift,
               const FrameGeometry& geometry) noexcept {
    PaintLumaRow(buffer, geometry.width, shift);
    std::uint8_t* row = buffer + rowStep;
    for (std::uint32_t y = 1; y < geometry.height; ++y, row += rowStep) {
        std::memcpy(row, buffer, geometry.width);
    }
    for (std::uint32_t y = 0; y < geometry.height / 2; ++y, row += rowStep) {
        std::memset(row, kNeutralChroma, geometry.width);
    }
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
    if (rowStep == geometry.width) {
        PaintPacked(buffer, shift, geometry);
    } else {
        PaintRows(buffer, rowStep, shift, geometry);
    }
    return PatternResult::Painted;
}

}  // namespace ravlo
