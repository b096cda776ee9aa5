#include "common/clock.h"

#include <chrono>
#include <ratio>

namespace ravlo {

std::int64_t SteadyTicks() noexcept {
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, kTicksPerSecond>>;
    return std::chrono::duration_cast<Ticks>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace ravlo
