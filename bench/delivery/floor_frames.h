#pragma once

#include <windows.h>

#include <atomic>
#include <string>
#include <thread>

#include "harness/page_buffer.h"
#include "platform/unique_handle.h"
#include "stream/geometry.h"

namespace ravlo::bench {

/// The bare half of a camera that takes frames in: one thread that reads header and payload, in blocking reads and
/// without judging them, copies the payload once and says where it is. It ends when the producer goes.
class FloorFrames {
public:
    FloorFrames(const std::wstring& pipeName, const FrameGeometry& geometry);
    ~FloorFrames();

    /// Waits for the first frame. Throws when none comes.
    void AwaitFirst();

    /// The newest frame. Overwritten while the frame after the next is taken in.
    const std::uint8_t* Newest() const noexcept { return m_slots[m_newest.load(std::memory_order_acquire)].Data(); }

private:
    void Run() noexcept;
    bool Read(void* bytes, DWORD size) noexcept;

    UniqueFile m_pipe;
    UniqueObject m_first;
    UniqueObject m_ended;
    PageBuffer m_received;
    PageBuffer m_slots[2];
    std::atomic<unsigned> m_newest{0};
    std::thread m_thread;
};

}  // namespace ravlo::bench
