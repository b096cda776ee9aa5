#include "stream/frame_publisher.h"

#include "trace/trace.h"

namespace ravlo {
namespace {

constexpr std::uint64_t kCadenceBoundMs = 100;

}  // namespace

void FramePublisher::PublishFrame(const FrameHeader& header, const std::uint8_t* payload,
                                  std::uint32_t length) noexcept {
    const std::uint64_t now = GetTickCount64();
    ReportCadence(now);
    m_lastReceivedTick = now;
    if (m_pool.Publish({payload, length}, now) && m_frameArrival != nullptr) {
        SetEvent(m_frameArrival);
    }
    ReportPoolCounters(length);
    if (!m_liveAnnounced) {
        m_liveAnnounced = true;
        RvTrace("PIPE delivering live frames %ux%u seq=%I64u", header.width, header.height, header.seq);
    }
}

void FramePublisher::ReportCadence(std::uint64_t now) noexcept {
    const std::uint64_t gap = now > m_lastReceivedTick ? now - m_lastReceivedTick : 0;
    if (m_lastReceivedTick != 0 && gap > kCadenceBoundMs) {
        if (!m_cadenceBroken) {
            m_cadenceBroken = true;
            RvTrace(
                "PIPE %I64u ms passed between frames - longer than the %I64u ms cadence bound, so a due request in "
                "the gap would have served the paced test pattern. The last real picture was NOT repeated and the "
                "client was NOT dropped",
                gap, kCadenceBoundMs);
        }
    } else if (m_cadenceBroken) {
        m_cadenceBroken = false;
        RvTracePipe("frame cadence recovered");
    }
}

void FramePublisher::ReportPoolCounters(std::uint32_t length) noexcept {
    const std::int32_t refused = m_pool.RefusedPublishes();
    if (!m_refusedReported && refused > 0) {
        m_refusedReported = true;
        RvTrace(
            "PIPE %ld publish(es) REFUSED by the frame pool: payload %zu bytes, slots hold %zu. Nothing was "
            "published, so the camera serves the test pattern - this is a producer sending a size this pool cannot "
            "carry, not a wire fault",
            refused, length, m_pool.Capacity());
    }
    const std::int32_t wrongLength = m_pool.WrongLengthFrames();
    if (!m_wrongLengthReported && wrongLength > 0) {
        m_wrongLengthReported = true;
        RvTrace(
            "PIPE RequestSample refused %ld published frame(s) whose length was not the %zu bytes this stream's "
            "geometry needs. The picture was NOT truncated and NOT padded with stale pixels; the test pattern was "
            "served instead",
            wrongLength, FrameBytes(m_geometry));
    }
    const std::int32_t torn = m_pool.TornReads();
    if (!m_tornReported && torn > 0) {
        m_tornReported = true;
        RvTrace(
            "PIPE RequestSample discarded %ld read attempt(s) that this thread overwrote mid-copy. NOTHING was "
            "dropped from the wire, and most are absorbed by the bounded retry rather than costing a test-pattern "
            "frame; a large or growing count means this reader is outrunning the consumer",
            torn);
    }
}

}  // namespace ravlo
