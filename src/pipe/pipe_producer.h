#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "pipe/anchor_words.h"
#include "platform/unique_handle.h"
#include "ravlo/wire.h"

namespace ravlo {

/// How a write on the frame pipe ended.
enum class WriteOutcome : std::uint32_t { Ok = 0, PeerClosed = 1, DeadlineExpired = 2, Failed = 3 };

/// The outcome in words for a person: "ok", "the peer closed the pipe", "the write deadline expired", "the write
/// failed".
const char* WriteOutcomeWord(WriteOutcome outcome) noexcept;

/// The writing end of a frame pipe. Not thread-safe: one thread drives one producer.
class PipeProducer {
public:
    /// Opens \\.\pipe\Ravlo with the owner verified.
    bool ConnectToServer(std::uint64_t timeoutMs);

    /// Opens `name`, trying every 50 ms until `timeoutMs` has passed. With `verifyOwner`, a pipe that belongs to
    /// neither LOCAL SERVICE nor LOCAL SYSTEM nor the authorized user is closed again. False leaves the reason in
    /// LastError(): ERROR_INVALID_NAME for a name that is no frame-pipe name, ERROR_INVALID_OWNER for a stranger's
    /// pipe.
    bool ConnectToServer(const wchar_t* name, std::uint64_t timeoutMs, bool verifyOwner = true);

    /// Writes the header and then header.bytes bytes of `payload`, both under one deadline of `timeoutMs` from now.
    /// After anything but Ok the byte stream is torn: Disconnect before the next frame.
    WriteOutcome WriteFrame(const FrameHeader& header, const void* payload, std::uint64_t timeoutMs);

    /// Closes the connection, if any.
    void Disconnect() noexcept { m_pipe.Reset(); }

    bool IsConnected() const noexcept { return m_pipe.IsValid(); }

    /// The Win32 error of the last failure.
    DWORD LastError() const noexcept { return m_lastError; }

    /// Who owns the pipe last opened with the owner verified.
    OwnerTrust Owner() const noexcept { return m_owner; }

    /// Why that owner could not be read; 0 when it was read, or nobody asked. A pipe whose server has hung up has none.
    DWORD OwnerError() const noexcept { return m_ownerError; }

private:
    bool IsOwnerTrusted(HANDLE pipe, const std::wstring& expectedUser);
    WriteOutcome WriteExact(const void* buffer, std::uint32_t length, std::uint64_t deadline);
    WriteOutcome Fail(WriteOutcome outcome, DWORD error) noexcept;
    WriteOutcome FailFromError(DWORD error) noexcept;

    UniqueFile m_pipe;
    DWORD m_lastError = 0;
    OwnerTrust m_owner = OwnerTrust::Untrusted;
    DWORD m_ownerError = ERROR_SUCCESS;
};

}  // namespace ravlo
