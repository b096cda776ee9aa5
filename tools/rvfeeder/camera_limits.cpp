#include "rvfeeder/camera_limits.h"

#include <cstdint>

namespace ravlo {
namespace {

/// Beyond it the camera ignores a requested geometry.
constexpr std::uint64_t kMostFramesPerSecond = 1000;

std::string SizeText(const FrameGeometry& geometry) {
    return std::to_string(geometry.width) + "x" + std::to_string(geometry.height);
}

}  // namespace

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

}  // namespace ravlo
