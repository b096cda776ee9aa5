#include "rvfeeder/camera_limits.h"

#include <algorithm>
#include <cstdint>

namespace ravlo {
namespace {

/// Beyond it the camera ignores a requested geometry.
constexpr std::uint64_t kMostFramesPerSecond = 1000;

/// The largest even number that is not above `edge`, within what a picture may have.
std::uint32_t NearestEdge(std::uint32_t edge) {
    return std::clamp(edge / 2 * 2, 2U, std::uint32_t{kMaxFrameDimension});
}

/// The size to scale a picture to that has an impossible one: the nearest, or half of it until a camera takes it.
FrameGeometry NearestSize(std::uint32_t width, std::uint32_t height) {
    FrameGeometry nearest{NearestEdge(width), NearestEdge(height), 1, 1};
    while (FrameBytes(nearest) > FrameBytes(kLargestGeometry)) {
        nearest.width = NearestEdge(nearest.width / 2);
        nearest.height = NearestEdge(nearest.height / 2);
    }
    return nearest;
}

}  // namespace

std::optional<std::string> WhyNoPictureSize(std::uint32_t width, std::uint32_t height) {
    if (IsValidGeometry({width, height, 1, 1})) {
        return std::nullopt;
    }
    const FrameGeometry nearest = NearestSize(width, height);
    const std::string edges = std::to_string(nearest.width) + ":" + std::to_string(nearest.height);
    return "the camera takes even sizes from 2x2 to 16384x16384, but this input is " + std::to_string(width) + "x" +
           std::to_string(height) + "; crop or scale it first, for example with ffmpeg -vf scale=" + edges;
}

std::optional<std::string> WhyBeyondCamera(const FrameGeometry& geometry) {
    if (FrameBytes(geometry) > FrameBytes(kLargestGeometry)) {
        return "the camera takes pictures of up to " + std::to_string(FrameBytes(kLargestGeometry)) + " bytes (" +
               SizeText(kLargestGeometry) + "), but this input is " + SizeText(geometry);
    }
    if (geometry.rateNumerator > kMostFramesPerSecond * geometry.rateDenominator) {
        return "the camera takes up to " + std::to_string(kMostFramesPerSecond) +
               " frames a second, but this input has " + std::to_string(geometry.rateNumerator) + "/" +
               std::to_string(geometry.rateDenominator);
    }
    return std::nullopt;
}

std::optional<std::string> WhyUnexpected(const FrameGeometry& geometry, const NumberPair& expected) {
    if (geometry.width == expected.first && geometry.height == expected.second) {
        return std::nullopt;
    }
    const std::string width = std::to_string(expected.first);
    const std::string height = std::to_string(expected.second);
    return "the input is " + SizeText(geometry) + ", but --expect says " + width + "x" + height +
           "; scale it first, for example with ffmpeg -vf scale=" + width + ":" + height;
}

}  // namespace ravlo
