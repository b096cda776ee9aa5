#pragma once

#include <cstdint>

#include "common/clock.h"

namespace ravlo {

/// What became of the connections so far, and how soon the next may be tried. A camera that finds a picture too long
/// drops the connection before it reads any of it; a producer that does not know better would connect and be dropped
/// twenty times a second. Times are steady, in units of 100 ns.
class ConnectionHistory {
public:
    /// A missing or busy pipe is tried this often; both pass by themselves.
    static constexpr std::int64_t kRetry = 50 * kTicksPerMs;
    /// A camera that drops this producer again and again is not asked more often than this.
    static constexpr std::int64_t kRetryWhenUnwelcome = kTicksPerSecond;
    /// A connection that ends sooner than this was most likely refused for what was sent.
    static constexpr std::int64_t kQuickLoss = kTicksPerSecond;
    /// So many of them in a row are no accident.
    static constexpr unsigned kQuickLossesUntilHint = 3;

    void Connected(std::int64_t now) noexcept;
    void FrameTaken() noexcept { ++m_frames; }
    /// Nothing is being sent for lack of demand: when this connection ends, that is no answer to a picture.
    void Resting() noexcept { m_hasRested = true; }

    /// The connection ended. True when the user should now be told the likely reason: once in the life of this object.
    bool Lost(std::int64_t now) noexcept;

    bool IsUnwelcome() const noexcept { return m_quickLosses >= kQuickLossesUntilHint; }
    std::int64_t RetryInterval() const noexcept { return IsUnwelcome() ? kRetryWhenUnwelcome : kRetry; }
    std::uint64_t Connections() const noexcept { return m_connections; }

private:
    bool EndedQuickly(std::int64_t now) const noexcept;

    std::int64_t m_connectedAt = 0;
    std::uint64_t m_connections = 0;
    std::uint64_t m_frames = 0;  ///< taken over this connection
    unsigned m_quickLosses = 0;  ///< in a row
    bool m_hasRested = false;
    bool m_hasHinted = false;
};

}  // namespace ravlo
