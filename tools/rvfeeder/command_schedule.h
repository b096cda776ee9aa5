#pragma once

#include <cstdint>
#include <optional>

#include "common/clock.h"

namespace ravlo {

/// When the command of --on-demand is to be started and ended. Times are steady, in units of 100 ns.
class CommandSchedule {
public:
    /// Between the end of a command that ended by itself and its next start.
    static constexpr std::int64_t kFirstPause = kTicksPerSecond;
    /// A command that never brings a picture is started less and less often, down to this.
    static constexpr std::int64_t kLongestPause = 8 * kTicksPerSecond;
    /// A camera that tells its demand does so within this time of every connection, and a gap between its records is
    /// shorter; until then nobody is taken to watch.
    static constexpr std::int64_t kGrace = 12 * kTicksPerSecond / 10;

    enum class Action : std::uint8_t { None, Start, End };

    /// Once a round. `connected` is about the frame pipe, `leased` tells whether the camera's demand is known, and
    /// `wanted` is the policy's verdict.
    Action Next(std::int64_t now, bool connected, bool leased, bool wanted) noexcept;

    void Started() noexcept;
    /// The command ended although somebody watches, or could not be started. Returns the pause until the next start.
    std::int64_t EndedByItself(std::int64_t now, bool broughtPictures) noexcept;

    bool IsRunning() const noexcept { return m_running; }

private:
    bool IsWatched(std::int64_t now, bool leased, bool wanted) const noexcept;

    std::optional<std::int64_t> m_connectedSince;  ///< of the connection that is there or was a moment ago
    std::int64_t m_lastConnected = 0;
    bool m_wasConnected = false;
    std::int64_t m_lastLeased = 0;
    std::int64_t m_notBefore = 0;
    std::int64_t m_pause = kFirstPause;
    bool m_running = false;
};

}  // namespace ravlo
