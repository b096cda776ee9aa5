#include "rvhost/preview_slot.h"

#include <utility>

namespace ravlo {

void PreviewSlot::Put(std::span<const std::uint8_t> nv12, const PreviewFacts& facts) {
    const std::scoped_lock lock(m_mutex);
    m_newest.nv12.assign(nv12.begin(), nv12.end());
    m_newest.facts = facts;
    m_isNew = true;
}

bool PreviewSlot::Take(PreviewPicture& picture) noexcept {
    const std::scoped_lock lock(m_mutex);
    if (!m_isNew) {
        return false;
    }
    std::swap(picture, m_newest);
    m_isNew = false;
    return true;
}

}  // namespace ravlo
