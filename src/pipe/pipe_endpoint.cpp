#include "pipe/pipe_endpoint.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

#include "pipe/authorized_user.h"
#include "pipe/overlapped_io.h"
#include "pipe/pipe_security.h"
#include "platform/hresult.h"

namespace ravlo {
namespace {

/// Inbound only: the camera never talks back. First instance: a second creator of the name fails instead of sharing it.
constexpr DWORD kOpenMode = PIPE_ACCESS_INBOUND | FILE_FLAG_FIRST_PIPE_INSTANCE | FILE_FLAG_OVERLAPPED;
static_assert(kOpenMode == 0x40080001);
/// Remote clients are not refused by the mode: the access list alone decides who may open.
constexpr DWORD kPipeMode = PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT;
static_assert(kPipeMode == 0);
constexpr DWORD kPipeBufferBytes = 1'048'576;

}  // namespace

bool PipeEndpoint::Create(const wchar_t* name, const std::wstring& authorizedUserSid) noexcept {
    m_createStage = CreateStage::None;
    m_lastError = ERROR_SUCCESS;
    try {
        m_createStage = TryCreate(name, authorizedUserSid);
    } catch (...) {
        // Only the owner's text allocates and may throw.
        m_createStage = CreateStage::Owner;
        m_lastError = ERROR_NOT_ENOUGH_MEMORY;
    }
    return m_createStage == CreateStage::None;
}

CreateStage PipeEndpoint::TryCreate(const wchar_t* name, const std::wstring& authorizedUserSid) {
    if (!RvIsRavloPipeName(name)) {
        m_lastError = ERROR_INVALID_NAME;
        return CreateStage::Name;
    }
    Close();
    PipeName stored;
    std::copy_n(name, std::wcslen(name) + 1, stored.text);
    m_name = stored;

    PipeSecurity security;
    DWORD error = ERROR_SUCCESS;
    if (!security.BuildDacl(authorizedUserSid, error)) {
        m_lastError = ErrorOr(error, ERROR_INVALID_PARAMETER);
        return CreateStage::Dacl;
    }
    if (!GetOwnTokenUserSid(m_ownerSid, error) || !security.SetOwner(m_ownerSid, error)) {
        m_lastError = ErrorOr(error, ERROR_INVALID_SID);
        return CreateStage::Owner;
    }
    if (!security.Assemble(error)) {
        m_lastError = error;
        return CreateStage::Descriptor;
    }
    m_listenEvent.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!m_listenEvent) {
        m_lastError = GetLastError();
        return CreateStage::ListenEvent;
    }
    m_pipe.Reset(CreateNamedPipeW(m_name.text, kOpenMode, kPipeMode, 1, kPipeBufferBytes, kPipeBufferBytes, 0,
                                  security.Attributes()));
    if (!m_pipe) {
        m_lastError = GetLastError();
        m_listenEvent.Reset();
        return CreateStage::Pipe;
    }
    m_state = ListenState::Listening;
    m_connectPending = false;
    return CreateStage::None;
}

void PipeEndpoint::IssueListen() noexcept {
    if (m_state == ListenState::ListenFailed) {
        DisconnectNamedPipe(m_pipe.Get());
    }
    ResetEvent(m_listenEvent.Get());
    m_listenOverlapped = OVERLAPPED{};
    m_listenOverlapped.hEvent = m_listenEvent.Get();
    if (ConnectNamedPipe(m_pipe.Get(), &m_listenOverlapped)) {
        m_state = ListenState::Connected;
        return;
    }
    const DWORD error = GetLastError();
    if (error == ERROR_IO_PENDING) {
        m_connectPending = true;
        m_state = ListenState::Listening;
    } else if (error == ERROR_PIPE_CONNECTED) {
        m_state = ListenState::Connected;
    } else {
        m_lastError = error;
        m_state = ListenState::ListenFailed;
    }
}

void PipeEndpoint::CompleteListen() noexcept {
    DWORD transferred = 0;
    const bool connected = GetOverlappedResult(m_pipe.Get(), &m_listenOverlapped, &transferred, FALSE) != FALSE;
    m_connectPending = false;
    if (connected) {
        m_state = ListenState::Connected;
    } else {
        m_lastError = GetLastError();
        m_state = ListenState::ListenFailed;
    }
}

ListenState PipeEndpoint::PollListen() noexcept {
    if (!m_pipe) {
        return ListenState::NoPipe;
    }
    if (m_state == ListenState::Connected) {
        return m_state;
    }
    if (!m_connectPending) {
        IssueListen();
    }
    if (m_connectPending) {
        AwaitListen(0);
    }
    return m_state;
}

void PipeEndpoint::AwaitListen(DWORD timeoutMs) noexcept {
    switch (WaitForSingleObject(m_listenEvent.Get(), timeoutMs)) {
        case WAIT_OBJECT_0:
            CompleteListen();
            break;
        case WAIT_TIMEOUT:
            m_state = ListenState::Listening;
            break;
        default:
            // Counts as a failed listen, so that the caller backs off: a wait that fails at once would make it spin.
            m_lastError = GetLastError();
            m_state = ListenState::ListenFailed;
            break;
    }
}

bool PipeEndpoint::WaitForClient(DWORD timeoutMs) noexcept {
    const ListenState state = PollListen();
    if (state != ListenState::Listening) {
        return state == ListenState::Connected;
    }
    AwaitListen(timeoutMs);
    return m_state == ListenState::Connected;
}

ReadOutcome PipeEndpoint::ReadExact(void* buffer, std::uint32_t length, HANDLE stopEvent,
                                    std::uint32_t& bytesDone) noexcept {
    bytesDone = 0;
    while (bytesDone < length) {
        if (WaitForSingleObject(stopEvent, 0) != WAIT_TIMEOUT) {
            return ReadOutcome::Cancelled;
        }
        // A fresh event for every read: a completion that arrives late can never be taken for that of the next one.
        const UniqueObject readEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!readEvent) {
            m_lastError = GetLastError();
            return ReadOutcome::Failed;
        }
        OVERLAPPED operation{};
        operation.hEvent = readEvent.Get();
        DWORD transferred = 0;
        bool complete = ReadFile(m_pipe.Get(), static_cast<BYTE*>(buffer) + bytesDone, length - bytesDone, &transferred,
                                 &operation) != FALSE;
        if (!complete && GetLastError() == ERROR_IO_PENDING) {
            const HANDLE handles[] = {readEvent.Get(), stopEvent};
            if (WaitForMultipleObjects(static_cast<DWORD>(std::size(handles)), handles, FALSE, INFINITE) !=
                WAIT_OBJECT_0) {
                bytesDone += CancelAndWait(m_pipe.Get(), operation);
                return ReadOutcome::Cancelled;
            }
            complete = GetOverlappedResult(m_pipe.Get(), &operation, &transferred, FALSE) != FALSE;
        }
        if (!complete) {
            m_lastError = GetLastError();
            return IsPeerGone(m_lastError) ? ReadOutcome::PeerClosed : ReadOutcome::Failed;
        }
        if (transferred == 0) {
            return ReadOutcome::PeerClosed;
        }
        bytesDone += transferred;
    }
    return ReadOutcome::Complete;
}

void PipeEndpoint::CancelListen() noexcept {
    if (m_connectPending) {
        CancelAndWait(m_pipe.Get(), m_listenOverlapped);
        m_connectPending = false;
    }
}

void PipeEndpoint::DisconnectClient() noexcept {
    if (m_pipe) {
        CancelListen();
        DisconnectNamedPipe(m_pipe.Get());
        m_state = ListenState::Listening;
    }
}

void PipeEndpoint::Close() noexcept {
    if (m_pipe) {
        CancelListen();
        DisconnectNamedPipe(m_pipe.Get());
        m_pipe.Reset();
    }
    m_listenEvent.Reset();
    m_connectPending = false;
    m_state = ListenState::NoPipe;
    m_ownerSid.clear();
}

namespace {

/// Lets the frame receipt read from an endpoint.
class EndpointSource final : public FrameSource {
public:
    EndpointSource(PipeEndpoint& endpoint, HANDLE stopEvent) noexcept : m_endpoint(endpoint), m_stopEvent(stopEvent) {}

    ReadOutcome ReadBytes(void* buffer, std::uint32_t length) override {
        std::uint32_t bytesDone = 0;
        return m_endpoint.ReadExact(buffer, length, m_stopEvent, bytesDone);
    }

private:
    PipeEndpoint& m_endpoint;
    HANDLE m_stopEvent;
};

}  // namespace

bool RecvFrame(PipeEndpoint& endpoint, FrameHeader& header, ReceiveBuffer& buffer, std::uint64_t maxBytes,
               HANDLE stopEvent) {
    endpoint.m_recvStatus = RecvStatus::IoFault;
    if (stopEvent == nullptr) {
        endpoint.m_recvStatus = RecvStatus::NoCancelEvent;
        return false;
    }
    if (!endpoint.HasPipe() || endpoint.State() != ListenState::Connected) {
        return false;
    }
    EndpointSource source(endpoint, stopEvent);
    ReceiveFrame(source, header, buffer, maxBytes, endpoint.m_recvStatus, endpoint.m_headerVerdict);
    return endpoint.m_recvStatus == RecvStatus::Ok;
}

}  // namespace ravlo
