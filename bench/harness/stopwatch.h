#pragma once

#include <chrono>

namespace ravlo::bench {

/// Microseconds since its construction, on the steady clock (steps of 100 ns under Windows).
class Stopwatch {
public:
    double Microseconds() const noexcept {
        return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - m_begin).count();
    }

private:
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

/// Times `work` once, in microseconds.
template <class Work>
double TimeOnce(Work&& work) {
    const Stopwatch watch;
    work();
    return watch.Microseconds();
}

}  // namespace ravlo::bench
