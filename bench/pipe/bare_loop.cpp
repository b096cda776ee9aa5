#include "pipe/bare_loop.h"

#include <cstring>
#include <stdexcept>

#include "pipe/overlapped_io.h"
#include "ravlo/wire.h"

namespace ravlo::bench {
namespace {

constexpr DWORD kPipeBufferBytes = 1'048'576;

}  // namespace

BareLoop::BareLoop(const std::wstring& pipeName, const FrameGeometry& geometry, Reads reads, std::size_t frames)
    : m_pipeName(pipeName),
      m_reads(reads),
      m_arrivals(frames),
      m_received(FrameBytes(geometry)),
      m_copies{PageBuffer(FrameBytes(geometry)), PageBuffer(FrameBytes(geometry))} {
    const DWORD openMode = PIPE_ACCESS_INBOUND | (m_reads == Reads::Plain ? 0 : FILE_FLAG_OVERLAPPED);
    m_pipe.Reset(CreateNamedPipeW(m_pipeName.c_str(), openMode, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1,
                                  kPipeBufferBytes, kPipeBufferBytes, 0, nullptr));
    m_event.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_stopEvent.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_frameArrival.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!m_pipe || !m_event || !m_stopEvent || !m_frameArrival) {
        throw std::runtime_error("a bare loop has no pipe");
    }
    m_thread = std::thread(&BareLoop::Run, this);
}

BareLoop::~BareLoop() {
    // A loop that still waits for its writer is given one that leaves at once; the end of the pipe ends the loop.
    UniqueFile(CreateFileW(m_pipeName.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr)).Reset();
    m_thread.join();
}

void BareLoop::Run() {
    if (!AcceptWriter()) {
        return;
    }
    const bool stoppable = m_reads == Reads::Stoppable;
    FrameHeader header{};
    for (std::size_t turn = 0; !(stoppable && StopRequested()); turn = 1 - turn) {
        if (!ReadAll(&header, sizeof header) || !ReadAll(m_received.Data(), m_received.Size())) {
            return;
        }
        std::memcpy(m_copies[turn].Data(), m_received.Data(), m_received.Size());
        if (stoppable) {
            SetEvent(m_frameArrival.Get());
        }
        m_arrivals.Add(m_copies[turn].Data());
    }
}

bool BareLoop::AcceptWriter() {
    OVERLAPPED operation{};
    operation.hEvent = m_event.Get();
    DWORD transferred = 0;
    return ConnectNamedPipe(m_pipe.Get(), m_reads == Reads::Plain ? nullptr : &operation) ||
           GetLastError() == ERROR_PIPE_CONNECTED ||
           (GetLastError() == ERROR_IO_PENDING &&
            GetOverlappedResult(m_pipe.Get(), &operation, &transferred, TRUE) != FALSE);
}

bool BareLoop::ReadAll(void* bytes, std::size_t size) {
    auto* const first = static_cast<std::uint8_t*>(bytes);
    for (std::size_t done = 0; done < size;) {
        DWORD transferred = 0;
        const auto left = static_cast<DWORD>(size - done);
        if (m_reads == Reads::Plain ? !ReadFile(m_pipe.Get(), first + done, left, &transferred, nullptr)
                                    : !ReadStoppably(first + done, left, transferred)) {
            return false;
        }
        done += transferred;
    }
    return true;
}

bool BareLoop::ReadStoppably(void* bytes, DWORD size, DWORD& transferred) {
    if (StopRequested()) {
        return false;
    }
    const UniqueObject readEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    OVERLAPPED operation{};
    operation.hEvent = readEvent.Get();
    if (ReadFile(m_pipe.Get(), bytes, size, &transferred, &operation)) {
        return true;
    }
    const HANDLE handles[] = {readEvent.Get(), m_stopEvent.Get()};
    if (GetLastError() != ERROR_IO_PENDING) {
        return false;
    }
    if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) != WAIT_OBJECT_0) {
        CancelAndWait(m_pipe.Get(), operation);
        return false;
    }
    return GetOverlappedResult(m_pipe.Get(), &operation, &transferred, FALSE) != FALSE;
}

bool BareLoop::StopRequested() const {
    return WaitForSingleObject(m_stopEvent.Get(), 0) != WAIT_TIMEOUT;
}

}  // namespace ravlo::bench
