#pragma once

#include <windows.h>

#include <cstdint>

#include "pipe/anchor_words.h"
#include "pipe/frame_pipe_status.h"
#include "pipe/pipe_endpoint.h"
#include "pipe/pipe_name_resolver.h"
#include "pipe/receive_buffer.h"
#include "ravlo/wire.h"

namespace ravlo {

/// Where received frames go. Implemented by the stream; called on the reader thread, and by the teardown once that
/// thread has ended.
class FrameSink {
public:
    /// Takes a frame whose header was found good and whose size is the advertised one. The bytes are borrowed.
    virtual void PublishFrame(const FrameHeader& header, const std::uint8_t* payload,
                              std::uint32_t length) noexcept = 0;

    /// The live feed was interrupted: the next published frame is worth a line again.
    virtual void RearmLiveAnnouncement() noexcept = 0;

protected:
    ~FrameSink() = default;
};

/// The picture size that the stream advertises, and so the only one it publishes.
struct AdvertisedSize {
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t frameBytes;
};

/// The loop of the reader thread: finds the pipe's name, reads the anchor, creates the pipe, listens, receives frames
/// and hands the good ones to the sink. Whatever goes wrong on the way is written to the log once per run of failures
/// and tried again; the camera meanwhile serves the test pattern. Owned by the stream, driven by the reader thread
/// alone; the teardown may call Release once that thread has ended.
class FrameReader {
public:
    FrameReader(ActivationNames& names, FrameSink& sink, const AdvertisedSize& size) noexcept;

    /// Runs until `stopEvent` is signalled.
    void Run(HANDLE stopEvent) noexcept;

    /// Closes the pipe and forgets its name, so that a later run begins afresh.
    void Release() noexcept;

    const FramePipeStatus& Status() const noexcept { return m_status; }

private:
    enum class Next { Continue, Leave };

    Next RunPass(HANDLE stopEvent) noexcept;
    Next CreatePipe(HANDLE stopEvent) noexcept;
    bool ObtainAnchor() noexcept;
    bool TryObtainAnchor();
    void ReportUnusableAnchor(AnchorReason reason) noexcept;
    void ReportCreateFailure() noexcept;
    Next AwaitClient(HANDLE stopEvent) noexcept;
    Next ReceiveOne(HANDLE stopEvent) noexcept;
    bool TryReceive(FrameHeader& header, HANDLE stopEvent) noexcept;
    Next HandleFailedReceive(const FrameHeader& header) noexcept;
    void HandleFrame(const FrameHeader& header) noexcept;
    void DropClient() noexcept;

    PipeNameResolver m_resolver;
    FrameSink& m_sink;
    const AdvertisedSize m_size;
    FramePipeStatus m_status;
    PipeEndpoint m_endpoint;
    ReceiveBuffer m_receiveBuffer;
    bool m_clientConnected = false;
    bool m_geometryMismatch = false;
    bool m_createFailReported = false;
    bool m_anchorFailReported = false;
    bool m_listenFailReported = false;
};

}  // namespace ravlo
