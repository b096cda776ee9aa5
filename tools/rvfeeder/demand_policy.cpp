#include "rvfeeder/demand_policy.h"

namespace ravlo {

DemandPolicy::Verdict DemandPolicy::Judge(const std::optional<CameraDemand>& record) noexcept {
    if (m_always) {
        return Verdict::Wanted;
    }
    if (!record) {
        m_verdict = Verdict::Wanted;
    } else if (record != m_last) {
        m_verdict = JudgeNew(*record);
    }
    m_last = record;
    return m_verdict;
}

DemandPolicy::Verdict DemandPolicy::JudgeNew(const CameraDemand& record) const noexcept {
    // Samples asked for since the record before this one are demand, even if the idle time is counted from a moment
    // that lies further back than the user's limit. A counter that fell belongs to a camera that was started anew.
    const bool isRequested = m_last && record.requests != m_last->requests && record.requests != 0;
    return isRequested || record.idleMs <= m_idleAfterMs ? Verdict::Wanted : Verdict::Idle;
}

}  // namespace ravlo
