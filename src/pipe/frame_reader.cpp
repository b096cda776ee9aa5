#include "pipe/frame_reader.h"

#include <utility>

#include "pipe/authorized_user.h"
#include "platform/registry_names.h"
#include "trace/trace.h"

namespace ravlo {
namespace {

constexpr DWORD kNameRetryMs = 20;
constexpr DWORD kCreateRetryMs = 1000;
constexpr DWORD kListenWaitMs = 100;
constexpr DWORD kListenRetryMs = 1000;

/// True when the stop event asks to leave. So does a wait that fails: it fails at once, and a loop on it would spin.
bool StopRequested(HANDLE stopEvent, DWORD waitMs) noexcept {
    return WaitForSingleObject(stopEvent, waitMs) != WAIT_TIMEOUT;
}

}  // namespace

FrameReader::FrameReader(ActivationNames& names, FrameSink& sink, const AdvertisedSize& size) noexcept
    : m_resolver(names), m_sink(sink), m_size(size) {
}

void FrameReader::Run(HANDLE stopEvent) noexcept {
    while (!StopRequested(stopEvent, 0)) {
        if (RunPass(stopEvent) == Next::Leave) {
            return;
        }
    }
}

FrameReader::Next FrameReader::RunPass(HANDLE stopEvent) noexcept {
    if (!m_status.created.load()) {
        if (!m_resolver.ResolvePipeName(m_status.name)) {
            return StopRequested(stopEvent, kNameRetryMs) ? Next::Leave : Next::Continue;
        }
        if (CreatePipe(stopEvent) == Next::Leave) {
            return Next::Leave;
        }
        if (!m_status.created.load()) {
            return Next::Continue;
        }
    }
    return m_clientConnected ? ReceiveOne(stopEvent) : AwaitClient(stopEvent);
}

FrameReader::Next FrameReader::CreatePipe(HANDLE stopEvent) noexcept {
    // The anchor, once read, holds for the life of the pipe; a failed creation does not discard it.
    if (!m_status.authorizedUserSid.empty() || ObtainAnchor()) {
        // An account lookup can outlast the teardown's patience. A thread that was given up must not create the pipe
        // then: nobody would ever close it, and its name would be taken for every camera to come.
        if (StopRequested(stopEvent, 0)) {
            return Next::Leave;
        }
        if (m_endpoint.Create(m_status.name.text, m_status.authorizedUserSid)) {
            m_createFailReported = false;
            m_status.created.store(true);
            RvTrace("PIPE created %ls - DACL grants %ls and LOCAL SYSTEM, nobody else; waiting for a client",
                    m_endpoint.Name(), m_status.authorizedUserSid.c_str());
            RvTrace(
                "PIPE owner set to %ls - rvfeeder.exe accepts only S-1-5-19 (LOCAL SERVICE) or S-1-5-18 (SYSTEM); "
                "anything else here means the feeder will refuse this pipe and no frames will flow",
                m_endpoint.OwnerSid().c_str());
            return Next::Continue;
        }
        ReportCreateFailure();
    }
    return StopRequested(stopEvent, kCreateRetryMs) ? Next::Leave : Next::Continue;
}

bool FrameReader::ObtainAnchor() noexcept {
    try {
        return TryObtainAnchor();
    } catch (...) {
        // No memory for the account's name; the next attempt may have it.
        ReportUnusableAnchor(AnchorReason::ReadFailed);
        return false;
    }
}

bool FrameReader::TryObtainAnchor() {
    std::wstring sidString;
    const AnchorReason reason = ReadAuthorizedUserAnchor(sidString);
    if (reason != AnchorReason::Ok) {
        ReportUnusableAnchor(reason);
        return false;
    }
    std::wstring accountName;
    DWORD use = 0;
    switch (LookupSidUse(sidString, accountName, use)) {
        case SidLookup::User:
            break;
        case SidLookup::NotAUser:
            if (!std::exchange(m_anchorFailReported, true)) {
                RvTrace(
                    "FAIL PIPE the anchor at HKLM\\%ls\\%ls names %s, NOT a user account - the pipe will NOT be "
                    "created; serving the test pattern. A group SID in the pipe ACE would grant every member of that "
                    "group.",
                    &kAnchorKeyName[0], &kAnchorValueName[0], SidUseName(use));
            }
            return false;
        case SidLookup::NotResolvable:
            RvTrace(
                "WARN PIPE could not resolve the anchor SID to an account name from session 0; proceeding on the "
                "value-based check alone");
            break;
    }
    m_status.authorizedUserSid = std::move(sidString);
    m_anchorFailReported = false;
    RvTrace("PIPE authorized user read from HKLM\\%ls\\%ls: %ls", &kAnchorKeyName[0], &kAnchorValueName[0],
            m_status.authorizedUserSid.c_str());
    return true;
}

void FrameReader::ReportUnusableAnchor(AnchorReason reason) noexcept {
    if (!std::exchange(m_anchorFailReported, true)) {
        RvTrace(
            "FAIL PIPE no usable authorization anchor (%s) at HKLM\\%ls\\%ls - the pipe will NOT be created; serving "
            "the test pattern. Run rvsetup.exe --install <SID> as administrator. Absence of an anchor is refusal, "
            "not permission.",
            AnchorReasonWord(reason), &kAnchorKeyName[0], &kAnchorValueName[0]);
    }
}

void FrameReader::ReportCreateFailure() noexcept {
    if (std::exchange(m_createFailReported, true)) {
        return;
    }
    const DWORD error = m_endpoint.LastError();
    switch (m_endpoint.Stage()) {
        case CreateStage::Dacl:
            RvTrace(
                "FAIL PIPE the authorized SID would not build an ACL, GetLastError=%lu - no pipe was created; "
                "serving the test pattern",
                error);
            break;
        case CreateStage::Owner:
            RvTrace(
                "FAIL PIPE this process could not determine its OWN token user SID, GetLastError=%lu - no pipe was "
                "created, because a pipe with an unstated owner is one rvfeeder.exe refuses; serving the test pattern",
                error);
            break;
        case CreateStage::Descriptor:
            RvTrace(
                "FAIL PIPE the security descriptor (DACL or OWNER) could not be assembled, GetLastError=%lu - no "
                "pipe was created; serving the test pattern",
                error);
            break;
        case CreateStage::ListenEvent:
            RvTrace(
                "FAIL PIPE the overlapped listen event could not be created, GetLastError=%lu - no pipe was created; "
                "serving the test pattern",
                error);
            break;
        case CreateStage::Name:
            RvTrace(
                "FAIL PIPE the pipe name is not a ravlo name, GetLastError=%lu - no pipe was created; serving the test "
                "pattern",
                error);
            break;
        default:
            RvTrace("FAIL PIPE could not create %ls, GetLastError=%lu%s - serving the test pattern",
                    &m_status.name.text[0], error,
                    error == ERROR_ACCESS_DENIED
                        ? "  (the name is already held by another process - a squat, or a stray earlier instance)"
                        : "");
            break;
    }
}

FrameReader::Next FrameReader::AwaitClient(HANDLE stopEvent) noexcept {
    if (m_endpoint.WaitForClient(kListenWaitMs)) {
        if (std::exchange(m_listenFailReported, false)) {
            RvTracePipe("the listen recovered");
        }
        m_clientConnected = true;
        m_geometryMismatch = false;
        m_sink.RearmLiveAnnouncement();
        RvTrace("PIPE client connected - admitted by the DACL for %ls", m_status.authorizedUserSid.c_str());
        return Next::Continue;
    }
    const ListenState state = m_endpoint.PollListen();
    if (state == ListenState::Listening || state == ListenState::Connected) {
        return Next::Continue;
    }
    if (!std::exchange(m_listenFailReported, true)) {
        RvTrace(
            "FAIL PIPE the listen could not be armed, GetLastError=%lu - retrying once a second. The camera serves the "
            "test pattern until it recovers",
            m_endpoint.LastError());
    }
    return StopRequested(stopEvent, kListenRetryMs) ? Next::Leave : Next::Continue;
}

FrameReader::Next FrameReader::ReceiveOne(HANDLE stopEvent) noexcept {
    FrameHeader header{};
    if (!TryReceive(header, stopEvent)) {
        return HandleFailedReceive(header);
    }
    HandleFrame(header);
    return Next::Continue;
}

bool FrameReader::TryReceive(FrameHeader& header, HANDLE stopEvent) noexcept {
    try {
        return RecvFrame(m_endpoint, header, m_receiveBuffer, m_size.frameBytes, stopEvent);
    } catch (...) {
        return false;
    }
}

FrameReader::Next FrameReader::HandleFailedReceive(const FrameHeader& header) noexcept {
    const RecvStatus status = m_endpoint.Status();
    if (status == RecvStatus::Cancelled) {
        return Next::Leave;
    }
    if (status == RecvStatus::NoCancelEvent) {
        RvTrace(
            "FAIL PIPE reader has no cancel event - RecvFrame refused to issue any I/O. The reader thread is "
            "exiting; the camera will serve the test pattern");
        return Next::Leave;
    }
    // The stream has no framing but its headers: after a fault, nothing that follows can be trusted.
    DropClient();
    switch (status) {
        case RecvStatus::Oversized:
            RvTrace(
                "FAIL PIPE oversized frame refused before allocation: wire declared %u bytes (%ux%u), this stream "
                "accepts at most %u",
                header.bytes, header.width, header.height, m_size.frameBytes);
            break;
        case RecvStatus::BadHeader:
            RvTrace(
                "FAIL PIPE header rejected: %s (wire magic=0x%08X version=%u format=0x%08X %ux%u bytes=%u) - pattern",
                HeaderVerdictWord(m_endpoint.Verdict()), header.magic, header.version, header.format, header.width,
                header.height, header.bytes);
            break;
        case RecvStatus::PeerClosed:
            RvTracePipe(
                "the writer closed the pipe - client slot released and the listen re-armed, waiting for rvfeeder.exe "
                "to reconnect. Pattern until it does");
            break;
        default:
            RvTracePipe(
                "client dropped by an I/O FAULT mid-frame - not a disconnect and not a bad header. Framing is lost; "
                "pattern");
            break;
    }
    return Next::Continue;
}

void FrameReader::HandleFrame(const FrameHeader& header) noexcept {
    if (header.width != m_size.width || header.height != m_size.height) {
        if (!std::exchange(m_geometryMismatch, true)) {
            m_sink.RearmLiveAnnouncement();
            RvTrace("PIPE geometry mismatch: wire %ux%u, advertised %ux%u - pattern", header.width, header.height,
                    m_size.width, m_size.height);
        }
        return;
    }
    if (std::exchange(m_geometryMismatch, false)) {
        RvTracePipe("geometry recovered");
    }
    // Cannot follow from a frame that was received whole; a second guard in front of the slots.
    if (m_receiveBuffer.Size() < m_size.frameBytes) {
        DropClient();
        RvTracePipe("client dropped (payload shorter than the header promised) - pattern");
        return;
    }
    m_sink.PublishFrame(header, m_receiveBuffer.Data(), m_receiveBuffer.Size());
}

void FrameReader::DropClient() noexcept {
    m_endpoint.DisconnectClient();
    m_clientConnected = false;
    m_sink.RearmLiveAnnouncement();
}

void FrameReader::Release() noexcept {
    m_endpoint.Close();
    m_status.created.store(false);
    m_status.name.Clear();
    m_resolver.Reset();
    m_clientConnected = false;
    m_sink.RearmLiveAnnouncement();
}

}  // namespace ravlo
