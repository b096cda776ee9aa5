#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ravlo/producer.h"
#include "rvfeeder/connection_history.h"
#include "rvfeeder/demand_policy.h"
#include "stream/geometry.h"

namespace ravlo {

/// The connection to one camera, kept up by trying again, and said to the user when it changes. Times are steady, in
/// units of 100 ns. One thread uses it.
class CameraLink {
public:
    /// `pipe` must be a frame-pipe name. A write that takes longer than `writeTimeoutMs` ends the connection. Throws
    /// std::runtime_error or std::bad_alloc.
    CameraLink(const std::string& pipe, std::uint32_t writeTimeoutMs);

    bool IsConnected() const noexcept { return ravlo_producer_is_connected(m_producer.get()) != 0; }

    /// Tries once to connect, unless the last try was a moment ago. True when connected.
    bool TryConnect(std::int64_t now);

    /// Sends one packed NV12 picture. False when the connection broke over it; the picture is then lost.
    bool Send(const FrameGeometry& geometry, const void* nv12, std::int64_t now);

    /// The newest record of the camera's demand; nothing while none is known, or there is no connection.
    std::optional<CameraDemand> ReadDemand();

    /// Nothing is being sent because nobody watches.
    void Rest() noexcept { m_history.Resting(); }

    /// Gives up a connection whose camera may have gone; the next try is due at once.
    void Leave(std::int64_t now);

    /// The time without a connection counts from `now` on.
    void RestartAbsence(std::int64_t now) noexcept { m_absentSince = now; }

    /// How long there has been no connection, in units of 100 ns; 0 while there is one.
    std::int64_t AbsentFor(std::int64_t now) const noexcept { return IsConnected() ? 0 : now - m_absentSince; }

    std::uint64_t Connections() const noexcept { return m_history.Connections(); }

    /// Why there is no connection: the result of the last try that failed for a reason of its own; RAVLO_OK when none
    /// has failed since the last connection.
    ravlo_status LastConnectStatus() const noexcept { return m_connectStatus; }

private:
    struct Closer {
        void operator()(ravlo_producer* producer) const noexcept { ravlo_producer_close(producer); }
    };

    void KeepConnectStatus(ravlo_status status) noexcept;
    void ReportConnectFailure(std::int64_t now);
    std::string DescribeLoss(ravlo_status status, std::uint32_t error) const;
    void Lose(ravlo_status status, const FrameGeometry& geometry, std::int64_t now);

    std::string m_pipe;
    std::uint32_t m_writeTimeoutMs;
    std::unique_ptr<ravlo_producer, Closer> m_producer;
    ConnectionHistory m_history;
    std::int64_t m_absentSince;
    std::int64_t m_nextTry = 0;
    ravlo_status m_connectStatus = RAVLO_OK;
    ravlo_status m_reportedStatus = RAVLO_OK;  ///< what the user was last told about not connecting
};

}  // namespace ravlo
