#pragma once

#include <cstdint>
#include <optional>

#include "common/clock.h"

namespace ravlo {

/// Picks what the user should be told about the demand out of what is known from moment to moment. A camera that goes
/// away or is started anew takes its records with it, which is no news about the demand: it is waited for first. Times
/// are steady, in units of 100 ns.
class DemandNews {
public:
    /// A camera that tells its demand does so within this time of a connection.
    static constexpr std::int64_t kPatience = 15 * kTicksPerSecond / 10;

    enum class News : std::uint8_t {
        None,
        Idle,         ///< nobody watches any more
        WantedAgain,  ///< somebody watches after a rest
        Unknown,      ///< the camera is connected, but no longer tells its demand: the rest is over for that reason
    };

    /// `connected` is about the frame pipe, `known` tells whether the camera's demand is known, and `wanted` is the
    /// policy's verdict. Each piece of news comes once.
    News Observe(std::int64_t now, bool connected, bool known, bool wanted) noexcept;

private:
    enum class Told : std::uint8_t {
        Wanted,  ///< that pictures are sent, or nothing yet
        Idle,
        Lapsed,  ///< that nobody watches, which is no longer known
    };

    Told m_told = Told::Wanted;
    std::optional<std::int64_t> m_connectedSince;  ///< while the news has lapsed
};

}  // namespace ravlo
