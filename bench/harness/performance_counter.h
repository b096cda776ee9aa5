#pragma once

#include <windows.h>

#include <cstdint>

namespace ravlo::bench {

/// The performance counter now. It runs alike in all processes, so a time of one can be held against another's.
inline std::int64_t CounterNow() noexcept {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return now.QuadPart;
}

/// Its steps in a second.
inline std::int64_t CounterFrequency() noexcept {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

/// What so many of its steps are, in microseconds.
inline double CounterMicroseconds(std::int64_t steps) noexcept {
    return static_cast<double>(steps) * 1e6 / static_cast<double>(CounterFrequency());
}

}  // namespace ravlo::bench
