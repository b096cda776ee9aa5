#include "pipe/frame_receive.h"

namespace ravlo {
namespace {

RecvStatus StatusOfFailedRead(ReadOutcome outcome) noexcept {
    switch (outcome) {
        case ReadOutcome::Cancelled:
            return RecvStatus::Cancelled;
        case ReadOutcome::PeerClosed:
            return RecvStatus::PeerClosed;
        default:
            return RecvStatus::IoFault;
    }
}

}  // namespace

void ReceiveFrame(FrameSource& source, FrameHeader& header, ReceiveBuffer& buffer, std::uint64_t maxBytes,
                  RecvStatus& status, HeaderVerdict& verdict) {
    status = RecvStatus::IoFault;
    ReadOutcome outcome = source.ReadBytes(&header, kFrameHeaderBytes);
    if (outcome != ReadOutcome::Complete) {
        status = StatusOfFailedRead(outcome);
        return;
    }
    const HeaderVerdict judged = ValidateFrameHeader(header);
    if (judged != HeaderVerdict::Ok) {
        verdict = judged;
        status = RecvStatus::BadHeader;
        return;
    }
    if (header.bytes > maxBytes) {
        status = RecvStatus::Oversized;
        return;
    }
    buffer.Resize(header.bytes);
    outcome = source.ReadBytes(buffer.Data(), header.bytes);
    status = outcome == ReadOutcome::Complete ? RecvStatus::Ok : StatusOfFailedRead(outcome);
}

}  // namespace ravlo
