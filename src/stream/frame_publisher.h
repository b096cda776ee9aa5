#pragma once

#include <windows.h>

#include <cstdint>

#include "pipe/frame_reader.h"
#include "stream/frame_pool.h"
#include "stream/geometry.h"

namespace ravlo {

/// The step between the reader thread and the frame pool: publishes each received frame, wakes a waiting request, and
/// turns the quiet fallbacks of the stream into lines, each written once when a problem first shows and, where a
/// problem can end, once when it ends. Runs on the reader thread, and in the teardown once that thread has ended.
class FramePublisher final : public FrameSink {
public:
    FramePublisher(FramePool& pool, const FrameGeometry& geometry) noexcept : m_pool(pool), m_geometry(geometry) {}

    /// The event that a published frame sets; may be null. Borrowed.
    void SetFrameArrivalEvent(HANDLE frameArrival) noexcept { m_frameArrival = frameArrival; }

    void PublishFrame(const FrameHeader& header, const std::uint8_t* payload, std::uint32_t length) noexcept override;
    void RearmLiveAnnouncement() noexcept override { m_liveAnnounced = false; }

private:
    void ReportCadence(std::uint64_t now) noexcept;
    void ReportPoolCounters(std::uint32_t length) noexcept;

    FramePool& m_pool;
    const FrameGeometry m_geometry;
    HANDLE m_frameArrival = nullptr;
    std::uint64_t m_lastReceivedTick = 0;  ///< ms; 0 before the first frame
    bool m_cadenceBroken = false;
    bool m_refusedReported = false;
    bool m_wrongLengthReported = false;
    bool m_tornReported = false;
    bool m_liveAnnounced = false;
};

}  // namespace ravlo
