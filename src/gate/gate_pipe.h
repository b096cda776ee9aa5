#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "gate/demand_record.h"
#include "gate/gate_name.h"
#include "platform/unique_handle.h"

namespace ravlo {

/// The serving end of the gate pipe. The gate thread alone touches it while the stream runs. Every operation is
/// overlapped and looked at on the next pass, so that a slow or absent client never holds the thread.
struct RvGatePipe {
    UniqueFile pipe;
    UniqueObject connectEvent;
    OVERLAPPED connectOverlapped{};
    bool connectPending = false;
    bool connectFailed = false;  ///< the last connect failed: disconnect before the next one
    bool connected = false;
    UniqueObject writeEvent;
    OVERLAPPED writeOverlapped{};
    bool writePending = false;
    DemandRecordBytes record{};  ///< not to be touched while a write is pending
    DWORD lastError = ERROR_SUCCESS;
    GateName name;
    std::uint64_t sequence = 0;
    std::uint64_t recordsIssued = 0;
};

/// Creates the gate pipe `gateName`, open to the same accounts as the frame pipe, after closing what `gate` held. False
/// leaves the Win32 error in gate.lastError.
bool RvGatePipeCreate(RvGatePipe& gate, const std::wstring& authorizedUserSid, const wchar_t* gateName) noexcept;

/// Writes one record to the connected client, or looks for one. True when a record was written or is being written;
/// false when nobody is connected, an earlier record is still on its way, or the client went away.
bool RvGatePipePublish(RvGatePipe& gate, std::uint64_t idleMs, std::uint64_t requestCount) noexcept;

/// Ends the client's connection and keeps the pipe; pending operations are cancelled and waited out.
void RvGatePipeDisconnect(RvGatePipe& gate) noexcept;

/// Releases everything and starts the sequence over.
void RvGatePipeClose(RvGatePipe& gate) noexcept;

}  // namespace ravlo
