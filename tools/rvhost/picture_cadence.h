#pragma once

#include <cstdint>
#include <optional>

namespace ravlo {

/// Which samples become pictures: every Nth one, or the first one of every so many milliseconds. One thread uses it.
class PictureCadence {
public:
    /// Both at least 1; `everySamples` wins when it is there.
    PictureCadence(std::optional<std::uint64_t> everySamples, std::int64_t everyMs) noexcept
        : m_everySamples(everySamples), m_everyMs(everyMs) {}

    /// Whether the sample is due that comes `elapsedMs` after the start, after `before` other samples. Call it once a
    /// sample.
    bool IsDue(std::uint64_t before, std::int64_t elapsedMs) noexcept {
        if (m_everySamples) {
            return before % *m_everySamples == 0;
        }
        if (elapsedMs < m_nextMs) {
            return false;
        }
        // Late pictures are left out and not made up for.
        m_nextMs = (elapsedMs / m_everyMs + 1) * m_everyMs;
        return true;
    }

private:
    std::optional<std::uint64_t> m_everySamples;
    std::int64_t m_everyMs;
    std::int64_t m_nextMs = 0;
};

}  // namespace ravlo
