#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <thread>

#include "pipe/arrivals.h"
#include "pipe/frame_reader.h"
#include "platform/unique_handle.h"
#include "stream/frame_pool.h"
#include "stream/frame_publisher.h"

namespace ravlo::bench {

/// The module's own way from the pipe to the frame slots, on a thread of its own: reader loop, endpoint, publish step
/// and pool as a stream has them, with the event that a stream's requests wait for. The anchor must name this process's
/// user.
class ProductReader final : private ActivationNames, private FrameSink {
public:
    ProductReader(const std::wstring& pipeName, const FrameGeometry& geometry, std::size_t frames);
    ProductReader(const ProductReader&) = delete;
    ProductReader& operator=(const ProductReader&) = delete;
    ~ProductReader();

    /// Each frame at the moment at which it was published.
    const Arrivals& Received() const noexcept { return m_arrivals; }

private:
    ExplicitName ReadNames(PipeName& name, std::uint32_t& hostPid) noexcept override;
    void PublishFrame(const FrameHeader& header, const std::uint8_t* payload, std::uint32_t length) noexcept override;
    void RearmLiveAnnouncement() noexcept override { m_publisher.RearmLiveAnnouncement(); }

    const std::wstring m_pipeName;
    Arrivals m_arrivals;
    UniqueObject m_stopEvent;
    UniqueObject m_frameArrival;
    FramePool m_pool;
    FramePublisher m_publisher;
    FrameReader m_reader;
    std::thread m_thread;
};

}  // namespace ravlo::bench
