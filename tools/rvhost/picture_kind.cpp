#include "rvhost/picture_kind.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace ravlo {
namespace {

/// Written out here instead of taken from the painter: the host is the second opinion on what the camera shows.
constexpr std::array<std::uint8_t, 8> kGreyRamp{16, 47, 78, 109, 140, 171, 202, 235};
constexpr std::uint8_t kNoColour = 128;

std::vector<std::uint8_t> PatternRow(std::uint32_t width, std::size_t shift) {
    std::vector<std::uint8_t> row(width, kGreyRamp[(shift + 7) % 8]);
    const std::size_t barWidth = width / 8;
    for (std::size_t bar = 0; bar < 8; ++bar) {
        const auto begin = row.begin() + static_cast<std::ptrdiff_t>(bar * barWidth);
        std::fill(begin, begin + static_cast<std::ptrdiff_t>(barWidth), kGreyRamp[(bar + shift) % 8]);
    }
    return row;
}

}  // namespace

const char* PictureKindWord(PictureKind kind) noexcept {
    return kind == PictureKind::Live ? "live" : "pattern";
}

std::optional<unsigned> FindPatternShift(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry) {
    if (geometry.width < 8 || nv12.size() != FrameBytes(geometry)) {
        return std::nullopt;
    }
    const auto* const level = std::find(kGreyRamp.begin(), kGreyRamp.end(), nv12.front());
    if (level == kGreyRamp.end()) {
        return std::nullopt;
    }
    const auto shift = static_cast<std::size_t>(level - kGreyRamp.begin());
    const std::vector<std::uint8_t> expected = PatternRow(geometry.width, shift);
    for (std::size_t y = 0; y < geometry.height; ++y) {
        const auto row = nv12.subspan(y * geometry.width, geometry.width);
        if (!std::equal(row.begin(), row.end(), expected.begin())) {
            return std::nullopt;
        }
    }
    const auto chroma = nv12.subspan(LumaBytes(geometry));
    if (!std::all_of(chroma.begin(), chroma.end(), [](std::uint8_t value) { return value == kNoColour; })) {
        return std::nullopt;
    }
    return static_cast<unsigned>(shift);
}

PictureKind JudgePicture(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry) {
    return FindPatternShift(nv12, geometry) ? PictureKind::Pattern : PictureKind::Live;
}

}  // namespace ravlo
