#include "rvfeeder/demand_news.h"

#include <utility>

namespace ravlo {

DemandNews::News DemandNews::Observe(std::int64_t now, bool connected, bool known, bool wanted) noexcept {
    if (!wanted) {
        return std::exchange(m_told, Told::Idle) == Told::Idle ? News::None : News::Idle;
    }
    if (known) {
        return std::exchange(m_told, Told::Wanted) == Told::Wanted ? News::None : News::WantedAgain;
    }
    if (m_told == Told::Wanted) {
        return News::None;
    }
    if (std::exchange(m_told, Told::Lapsed) == Told::Idle || !connected) {
        m_connectedSince.reset();
    }
    if (!connected) {
        return News::None;
    }
    m_connectedSince = m_connectedSince.value_or(now);
    if (now - *m_connectedSince < kPatience) {
        return News::None;
    }
    m_told = Told::Wanted;
    return News::Unknown;
}

}  // namespace ravlo
