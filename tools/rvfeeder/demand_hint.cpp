#include "rvfeeder/demand_hint.h"

namespace ravlo {

bool DemandHint::Observe(std::int64_t now, bool connected, const std::optional<CameraDemand>& record) noexcept {
    if (m_isSettled) {
        return false;
    }
    if (!connected || !record) {
        m_since.reset();
        return false;
    }
    if (!m_since) {
        m_since = now;
        m_requests = record->requests;
    }
    if (record->requests != m_requests && record->requests != 0) {
        m_isSettled = true;
        return false;
    }
    m_requests = record->requests;  // a camera that is started anew counts from 0
    const bool isIdle = record->idleMs >= kPatience / kTicksPerMs;
    m_isSettled = isIdle && now - *m_since >= kPatience;
    return m_isSettled;
}

}  // namespace ravlo
