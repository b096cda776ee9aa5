#pragma once

#include <cstdint>

#include "pipe/frame_header.h"
#include "pipe/receive_buffer.h"
#include "ravlo/wire.h"

namespace ravlo {

/// How an exact read ended.
enum class ReadOutcome : std::uint32_t { Complete = 0, Cancelled = 1, PeerClosed = 2, Failed = 3 };

/// How the receipt of one frame ended.
enum class RecvStatus : std::uint32_t {
    Ok = 0,
    IoFault = 1,        ///< a read failed, an exception escaped, or no client is there
    PeerClosed = 2,     ///< the writer closed its end
    BadHeader = 3,      ///< the header was refused; the verdict says why
    Oversized = 4,      ///< the header is valid but declares more than this stream accepts
    Cancelled = 5,      ///< the stop event was signalled
    NoCancelEvent = 6,  ///< there was no stop event, and so no I/O
};

/// A byte stream that frames are taken from.
class FrameSource {
public:
    /// Reads exactly `length` bytes into `buffer`.
    virtual ReadOutcome ReadBytes(void* buffer, std::uint32_t length) = 0;

protected:
    ~FrameSource() = default;
};

/// Takes exactly one frame off `source`: header, judgement, then the payload into `buffer`, which is not touched before
/// the header is found good and its byte count at most `maxBytes`. `status` is set before every step that may throw
/// (std::bad_alloc from the buffer), so it is right however this ends. `verdict` is set when a header was refused.
void ReceiveFrame(FrameSource& source, FrameHeader& header, ReceiveBuffer& buffer, std::uint64_t maxBytes,
                  RecvStatus& status, HeaderVerdict& verdict);

}  // namespace ravlo
