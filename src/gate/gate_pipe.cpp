#include "gate/gate_pipe.h"

#include <algorithm>
#include <cwchar>

#include "pipe/authorized_user.h"
#include "pipe/overlapped_io.h"
#include "pipe/pipe_security.h"
#include "platform/hresult.h"

namespace ravlo {
namespace {

constexpr DWORD kOpenMode = PIPE_ACCESS_OUTBOUND | FILE_FLAG_FIRST_PIPE_INSTANCE | FILE_FLAG_OVERLAPPED;
constexpr DWORD kPipeMode = PIPE_TYPE_MESSAGE | PIPE_READMODE_BYTE | PIPE_WAIT;
/// Holds 128 records, more than a minute's worth: a slow reader does not hold up the writer.
constexpr DWORD kOutBufferBytes = 4096;

bool BuildSecurity(RvGatePipe& gate, const std::wstring& authorizedUserSid, PipeSecurity& security) {
    DWORD error = ERROR_SUCCESS;
    if (!security.BuildDacl(authorizedUserSid, error)) {
        gate.lastError = ErrorOr(error, ERROR_INVALID_PARAMETER);
        return false;
    }
    std::wstring owner;
    if (!GetOwnTokenUserSid(owner, error)) {
        gate.lastError = ErrorOr(error, ERROR_NO_SUCH_USER);
        return false;
    }
    if (!security.SetOwner(owner, error)) {
        gate.lastError = ErrorOr(error, ERROR_INVALID_SID);
        return false;
    }
    return security.Assemble(gate.lastError);
}

bool TryCreate(RvGatePipe& gate, const std::wstring& authorizedUserSid, const wchar_t* gateName) {
    PipeSecurity security;
    if (!BuildSecurity(gate, authorizedUserSid, security)) {
        return false;
    }
    gate.connectEvent.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!gate.connectEvent) {
        gate.lastError = GetLastError();
        return false;
    }
    gate.writeEvent.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!gate.writeEvent) {
        gate.lastError = GetLastError();
        return false;
    }
    gate.pipe.Reset(CreateNamedPipeW(gateName, kOpenMode, kPipeMode, 1, kOutBufferBytes, 0, 0, security.Attributes()));
    if (!gate.pipe) {
        gate.lastError = GetLastError();
        return false;
    }
    std::copy_n(gateName, std::wcslen(gateName) + 1, gate.name.text);
    return true;
}

/// Looks at the record that is on its way. False when it still is, or when it failed.
bool FinishPendingWrite(RvGatePipe& gate) noexcept {
    DWORD transferred = 0;
    if (GetOverlappedResult(gate.pipe.Get(), &gate.writeOverlapped, &transferred, FALSE)) {
        gate.writePending = false;
        return true;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_IO_INCOMPLETE) {
        gate.lastError = error;
        RvGatePipeDisconnect(gate);
    }
    return false;
}

void IssueConnect(RvGatePipe& gate) noexcept {
    if (gate.connectFailed) {
        // A client that came and went before it was noticed leaves the pipe refusing everybody until it is
        // disconnected.
        DisconnectNamedPipe(gate.pipe.Get());
        gate.connectFailed = false;
    }
    ResetEvent(gate.connectEvent.Get());
    gate.connectOverlapped = OVERLAPPED{};
    gate.connectOverlapped.hEvent = gate.connectEvent.Get();
    if (ConnectNamedPipe(gate.pipe.Get(), &gate.connectOverlapped)) {
        gate.connected = true;
        return;
    }
    const DWORD error = GetLastError();
    if (error == ERROR_PIPE_CONNECTED) {
        gate.connected = true;
    } else if (error == ERROR_IO_PENDING) {
        gate.connectPending = true;
    } else {
        gate.lastError = error;
        gate.connectFailed = true;
    }
}

void FinishPendingConnect(RvGatePipe& gate) noexcept {
    if (WaitForSingleObject(gate.connectEvent.Get(), 0) != WAIT_OBJECT_0) {
        return;
    }
    DWORD transferred = 0;
    gate.connected = GetOverlappedResult(gate.pipe.Get(), &gate.connectOverlapped, &transferred, FALSE) != FALSE;
    gate.connectPending = false;
    if (!gate.connected) {
        gate.lastError = GetLastError();
        gate.connectFailed = true;
    }
}

bool EnsureConnected(RvGatePipe& gate) noexcept {
    if (!gate.connected && !gate.connectPending) {
        IssueConnect(gate);
    }
    if (!gate.connected && gate.connectPending) {
        FinishPendingConnect(gate);
    }
    return gate.connected;
}

}  // namespace

bool RvGatePipeCreate(RvGatePipe& gate, const std::wstring& authorizedUserSid, const wchar_t* gateName) noexcept {
    if (!RvIsGatePipeName(gateName)) {
        gate.lastError = ERROR_INVALID_NAME;
        return false;
    }
    RvGatePipeClose(gate);
    gate.lastError = ERROR_SUCCESS;
    bool created = false;
    try {
        created = TryCreate(gate, authorizedUserSid, gateName);
    } catch (...) {
        gate.lastError = ERROR_NOT_ENOUGH_MEMORY;
    }
    if (!created) {
        const DWORD error = gate.lastError;
        RvGatePipeClose(gate);
        gate.lastError = error;
    }
    return created;
}

bool RvGatePipePublish(RvGatePipe& gate, std::uint64_t idleMs, std::uint64_t requestCount) noexcept {
    if (!gate.pipe) {
        return false;
    }
    if (gate.writePending && !FinishPendingWrite(gate)) {
        return false;
    }
    if (!EnsureConnected(gate)) {
        return false;
    }
    // Counted before the write: a record that fails on its way still consumes its number, so the reader sees the gap.
    ++gate.sequence;
    EncodeDemandRecord({gate.sequence, idleMs, requestCount}, gate.record);
    ResetEvent(gate.writeEvent.Get());
    gate.writeOverlapped = OVERLAPPED{};
    gate.writeOverlapped.hEvent = gate.writeEvent.Get();
    const bool written = WriteFile(gate.pipe.Get(), gate.record.data(), static_cast<DWORD>(gate.record.size()), nullptr,
                                   &gate.writeOverlapped) != FALSE;
    if (!written) {
        const DWORD error = GetLastError();
        if (error != ERROR_IO_PENDING) {
            gate.lastError = error;
            RvGatePipeDisconnect(gate);
            return false;
        }
        gate.writePending = true;
    }
    ++gate.recordsIssued;
    return true;
}

void RvGatePipeDisconnect(RvGatePipe& gate) noexcept {
    if (gate.pipe) {
        if (gate.writePending) {
            CancelAndWait(gate.pipe.Get(), gate.writeOverlapped);
        }
        if (gate.connectPending) {
            CancelAndWait(gate.pipe.Get(), gate.connectOverlapped);
        }
        DisconnectNamedPipe(gate.pipe.Get());
    }
    gate.writePending = false;
    gate.connectPending = false;
    gate.connectFailed = false;
    gate.connected = false;
}

void RvGatePipeClose(RvGatePipe& gate) noexcept {
    RvGatePipeDisconnect(gate);
    gate.pipe.Reset();
    gate.connectEvent.Reset();
    gate.writeEvent.Reset();
    gate.name = GateName{};
    gate.sequence = 0;
}

}  // namespace ravlo
