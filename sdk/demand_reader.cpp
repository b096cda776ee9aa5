#include "demand_reader.h"

#include <string>
#include <utility>

#include "pipe/authorized_user.h"
#include "pipe/overlapped_io.h"

namespace ravlo {
namespace {

/// How often (ms) a gate that is closed is tried.
constexpr std::uint64_t kOpenPeriodMs = 500;
/// Reads of one poll. A camera's buffer holds 128 records; a server without end must not hold its reader.
constexpr int kReadsAPoll = 256;

bool HasTrustedOwner(HANDLE pipe, const std::wstring& expectedUser) {
    std::wstring owner;
    return GetPipeOwnerSid(pipe, owner) && ClassifyOwner(owner, expectedUser) != OwnerTrust::Untrusted;
}

}  // namespace

std::optional<HeardDemand> DemandReader::Poll() noexcept {
    const std::uint64_t now = GetTickCount64();
    const bool isLate = m_pipe && now - m_lastPoll >= kDemandLeaseMs;
    m_lastPoll = now;
    OpenIfDue(now);
    if (m_pipe) {
        m_lastError = ERROR_SUCCESS;
        TakeRecords(now);
    }
    if (isLate || !m_record || now - m_recordTick >= kDemandLeaseMs) {
        m_record.reset();
        return std::nullopt;
    }
    return HeardDemand{*m_record, now - m_recordTick};
}

void DemandReader::OpenIfDue(std::uint64_t now) noexcept {
    if (m_pipe || (m_lastAttempt && now - *m_lastAttempt < kOpenPeriodMs)) {
        return;
    }
    m_lastAttempt = now;
    try {
        Open();
    } catch (...) {
        m_lastError = ERROR_NOT_ENOUGH_MEMORY;
    }
}

void DemandReader::Open() {
    if (!m_readEvent) {
        m_readEvent.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!m_readEvent) {
            m_lastError = GetLastError();
            return;
        }
    }
    std::wstring expectedUser;
    if (ReadAuthorizedUserAnchor(expectedUser) != AnchorReason::Ok) {
        expectedUser.clear();
    }
    // Identification level: whoever serves the pipe may learn who we are, but not act as us.
    UniqueFile opened(CreateFileW(m_name.text, GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (!opened) {
        m_lastError = GetLastError();
        return;
    }
    if (!HasTrustedOwner(opened.Get(), expectedUser)) {
        m_lastError = ERROR_INVALID_OWNER;
        return;
    }
    m_pipe = std::move(opened);
}

void DemandReader::TakeRecords(std::uint64_t now) noexcept {
    DWORD count = 0;
    for (int reads = 0; reads < kReadsAPoll && TakeBytes(count); ++reads) {
        AcceptBytes(count, now);
    }
}

/// Ends the pending read if it has ended, and else issues one. True with the bytes that came, 0 of them after a read that
/// was cancelled; false when the read is pending, or the pipe is closed.
bool DemandReader::TakeBytes(DWORD& count) noexcept {
    if (!m_pipe) {
        return false;
    }
    if (!m_readPending) {
        m_operation = OVERLAPPED{};
        m_operation.hEvent = m_readEvent.Get();
        if (!ReadFile(m_pipe.Get(), m_bytes.data() + m_filled, static_cast<DWORD>(m_bytes.size()) - m_filled, nullptr,
                      &m_operation) &&
            GetLastError() != ERROR_IO_PENDING) {
            Fail(GetLastError());
            return false;
        }
        m_readPending = true;
    }
    if (WaitForSingleObject(m_readEvent.Get(), 0) != WAIT_OBJECT_0) {
        return false;
    }
    m_readPending = false;
    count = 0;
    if (GetOverlappedResult(m_pipe.Get(), &m_operation, &count, FALSE)) {
        return true;
    }
    // The system cancels what a thread has pending when that thread ends; the producer may live on in another.
    if (GetLastError() != ERROR_OPERATION_ABORTED) {
        Fail(GetLastError());
        return false;
    }
    return true;
}

void DemandReader::AcceptBytes(DWORD count, std::uint64_t now) noexcept {
    m_filled += count;
    if (m_filled < m_bytes.size()) {
        return;
    }
    m_filled = 0;
    DemandRecord record{};
    if (!DecodeDemandRecord(m_bytes, record)) {
        Fail(ERROR_INVALID_DATA);
        return;
    }
    m_record = record;
    m_recordTick = now;
}

void DemandReader::Leave() noexcept {
    Fail(ERROR_PIPE_NOT_CONNECTED);
}

/// The lease goes with the connection: another camera may serve the name next.
void DemandReader::Fail(DWORD error) noexcept {
    m_lastError = error;
    m_record.reset();
    Close();
}

void DemandReader::Close() noexcept {
    if (m_readPending) {
        CancelAndWait(m_pipe.Get(), m_operation);
        m_readPending = false;
    }
    m_filled = 0;
    m_pipe.Reset();
}

}  // namespace ravlo
