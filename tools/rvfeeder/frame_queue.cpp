#include "rvfeeder/frame_queue.h"

#include <utility>

namespace ravlo {

FrameQueue::FrameQueue(std::size_t capacity, std::size_t frameBytes) {
    for (std::size_t i = 0; i < capacity; ++i) {
        m_emptyFrames.push_back({std::vector<std::uint8_t>(frameBytes)});
    }
}

bool FrameQueue::TakeEmpty(QueuedFrame& frame) {
    std::unique_lock lock(m_mutex);
    m_emptied.wait(lock, [this] { return m_closed || !m_emptyFrames.empty(); });
    if (m_closed) {
        return false;
    }
    frame = std::move(m_emptyFrames.front());
    frame.skipped = m_skipping;
    m_emptyFrames.pop_front();
    return true;
}

void FrameQueue::PutFilled(QueuedFrame frame) {
    const std::lock_guard lock(m_mutex);
    m_filledFrames.push_back(std::move(frame));
    m_filled.notify_one();
}

void FrameQueue::Finish(std::string error) {
    const std::lock_guard lock(m_mutex);
    m_error = std::move(error);
    m_finished = true;
    m_filled.notify_one();
}

FrameQueue::Take FrameQueue::TakeFilled(QueuedFrame& frame, std::chrono::milliseconds patience) {
    std::unique_lock lock(m_mutex);
    m_filled.wait_for(lock, patience, [this] { return m_finished || !m_filledFrames.empty(); });
    if (!m_filledFrames.empty()) {
        frame = std::move(m_filledFrames.front());
        m_filledFrames.pop_front();
        return Take::Frame;
    }
    return m_finished ? Take::End : Take::Nothing;
}

void FrameQueue::PutEmpty(QueuedFrame frame) {
    const std::lock_guard lock(m_mutex);
    m_emptyFrames.push_back(std::move(frame));
    m_emptied.notify_one();
}

void FrameQueue::SetSkipping(bool skipping) {
    const std::lock_guard lock(m_mutex);
    m_skipping = skipping;
}

void FrameQueue::Close() {
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    m_emptied.notify_one();
}

std::string FrameQueue::Error() const {
    const std::lock_guard lock(m_mutex);
    return m_error;
}

}  // namespace ravlo
