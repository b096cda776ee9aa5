#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "pipe/pipe_producer.h"

namespace ravlo {

/// The connection to one camera's frame pipe, kept up by trying again, and said to the user when it changes.
/// Times are steady, in units of 100 ns. One thread uses it.
class CameraLink {
public:
    /// `pipeName` must be a frame-pipe name. A write that takes longer than `writeTimeoutMs` ends the connection.
    CameraLink(std::wstring pipeName, DWORD writeTimeoutMs);

    bool IsConnected() const noexcept { return m_producer.IsConnected(); }

    /// Tries once to connect, unless the last try was a moment ago. True when connected.
    bool TryConnect(std::int64_t now);

    /// Sends one frame. False when the connection broke over it; the frame is then lost.
    bool Send(const FrameHeader& header, const void* payload, std::int64_t now);

    /// The time without a connection counts from `now` on.
    void RestartAbsence(std::int64_t now) noexcept { m_absentSince = now; }

    /// How long there has been no connection, in units of 100 ns; 0 while there is one.
    std::int64_t AbsentFor(std::int64_t now) const noexcept;

    std::uint64_t Connections() const noexcept { return m_connections; }
    std::int64_t LongestWrite() const noexcept { return m_longestWrite; }

    /// Why there is no connection: the Win32 error of the last try that failed for a reason of its own; 0 when none has
    /// failed since the last connection.
    DWORD LastConnectError() const noexcept { return m_connectError; }

private:
    std::int64_t RetryInterval() const noexcept;
    void KeepConnectError(DWORD error) noexcept;
    void ReportConnectFailure(std::int64_t now);
    void Lose(WriteOutcome outcome, const FrameHeader& header, std::int64_t now);

    std::wstring m_pipeName;
    DWORD m_writeTimeoutMs;
    PipeProducer m_producer;
    std::int64_t m_absentSince;
    std::int64_t m_connectedAt = 0;
    std::int64_t m_nextTry = 0;
    std::int64_t m_longestWrite = 0;
    std::uint64_t m_connections = 0;
    unsigned m_quickLosses = 0;  ///< connections in a row that broke at once
    DWORD m_connectError = 0;
    DWORD m_reportedError = 0;  ///< what the user was last told about not connecting
};

}  // namespace ravlo
