#include "rvsetup/doctor/pipe_facts.h"

#include <array>

#include "common/wide_text.h"
#include "gate/demand_record.h"
#include "pipe/authorized_user.h"
#include "pipe/pipe_producer.h"
#include "platform/unique_handle.h"

namespace ravlo {
namespace {

constexpr DWORD kRecordMs = 2000;
/// Between two clients a pipe is not listening for a moment; one that stays so for this long has a client.
constexpr DWORD kLookMs = 50;

std::wstring TrustedUser() {
    std::wstring user;
    return ReadAuthorizedUserAnchor(user) == AnchorReason::Ok ? user : std::wstring();
}

/// One whole record within kRecordMs.
bool ReadRecord(HANDLE gate, HANDLE interrupt, DemandRecord& record) {
    const UniqueObject done(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    DemandRecordBytes bytes{};
    OVERLAPPED reading{};
    reading.hEvent = done.Get();
    if (!done || (!ReadFile(gate, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &reading) &&
                  GetLastError() != ERROR_IO_PENDING)) {
        return false;
    }
    const std::array<HANDLE, 2> events{done.Get(), interrupt};
    if (WaitForMultipleObjects(interrupt != nullptr ? 2 : 1, events.data(), FALSE, kRecordMs) != WAIT_OBJECT_0) {
        CancelIoEx(gate, &reading);
    }
    DWORD read = 0;
    return GetOverlappedResult(gate, &reading, &read, TRUE) && read == bytes.size() &&
           DecodeDemandRecord(bytes, record);
}

PipePresence Look(const std::wstring& name, std::string& error) {
    if (WaitNamedPipeW(name.c_str(), kLookMs)) {
        return PipePresence::Free;
    }
    switch (const DWORD code = GetLastError()) {
        case ERROR_SEM_TIMEOUT:
        case ERROR_PIPE_BUSY:
            return PipePresence::Busy;
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return PipePresence::Absent;
        default:
            error = SystemErrorText(code);
            return PipePresence::Unknown;
    }
}

void ProbeGate(const std::wstring& name, HANDLE interrupt, ProbeFacts& facts) {
    const UniqueFile gate(CreateFileW((name + L".gate").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    if (!gate) {
        const DWORD error = GetLastError();
        facts.gateBusy = error == ERROR_PIPE_BUSY;
        facts.gateDenied = error == ERROR_ACCESS_DENIED;
        facts.gateError = SystemErrorText(error);
        return;
    }
    facts.gateOpened = true;
    std::wstring owner;
    if (GetPipeOwnerSid(gate.Get(), owner)) {
        facts.gateOwner = ToUtf8(owner);
        facts.gateTrusted = ClassifyOwner(owner, TrustedUser()) != OwnerTrust::Untrusted;
    }
    DemandRecord record{};
    if (facts.gateTrusted && ReadRecord(gate.Get(), interrupt, record)) {
        facts.gotRecord = true;
        facts.idleMs = record.idleMs;
        facts.requestCount = record.requestCount;
    }
}

void ProbeFrames(const std::wstring& name, ProbeFacts& facts) {
    std::string ignored;
    if (Look(name, ignored) == PipePresence::Busy) {
        facts.framesBusy = true;
        return;
    }
    PipeProducer producer;
    if (producer.ConnectToServer(name.c_str(), 0)) {
        facts.framesOpened = true;
        facts.framesTrusted = true;
        facts.framesOwner = OwnerTrustWord(producer.Owner());
    } else if (producer.LastError() == ERROR_PIPE_BUSY) {
        facts.framesBusy = true;
    } else if (producer.LastError() == ERROR_INVALID_OWNER) {
        facts.framesOpened = true;
        facts.framesError = "it belongs to somebody whom a producer does not trust";
    } else {
        facts.framesDenied = producer.LastError() == ERROR_ACCESS_DENIED;
        facts.framesError = SystemErrorText(producer.LastError());
    }
}

}  // namespace

PipeFacts LookForPipe(const std::wstring& name) {
    PipeFacts facts;
    facts.name = ToUtf8(name);
    facts.frames = Look(name, facts.error);
    std::string ignored;
    facts.gate = Look(name + L".gate", ignored);
    return facts;
}

ProbeFacts ProbePipe(const std::wstring& name, HANDLE interrupt) {
    ProbeFacts facts;
    facts.name = ToUtf8(name);
    ProbeGate(name, interrupt, facts);
    ProbeFrames(name, facts);
    return facts;
}

}  // namespace ravlo
