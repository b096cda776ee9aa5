#pragma once

#include <iterator>
#include <string_view>

#include "stream/geometry.h"

namespace ravlo::bench {

/// A picture size that is measured, with the rate at which cameras of this size usually run.
struct FrameSize {
    const char* name;
    FrameGeometry geometry;
};

inline constexpr FrameSize kFrameSizes[] = {
    {"720p", {1280, 720, 60, 1}},
    {"1080p", {1920, 1080, 60, 1}},
    {"2160p", {3840, 2160, 30, 1}},
};

/// The size of that name; nullptr for any other name.
constexpr const FrameSize* FindFrameSize(std::string_view name) noexcept {
    for (const FrameSize& size : kFrameSizes) {
        if (name == size.name) {
            return &size;
        }
    }
    return nullptr;
}

}  // namespace ravlo::bench
