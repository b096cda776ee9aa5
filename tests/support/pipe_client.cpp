#include "support/pipe_client.h"

#include "support/frames.h"

#include <algorithm>
#include <utility>

namespace ravlo::test {
namespace {

constexpr DWORD kConnectRetryMs = 5;

class Event {
public:
    Event() : m_handle(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~Event() { CloseHandle(m_handle); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    HANDLE Get() const { return m_handle; }

private:
    HANDLE m_handle;
};

}  // namespace

WireHeader HeaderFor(std::uint32_t width, std::uint32_t height, std::uint64_t seq) {
    WireHeader header;
    header.width = width;
    header.height = height;
    header.bytes = width * height + width * (height / 2);
    header.seq = seq;
    return header;
}

bool PipeEnd::Connect(const std::wstring& name, DWORD access, DWORD timeoutMs) {
    Close();
    const Deadline deadline(timeoutMs);
    for (;;) {
        m_pipe = CreateFileW(name.c_str(), access, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
        if (m_pipe != INVALID_HANDLE_VALUE) {
            return true;
        }
        m_lastError = GetLastError();
        if (deadline.Passed()) {
            return false;
        }
        Sleep(kConnectRetryMs);
    }
}

bool PipeEnd::Finish(OVERLAPPED& overlapped, BOOL done, DWORD timeoutMs, DWORD& transferred) {
    if (!done && GetLastError() != ERROR_IO_PENDING) {
        m_lastError = GetLastError();
        return false;
    }
    if (!done && WaitForSingleObject(overlapped.hEvent, timeoutMs) != WAIT_OBJECT_0) {
        CancelIoEx(m_pipe, &overlapped);
        // The operation may have finished before the cancel reached it; it must be over before the buffer
        // goes.
        if (!GetOverlappedResult(m_pipe, &overlapped, &transferred, TRUE)) {
            m_lastError = WAIT_TIMEOUT;
            return false;
        }
        return true;
    }
    if (!GetOverlappedResult(m_pipe, &overlapped, &transferred, FALSE)) {
        m_lastError = GetLastError();
        return false;
    }
    return true;
}

bool PipeEnd::Write(const void* data, std::size_t size, DWORD timeoutMs) {
    const Deadline deadline(timeoutMs);
    const auto* next = static_cast<const std::byte*>(data);
    const Event event;
    while (size != 0) {
        OVERLAPPED overlapped{};
        overlapped.hEvent = event.Get();
        DWORD written = 0;
        const auto portion = static_cast<DWORD>(std::min<std::size_t>(size, 1U << 30));
        const BOOL done = WriteFile(m_pipe, next, portion, nullptr, &overlapped);
        if (!Finish(overlapped, done, deadline.Left(), written)) {
            return false;
        }
        next += written;
        size -= written;
    }
    return true;
}

bool PipeEnd::Read(void* data, std::size_t size, DWORD timeoutMs) {
    const Deadline deadline(timeoutMs);
    auto* next = static_cast<std::byte*>(data);
    const Event event;
    while (size != 0) {
        OVERLAPPED overlapped{};
        overlapped.hEvent = event.Get();
        DWORD read = 0;
        const BOOL done = ReadFile(m_pipe, next, static_cast<DWORD>(size), nullptr, &overlapped);
        if (!Finish(overlapped, done, deadline.Left(), read)) {
            return false;
        }
        next += read;
        size -= read;
    }
    return true;
}

void PipeEnd::Close() {
    if (IsOpen()) {
        CloseHandle(std::exchange(m_pipe, INVALID_HANDLE_VALUE));
    }
}

bool PipeClient::SendFrame(std::uint32_t width, std::uint32_t height, std::uint32_t signature, DWORD timeoutMs) {
    const Deadline deadline(timeoutMs);
    const std::vector<std::uint8_t> frame = MakeFrame(width, height, signature);
    return SendHeader(HeaderFor(width, height, signature), deadline.Left()) &&
           SendBytes(frame.data(), frame.size(), deadline.Left());
}

bool PipeClient::WaitForDisconnect(DWORD timeoutMs) {
    return WaitUntil(
        [&] {
            DWORD state = 0;
            return !GetNamedPipeHandleStateW(m_end.Handle(), &state, nullptr, nullptr, nullptr, nullptr, 0);
        },
        timeoutMs);
}

std::optional<GateRecord> GateClient::Read(DWORD timeoutMs) {
    GateRecord record{};
    if (!m_end.Read(&record, sizeof record, timeoutMs)) {
        return std::nullopt;
    }
    return record;
}

}  // namespace ravlo::test
