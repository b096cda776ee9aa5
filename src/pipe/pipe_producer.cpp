#include "pipe/pipe_producer.h"

#include <aclapi.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "pipe/authorized_user.h"
#include "pipe/overlapped_io.h"
#include "pipe/pipe_name.h"
#include "platform/local_memory.h"

namespace ravlo {
namespace {

constexpr DWORD kRetryMs = 50;
/// The longest wait that is not a wait for ever.
constexpr std::uint64_t kLongestWaitMs = INFINITE - 1;

/// The tick at which `timeoutMs` from now has passed, or the last tick there is.
std::uint64_t DeadlineIn(std::uint64_t timeoutMs) noexcept {
    const std::uint64_t now = GetTickCount64();
    return now + std::min(timeoutMs, std::numeric_limits<std::uint64_t>::max() - now);
}

/// Asks for an owner that could not be read once more, to learn why: what a hung-up pipe answers does not change.
DWORD OwnerQueryError(HANDLE pipe) noexcept {
    PSID owner = nullptr;
    LocalMemory<PSECURITY_DESCRIPTOR> descriptor;
    return GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                           descriptor.Put());
}

}  // namespace

const char* WriteOutcomeWord(WriteOutcome outcome) noexcept {
    static constexpr const char* kWords[] = {"ok", "the peer closed the pipe", "the write deadline expired",
                                             "the write failed"};
    const auto index = static_cast<std::size_t>(outcome);
    return index < std::size(kWords) ? kWords[index] : "unknown";
}

bool PipeProducer::ConnectToServer(std::uint64_t timeoutMs) {
    return ConnectToServer(PipeNameForPid(0).text, timeoutMs);
}

bool PipeProducer::ConnectToServer(const wchar_t* name, std::uint64_t timeoutMs, bool verifyOwner) {
    Disconnect();
    m_lastError = ERROR_SUCCESS;
    m_owner = OwnerTrust::Untrusted;
    m_ownerError = ERROR_SUCCESS;
    if (!RvIsRavloPipeName(name)) {
        m_lastError = ERROR_INVALID_NAME;
        return false;
    }
    std::wstring expectedUser;
    if (verifyOwner && ReadAuthorizedUserAnchor(expectedUser) != AnchorReason::Ok) {
        expectedUser.clear();
    }
    const std::uint64_t deadline = DeadlineIn(timeoutMs);
    UniqueFile opened;
    for (;;) {
        // Identification level: whoever serves the pipe may learn who we are, but not act as us.
        opened.Reset(CreateFileW(name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
        if (opened) {
            break;
        }
        m_lastError = GetLastError();
        if (GetTickCount64() >= deadline) {
            return false;
        }
        Sleep(kRetryMs);
    }
    // Ours only once its owner is known: until then nothing can be written into it by mistake.
    if (verifyOwner && !IsOwnerTrusted(opened.Get(), expectedUser)) {
        m_lastError = ERROR_INVALID_OWNER;
        return false;
    }
    m_pipe = std::move(opened);
    return true;
}

bool PipeProducer::IsOwnerTrusted(HANDLE pipe, const std::wstring& expectedUser) {
    std::wstring owner;
    if (GetPipeOwnerSid(pipe, owner)) {
        m_owner = ClassifyOwner(owner, expectedUser);
    } else {
        m_ownerError = OwnerQueryError(pipe);
    }
    return m_owner != OwnerTrust::Untrusted;
}

WriteOutcome PipeProducer::WriteFrame(const FrameHeader& header, const void* payload, std::uint64_t timeoutMs) {
    if (!m_pipe) {
        return Fail(WriteOutcome::Failed, ERROR_INVALID_HANDLE);
    }
    const std::uint64_t deadline = DeadlineIn(timeoutMs);
    const WriteOutcome outcome = WriteExact(&header, kFrameHeaderBytes, deadline);
    return outcome == WriteOutcome::Ok ? WriteExact(payload, header.bytes, deadline) : outcome;
}

WriteOutcome PipeProducer::WriteExact(const void* buffer, std::uint32_t length, std::uint64_t deadline) {
    std::uint32_t done = 0;
    while (done < length) {
        if (GetTickCount64() >= deadline) {
            return Fail(WriteOutcome::DeadlineExpired, WAIT_TIMEOUT);
        }
        const UniqueObject writeEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!writeEvent) {
            return Fail(WriteOutcome::Failed, GetLastError());
        }
        OVERLAPPED operation{};
        operation.hEvent = writeEvent.Get();
        DWORD transferred = 0;
        bool complete = WriteFile(m_pipe.Get(), static_cast<const BYTE*>(buffer) + done, length - done, &transferred,
                                  &operation) != FALSE;
        if (!complete && GetLastError() == ERROR_IO_PENDING) {
            const std::uint64_t now = GetTickCount64();
            const std::uint64_t leftMs = now < deadline ? deadline - now : 0;
            const DWORD waited =
                WaitForSingleObject(writeEvent.Get(), static_cast<DWORD>(std::min(leftMs, kLongestWaitMs)));
            if (waited != WAIT_OBJECT_0) {
                const DWORD error = waited == WAIT_TIMEOUT ? DWORD{WAIT_TIMEOUT} : GetLastError();
                CancelAndWait(m_pipe.Get(), operation);
                return Fail(waited == WAIT_TIMEOUT ? WriteOutcome::DeadlineExpired : WriteOutcome::Failed, error);
            }
            complete = GetOverlappedResult(m_pipe.Get(), &operation, &transferred, FALSE) != FALSE;
        }
        if (!complete) {
            return FailFromError(GetLastError());
        }
        if (transferred == 0) {
            return Fail(WriteOutcome::PeerClosed, ERROR_NO_DATA);
        }
        done += transferred;
    }
    return WriteOutcome::Ok;
}

WriteOutcome PipeProducer::Fail(WriteOutcome outcome, DWORD error) noexcept {
    m_lastError = error;
    return outcome;
}

WriteOutcome PipeProducer::FailFromError(DWORD error) noexcept {
    return Fail(IsPeerGone(error) ? WriteOutcome::PeerClosed : WriteOutcome::Failed, error);
}

}  // namespace ravlo
