#pragma once

#include <cstddef>

#include "harness/stopwatch.h"

namespace ravlo::bench {

/// The two that are compared.
enum class Side { Floor, Product };

/// What floor and product took, one run each and one right after the other, in microseconds.
struct TimedPair {
    double floor;
    double product;
};

/// Times one pair of a kernel, a class with Prepare(Side), which is not timed, Floor() and Product(). Callers let the
/// two take turns at going first, so that whatever slows the machine down for a while slows both.
template <class Kernel>
TimedPair TimePair(Kernel& kernel, bool floorFirst) {
    TimedPair pair{};
    for (const bool isFloor : {floorFirst, !floorFirst}) {
        kernel.Prepare(isFloor ? Side::Floor : Side::Product);
        if (isFloor) {
            pair.floor = TimeOnce([&kernel] { kernel.Floor(); });
        } else {
            pair.product = TimeOnce([&kernel] { kernel.Product(); });
        }
    }
    return pair;
}

/// Whether the floor goes first in pair number `pair`. Every other two pairs: buffers change with each pair, and the
/// order must not go with them.
constexpr bool GoesFirst(std::size_t pair) noexcept {
    return pair / 2 % 2 == 0;
}

/// Tells the compiler that somebody reads the memory at `bytes`, and might change any memory: what was computed into it
/// is computed, then and there.
inline void UseMemory(const void* bytes) noexcept {
    asm volatile("" : : "r"(bytes) : "memory");
}

}  // namespace ravlo::bench
