#pragma once

#include <algorithm>
#include <cstdint>

#include "common/clock.h"

namespace ravlo {

/// How long a camera with this frame duration may deliver nothing before it counts as failed: it shows at least its
/// test pattern at its own pace, of which a few periods are allowed for. All in units of 100 ns.
constexpr std::int64_t LongestSilenceAt(std::int64_t period) noexcept {
    return std::max(10 * kTicksPerSecond, 3 * period);
}

}  // namespace ravlo
