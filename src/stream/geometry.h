#pragma once

#include <cstdint>

#include "ravlo/wire.h"

namespace ravlo {

/// The one picture format of a stream: NV12, progressive, at this size and rate.
struct FrameGeometry {
    std::uint32_t width;          ///< pixels
    std::uint32_t height;         ///< pixels
    std::uint32_t rateNumerator;  ///< frames per rateDenominator seconds
    std::uint32_t rateDenominator;

    friend constexpr bool operator==(const FrameGeometry&, const FrameGeometry&) = default;
};

/// Used whenever no acceptable geometry is requested at activation.
inline constexpr FrameGeometry kDefaultGeometry{1920, 1080, 60, 1};
/// Sizes the frame pool; a requested geometry may not need more bytes a frame than this one.
inline constexpr FrameGeometry kLargestGeometry{3840, 2160, 60, 1};

/// True when the picture can exist as NV12 (chroma is subsampled by two both ways, hence even) and the rate is a rate.
constexpr bool IsValidGeometry(const FrameGeometry& geometry) noexcept {
    return geometry.width != 0 && geometry.height != 0 && geometry.width % 2 == 0 && geometry.height % 2 == 0 &&
           geometry.width <= kMaxFrameDimension && geometry.height <= kMaxFrameDimension &&
           geometry.rateNumerator != 0 && geometry.rateDenominator != 0;
}

/// Bytes of the luma plane, which starts at offset 0.
constexpr std::uint64_t LumaBytes(const FrameGeometry& geometry) noexcept {
    return std::uint64_t{geometry.width} * geometry.height;
}

/// Bytes of the interleaved chroma plane, which follows the luma plane directly.
constexpr std::uint64_t ChromaBytes(const FrameGeometry& geometry) noexcept {
    return std::uint64_t{geometry.height / 2} * geometry.width;
}

/// Bytes of one packed NV12 frame.
constexpr std::uint64_t FrameBytes(const FrameGeometry& geometry) noexcept {
    return LumaBytes(geometry) + ChromaBytes(geometry);
}

/// Bytes from one row to the next, in both planes: rows run top-down without padding.
constexpr std::uint32_t DefaultStride(const FrameGeometry& geometry) noexcept {
    return geometry.width;
}

/// Duration of one sample in 100 ns units, truncated. A rate of zero, which no valid geometry has, counts as 30 Hz.
constexpr std::int64_t SampleDuration(const FrameGeometry& geometry) noexcept {
    constexpr std::int64_t kUnitsPerSecond = 10'000'000;
    constexpr std::int64_t kThirtyHertz = 333'333;
    if (geometry.rateNumerator == 0) {
        return kThirtyHertz;
    }
    return std::int64_t{geometry.rateDenominator} * kUnitsPerSecond / std::int64_t{geometry.rateNumerator};
}

}  // namespace ravlo
