#include "delivery/floor_frames.h"

#include <cstring>
#include <stdexcept>

#include "support/pipe_client.h"

namespace ravlo::bench {
namespace {

constexpr DWORD kPipeBufferBytes = 1'048'576;
constexpr DWORD kFirstFramePatienceMs = 60000;

}  // namespace

FloorFrames::FloorFrames(const std::wstring& pipeName, const FrameGeometry& geometry)
    : m_pipe(CreateNamedPipeW(pipeName.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1,
                              kPipeBufferBytes, kPipeBufferBytes, 0, nullptr)),
      m_first(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_ended(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_received(FrameBytes(geometry)),
      m_slots{PageBuffer(FrameBytes(geometry)), PageBuffer(FrameBytes(geometry))} {
    if (!m_pipe || !m_first || !m_ended) {
        throw std::runtime_error("the floor's pipe cannot be made");
    }
    m_thread = std::thread([this] {
        Run();
        SetEvent(m_ended.Get());
    });
}

FloorFrames::~FloorFrames() {
    // A read or listen may begin just behind its cancelling, hence once more until the thread has ended.
    while (WaitForSingleObject(m_ended.Get(), 10) == WAIT_TIMEOUT) {
        CancelIoEx(m_pipe.Get(), nullptr);
    }
    m_thread.join();
}

void FloorFrames::AwaitFirst() {
    if (WaitForSingleObject(m_first.Get(), kFirstFramePatienceMs) != WAIT_OBJECT_0) {
        throw std::runtime_error("no frame came to the floor's pipe");
    }
}

bool FloorFrames::Read(void* bytes, DWORD size) noexcept {
    for (DWORD done = 0; done < size;) {
        DWORD transferred = 0;
        if (!ReadFile(m_pipe.Get(), static_cast<BYTE*>(bytes) + done, size - done, &transferred, nullptr)) {
            return false;
        }
        done += transferred;
    }
    return true;
}

void FloorFrames::Run() noexcept {
    if (!ConnectNamedPipe(m_pipe.Get(), nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) {
        return;
    }
    test::WireHeader header;
    bool first = true;
    while (Read(&header, sizeof header) && Read(m_received.Data(), static_cast<DWORD>(m_received.Size()))) {
        const unsigned next = 1 - m_newest.load(std::memory_order_relaxed);
        std::memcpy(m_slots[next].Data(), m_received.Data(), m_received.Size());
        m_newest.store(next, std::memory_order_release);
        if (first) {
            first = false;
            SetEvent(m_first.Get());
        }
    }
}

}  // namespace ravlo::bench
