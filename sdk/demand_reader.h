#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>

#include "gate/demand_record.h"
#include "gate/gate_name.h"
#include "platform/unique_handle.h"

namespace ravlo {

/// The newest thing a camera said about its demand.
struct HeardDemand {
    DemandRecord record;
    std::uint64_t ageMs;  ///< since the reader took the record; below kDemandLeaseMs
};

/// A record counts for this long (ms), four periods of the camera; then the lease has lapsed.
inline constexpr std::uint64_t kDemandLeaseMs = 2000;

/// The reading end of a gate pipe, which never waits for the camera: a read stays pending from one poll to the next. It
/// stays where it is made, because the system writes into it meanwhile. One thread at a time.
class DemandReader {
public:
    /// Reads the gate that belongs to `framePipe`, from the first poll on.
    explicit DemandReader(const PipeName& framePipe) noexcept : m_name(GateNameFor(framePipe)) {}
    DemandReader(const DemandReader&) = delete;
    DemandReader& operator=(const DemandReader&) = delete;
    ~DemandReader() { Close(); }

    /// Opens the gate when that is due, takes the records that have come, and returns the newest while its lease
    /// lasts. Nothing means that nothing is known: the reason is in LastError(). Records that may have waited for
    /// longer than the lease, because the last poll is as long ago, count for nothing.
    std::optional<HeardDemand> Poll() noexcept;

    /// Closes the gate and forgets what came by it; LastError() is then ERROR_PIPE_NOT_CONNECTED. The next poll opens
    /// it again when that is due.
    void Leave() noexcept;

    /// Why the last poll knew nothing: the Win32 error that kept the gate closed or broke it, ERROR_INVALID_OWNER for a
    /// stranger's gate, ERROR_INVALID_DATA for records that are none; 0 when the gate is open and silent.
    DWORD LastError() const noexcept { return m_lastError; }

private:
    void OpenIfDue(std::uint64_t now) noexcept;
    void Open();
    void TakeRecords(std::uint64_t now) noexcept;
    bool TakeBytes(DWORD& count) noexcept;
    void AcceptBytes(DWORD count, std::uint64_t now) noexcept;
    void Fail(DWORD error) noexcept;
    void Close() noexcept;

    GateName m_name;
    UniqueFile m_pipe;
    UniqueObject m_readEvent;
    OVERLAPPED m_operation{};     ///< the system's while m_readPending
    DemandRecordBytes m_bytes{};  ///< likewise from m_filled on
    DWORD m_filled = 0;
    bool m_readPending = false;
    std::optional<std::uint64_t> m_lastAttempt;
    std::uint64_t m_lastPoll = 0;
    std::optional<DemandRecord> m_record;
    std::uint64_t m_recordTick = 0;
    DWORD m_lastError = ERROR_SUCCESS;
};

}  // namespace ravlo
