#include "rvfeeder/connection_history.h"

#include <utility>

namespace ravlo {

void ConnectionHistory::Connected(std::int64_t now) noexcept {
    ++m_connections;
    m_connectedAt = now;
    m_frames = 0;
    m_hasRested = false;
}

bool ConnectionHistory::Lost(std::int64_t now) noexcept {
    m_quickLosses = EndedQuickly(now) ? m_quickLosses + 1 : 0;
    return IsUnwelcome() && !std::exchange(m_hasHinted, true);
}

bool ConnectionHistory::EndedQuickly(std::int64_t now) const noexcept {
    if (m_hasRested) {
        return false;
    }
    // At a low rate the second picture, which finds the connection gone, comes later than a second after the first.
    return now - m_connectedAt <= kQuickLoss || m_frames == 1;
}

}  // namespace ravlo
