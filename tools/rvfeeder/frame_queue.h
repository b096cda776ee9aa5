#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace ravlo {

/// A picture between the thread that reads and the thread that sends.
struct QueuedFrame {
    std::vector<std::uint8_t> nv12;
    std::int64_t asked = 0;    ///< when the reading side was free for it; steady time in units of 100 ns
    std::int64_t arrived = 0;  ///< when it had been read
    bool skipped = false;      ///< stands for a picture that was read past: `nv12` holds anything
};

/// A short queue of pictures whose buffers are made once and go round. One thread fills it, one thread empties it.
class FrameQueue {
public:
    FrameQueue(std::size_t capacity, std::size_t frameBytes);

    /// Filling side: waits for an empty buffer. False when the queue was closed. A buffer marked as skipped asks for no
    /// picture: the next one of the input need only be read past.
    bool TakeEmpty(QueuedFrame& frame);

    /// Filling side: the buffer now holds the next picture.
    void PutFilled(QueuedFrame frame);

    /// Filling side: no picture follows. `error` is empty after a proper end, else a sentence for the user.
    void Finish(std::string error);

    enum class Take : std::uint8_t { Frame, Nothing, End };

    /// Emptying side: waits up to `patience` for the next picture. End only after the last one was taken.
    Take TakeFilled(QueuedFrame& frame, std::chrono::milliseconds patience);

    /// Emptying side: gives a buffer back.
    void PutEmpty(QueuedFrame frame);

    /// Emptying side: whether buffers that are filled from now on ask for pictures, or only for them to be read past.
    void SetSkipping(bool skipping);

    /// Emptying side: wants no more. The filling side learns of it at its next call.
    void Close();

    /// Why the input ended early; empty unless it did. Complete once TakeFilled has said End.
    std::string Error() const;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_emptied;
    std::condition_variable m_filled;
    std::deque<QueuedFrame> m_emptyFrames;
    std::deque<QueuedFrame> m_filledFrames;
    std::string m_error;
    bool m_skipping = false;
    bool m_finished = false;
    bool m_closed = false;
};

}  // namespace ravlo
