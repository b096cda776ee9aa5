#pragma once

#include <cstdint>

namespace ravlo {

/// Time is counted in units of 100 ns throughout, as Media Foundation counts it.
inline constexpr std::int64_t kTicksPerSecond = 10'000'000;
inline constexpr std::int64_t kTicksPerMs = 10'000;

/// Steady time of this machine in units of 100 ns; only differences mean anything.
std::int64_t SteadyTicks() noexcept;

}  // namespace ravlo
