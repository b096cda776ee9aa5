// The other ends of the module's two pipes: a producer that writes frames and a reader of demand records.
// Written from the wire layout alone, so that an error in the module's own encoder cannot hide here.
#pragma once

#include "support/wait.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace ravlo::test {

/// The 40 bytes in front of every frame, little-endian. Every field may be set wrong on purpose.
struct WireHeader {
    std::uint32_t magic = 0x4F4C5652;  ///< "RVLO"
    std::uint32_t version = 2;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t bytes = 0;
    std::uint32_t format = 0x3231564E;  ///< "NV12"
    std::uint64_t seq = 0;
    std::uint8_t reserved[8]{};
};
static_assert(sizeof(WireHeader) == 40);

/// A right header for an NV12 frame of this size.
WireHeader HeaderFor(std::uint32_t width, std::uint32_t height, std::uint64_t seq);

/// The client end of a pipe; every operation has a deadline.
class PipeEnd {
public:
    PipeEnd() = default;
    ~PipeEnd() { Close(); }
    PipeEnd(const PipeEnd&) = delete;
    PipeEnd& operator=(const PipeEnd&) = delete;

    /// Tries to open the pipe until it works or the time is over; LastError tells why the last attempt
    /// failed.
    bool Connect(const std::wstring& name, DWORD access, DWORD timeoutMs);
    /// Writes all bytes. False when the server hung up or does not read in time; what was written by then
    /// stays written.
    bool Write(const void* data, std::size_t size, DWORD timeoutMs);
    /// Reads exactly `size` bytes.
    bool Read(void* data, std::size_t size, DWORD timeoutMs);
    void Close();
    bool IsOpen() const { return m_pipe != INVALID_HANDLE_VALUE; }
    HANDLE Handle() const { return m_pipe; }
    /// Win32 code of the last failure; WAIT_TIMEOUT (258) for a deadline that passed.
    DWORD LastError() const { return m_lastError; }

private:
    bool Finish(OVERLAPPED& overlapped, BOOL done, DWORD timeoutMs, DWORD& transferred);

    HANDLE m_pipe = INVALID_HANDLE_VALUE;
    DWORD m_lastError = ERROR_SUCCESS;
};

/// A producer: writes frames into a frame pipe.
class PipeClient {
public:
    bool Connect(const std::wstring& name, DWORD timeoutMs = kPatienceMs) {
        return m_end.Connect(name, GENERIC_WRITE, timeoutMs);
    }
    bool SendHeader(const WireHeader& header, DWORD timeoutMs = kPatienceMs) {
        return m_end.Write(&header, sizeof header, timeoutMs);
    }
    /// A payload, or a part of one.
    bool SendBytes(const void* data, std::size_t size, DWORD timeoutMs = kPatienceMs) {
        return m_end.Write(data, size, timeoutMs);
    }
    /// A whole right frame: the test frame of this signature (frames.h), with the signature as its seq.
    bool SendFrame(std::uint32_t width, std::uint32_t height, std::uint32_t signature, DWORD timeoutMs = kPatienceMs);
    /// Waits until the server has disconnected this client. Writes nothing while the connection stands.
    bool WaitForDisconnect(DWORD timeoutMs = kPatienceMs);
    void Close() { m_end.Close(); }
    DWORD LastError() const { return m_end.LastError(); }
    HANDLE Handle() const { return m_end.Handle(); }

private:
    PipeEnd m_end;
};

/// One demand record, 32 bytes, little-endian.
struct GateRecord {
    char magic[4];
    std::uint32_t version;
    std::uint64_t sequence;
    std::uint64_t idleMs;
    std::uint64_t requestCount;
};
static_assert(sizeof(GateRecord) == 32);

/// A reader of demand records.
class GateClient {
public:
    /// `framePipeName` is the name of the frame pipe; ".gate" is appended here.
    bool Connect(const std::wstring& framePipeName, DWORD timeoutMs = kPatienceMs) {
        return m_end.Connect(framePipeName + L".gate", GENERIC_READ | FILE_WRITE_ATTRIBUTES, timeoutMs);
    }
    /// The next record; nothing when none came in time or the server hung up.
    std::optional<GateRecord> Read(DWORD timeoutMs = kPatienceMs);
    void Close() { m_end.Close(); }
    DWORD LastError() const { return m_end.LastError(); }
    HANDLE Handle() const { return m_end.Handle(); }

private:
    PipeEnd m_end;
};

}  // namespace ravlo::test
