#include "rvfeeder/command_schedule.h"

#include <algorithm>

namespace ravlo {
namespace {

/// A camera that goes and comes back at once shall find the command still running.
constexpr std::int64_t kReconnectTime = 2 * kTicksPerSecond;

}  // namespace

CommandSchedule::Action CommandSchedule::Next(std::int64_t now, bool connected, bool leased, bool wanted) noexcept {
    if (connected) {
        m_lastConnected = now;
        m_connectedSince = m_wasConnected ? m_connectedSince : now;
    } else if (m_connectedSince && now - m_lastConnected > kReconnectTime) {
        m_connectedSince.reset();
    }
    m_wasConnected = connected;
    m_lastLeased = leased ? now : m_lastLeased;
    const bool watched = IsWatched(now, leased, wanted);
    if (m_running && !watched) {
        m_running = false;
        m_notBefore = now;
        m_pause = kFirstPause;
        return Action::End;
    }
    return !m_running && watched && connected && now >= m_notBefore ? Action::Start : Action::None;
}

void CommandSchedule::Started() noexcept {
    m_running = true;
}

std::int64_t CommandSchedule::EndedByItself(std::int64_t now, bool broughtPictures) noexcept {
    m_running = false;
    const std::int64_t pause = broughtPictures ? kFirstPause : m_pause;
    m_pause = broughtPictures ? kFirstPause : std::min(2 * m_pause, kLongestPause);
    m_notBefore = now + pause;
    return pause;
}

bool CommandSchedule::IsWatched(std::int64_t now, bool leased, bool wanted) const noexcept {
    if (!m_connectedSince || !wanted) {
        return false;
    }
    return leased || m_running || now - std::max(*m_connectedSince, m_lastLeased) >= kGrace;
}

}  // namespace ravlo
