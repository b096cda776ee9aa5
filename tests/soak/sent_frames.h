// Which frames the producers of a long run have sent, kept as numbers: the pictures follow from them (frames.h).
#pragma once

#include "soak/lock.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace ravlo::test {

/// The signatures handed out so far, rising from 1, and since when each frame may be shown. For several threads.
class SentFrames {
public:
    /// The next `count` signatures; returns the first. None of them may come out of the camera yet.
    std::uint32_t Take(std::uint32_t count = 1) {
        const LockGuard lock(m_lock);
        const auto first = static_cast<std::uint32_t>(m_frames.size());
        m_frames.resize(m_frames.size() + count);
        return first;
    }
    /// The signature that Take returns next.
    std::uint32_t Next() const {
        const LockGuard lock(m_lock);
        return static_cast<std::uint32_t>(m_frames.size());
    }
    /// From now on the camera may show these frames: their last bytes were written at this moment (NowMs) or later.
    void MarkSent(std::uint32_t first, std::uint32_t count, double earliestMs) {
        const LockGuard lock(m_lock);
        for (std::uint32_t signature = first; signature < first + count; ++signature) {
            m_frames.at(signature).sentMs = earliestMs;
        }
    }
    /// The moment of MarkSent; nothing for a frame that never was sent, or not to its end.
    std::optional<double> SentAt(std::uint32_t signature) const {
        const LockGuard lock(m_lock);
        return signature < m_frames.size() ? m_frames[signature].sentMs : std::nullopt;
    }
    /// The camera has shown this frame.
    void MarkShown(std::uint32_t signature) {
        const LockGuard lock(m_lock);
        m_frames.at(signature).shown = true;
    }
    /// Frames from `first` to before `end` that the camera has shown.
    std::uint64_t CountShown(std::uint32_t first, std::uint32_t end) const {
        const LockGuard lock(m_lock);
        std::uint64_t count = 0;
        for (; first < end; ++first) {
            count += m_frames.at(first).shown ? 1 : 0;
        }
        return count;
    }

private:
    struct Frame {
        std::optional<double> sentMs;
        bool shown = false;
    };

    mutable Lock m_lock;
    std::vector<Frame> m_frames{Frame{}};
};

}  // namespace ravlo::test
