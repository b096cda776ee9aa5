// Random runs that can be repeated: their seed, their length, their choices.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

namespace ravlo::test {

/// A number from the environment; `otherwise` when it is not set or is no number.
template <class Number>
Number NumberFromEnvironment(const char* name, Number otherwise) {
    const char* const text = std::getenv(name);
    char* end = nullptr;
    const unsigned long long number = text ? std::strtoull(text, &end, 10) : 0;
    return text && end != text && *end == '\0' ? static_cast<Number>(number) : otherwise;
}

/// Choices that a seed repeats. The distributions of the standard library differ between libraries; this does not.
class Choices {
public:
    explicit Choices(unsigned long seed) : m_engine(static_cast<std::uint32_t>(seed)) {}
    /// 0 .. count-1.
    unsigned Below(unsigned count) { return static_cast<unsigned>(m_engine() % count); }
    /// True once in `outOf` times.
    bool Once(unsigned outOf) { return Below(outOf) == 0; }
    /// A random order of these.
    template <class T>
    void Shuffle(std::vector<T>& items) {
        for (std::size_t i = items.size(); i > 1; --i) {
            std::swap(items[i - 1], items[Below(static_cast<unsigned>(i))]);
        }
    }

private:
    std::mt19937 m_engine;
};

/// The seed of this run: RAVLO_SEED, or a fresh one.
inline unsigned long SeedOfThisRun() {
    LARGE_INTEGER ticks{};
    QueryPerformanceCounter(&ticks);
    return NumberFromEnvironment("RAVLO_SEED", (ticks.LowPart ^ GetCurrentProcessId() * 2654435761U) & 0x7FFFFFFF);
}

}  // namespace ravlo::test
