#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

#include "rvhost/preview_facts.h"

namespace ravlo {

/// One packed NV12 frame and what is said about it.
struct PreviewPicture {
    std::vector<std::uint8_t> nv12;
    PreviewFacts facts;
};

/// Where the thread that pulls samples leaves its newest picture for the thread that draws. Neither ever waits for more
/// than a copy of one frame.
class PreviewSlot {
public:
    /// `frameBytes` is the size of the frames that will come, so that no later call needs memory for them.
    explicit PreviewSlot(std::size_t frameBytes) { m_newest.nv12.resize(frameBytes); }

    /// Replaces what was there. Throws std::bad_alloc when a larger frame than announced finds no memory.
    void Put(std::span<const std::uint8_t> nv12, const PreviewFacts& facts);

    /// Exchanges `picture`, whose memory serves for a later one, for the newest. False, and nothing is changed, when
    /// none came since the last time.
    bool Take(PreviewPicture& picture) noexcept;

private:
    std::mutex m_mutex;
    PreviewPicture m_newest;
    bool m_isNew = false;
};

}  // namespace ravlo
