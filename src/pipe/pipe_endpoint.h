#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "pipe/frame_receive.h"
#include "pipe/pipe_name.h"
#include "platform/unique_handle.h"

namespace ravlo {

/// Where the serving end of a pipe stands.
enum class ListenState : std::uint32_t { NoPipe = 0, Listening = 1, Connected = 2, ListenFailed = 3 };

/// Which step of the creation of a frame pipe failed.
enum class CreateStage : std::uint32_t {
    None = 0,
    Dacl = 1,
    Owner = 2,
    Descriptor = 3,
    ListenEvent = 4,
    Pipe = 5,
    Name = 6,
};

/// The serving end of the frame pipe. One thread drives it at a time; the stop events given to it may be signalled by
/// any.
class PipeEndpoint {
public:
    PipeEndpoint() noexcept = default;
    PipeEndpoint(const PipeEndpoint&) = delete;
    PipeEndpoint& operator=(const PipeEndpoint&) = delete;
    ~PipeEndpoint() { Close(); }

    /// Creates the pipe for `authorizedUserSid` and closes what was there before. It does not listen yet. False leaves
    /// the failing step in Stage() and its Win32 error in LastError().
    bool Create(const wchar_t* name, const std::wstring& authorizedUserSid) noexcept;

    /// Arms the listen when none is outstanding, and says how things stand, without blocking. A listen that failed is
    /// issued again, after the pipe was disconnected: a client that came and went before the first listen otherwise
    /// leaves the pipe refusing everybody.
    ListenState PollListen() noexcept;

    /// Polls, and waits up to `timeoutMs` for an outstanding listen. True when a client is connected.
    bool WaitForClient(DWORD timeoutMs) noexcept;

    /// Reads exactly `length` bytes; `bytesDone` counts what arrived however it ends. The stop event interrupts it; an
    /// interrupted read is waited out, so nothing is written into `buffer` after the return.
    ReadOutcome ReadExact(void* buffer, std::uint32_t length, HANDLE stopEvent, std::uint32_t& bytesDone) noexcept;

    /// Drops the client and keeps the pipe, ready for a new listen.
    void DisconnectClient() noexcept;

    /// Destroys the pipe.
    void Close() noexcept;

    bool HasPipe() const noexcept { return m_pipe.IsValid(); }
    ListenState State() const noexcept { return m_state; }
    RecvStatus Status() const noexcept { return m_recvStatus; }
    HeaderVerdict Verdict() const noexcept { return m_headerVerdict; }
    DWORD LastError() const noexcept { return m_lastError; }
    CreateStage Stage() const noexcept { return m_createStage; }
    /// The SID that was made the pipe's owner.
    const std::wstring& OwnerSid() const noexcept { return m_ownerSid; }
    const wchar_t* Name() const noexcept { return m_name.text; }

private:
    friend bool RecvFrame(PipeEndpoint& endpoint, FrameHeader& header, ReceiveBuffer& buffer, std::uint64_t maxBytes,
                          HANDLE stopEvent);

    CreateStage TryCreate(const wchar_t* name, const std::wstring& authorizedUserSid);
    void IssueListen() noexcept;
    void AwaitListen(DWORD timeoutMs) noexcept;
    void CompleteListen() noexcept;
    void CancelListen() noexcept;

    UniqueFile m_pipe;
    UniqueObject m_listenEvent;
    OVERLAPPED m_listenOverlapped{};
    bool m_connectPending = false;
    ListenState m_state = ListenState::NoPipe;
    RecvStatus m_recvStatus = RecvStatus::Ok;
    HeaderVerdict m_headerVerdict = HeaderVerdict::Ok;
    DWORD m_lastError = ERROR_SUCCESS;
    CreateStage m_createStage = CreateStage::None;
    std::wstring m_ownerSid;
    PipeName m_name;
};

/// Takes one frame from a connected endpoint. True only when header and payload are complete and good; otherwise the
/// endpoint's Status() (and Verdict()) say why. Without a stop event no I/O is issued at all. Throws std::bad_alloc
/// when the buffer cannot grow; the status is then IoFault.
bool RecvFrame(PipeEndpoint& endpoint, FrameHeader& header, ReceiveBuffer& buffer, std::uint64_t maxBytes,
               HANDLE stopEvent);

}  // namespace ravlo
