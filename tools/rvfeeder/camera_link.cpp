#include "rvfeeder/camera_link.h"

#include <stdexcept>

#include "common/clock.h"
#include "common/messages.h"
#include "common/parse_text.h"
#include "common/wide_text.h"

namespace ravlo {
namespace {

/// A pipe is busy or missing for a moment after every disconnect; only what lasts is worth a line.
constexpr std::int64_t kReportAfter = 500 * kTicksPerMs;

std::string DescribeConnectStatus(ravlo_status status, const std::string& pipe, std::uint32_t error) {
    switch (status) {
        case RAVLO_NO_CAMERA:
            return "waiting for the camera: nothing serves " + pipe + " yet";
        case RAVLO_BUSY:
            return "waiting for the camera: " + pipe + " is taken by another producer or not listening yet";
        case RAVLO_ACCESS_DENIED:
            return pipe +
                   " does not admit this account; \"rvsetup install --me\", run as administrator, makes it the "
                   "authorized user, and \"rvsetup doctor\" tells who is. Trying again until it does";
        case RAVLO_UNTRUSTED_OWNER:
            return pipe +
                   " is owned by an account that is neither the camera service nor the authorized user; no frame is "
                   "sent to it. \"rvsetup doctor\" tells more. Trying again until the camera serves it";
        default:
            return "cannot open " + pipe + ": " + ravlo_status_text(status) + ", " + SystemErrorText(error);
    }
}

}  // namespace

CameraLink::CameraLink(const std::string& pipe, std::uint32_t writeTimeoutMs)
    : m_pipe(pipe), m_writeTimeoutMs(writeTimeoutMs), m_absentSince(SteadyTicks()) {
    ravlo_producer* producer = nullptr;
    const ravlo_status status = ravlo_producer_open(pipe.c_str(), &producer);
    m_producer.reset(producer);
    if (status != RAVLO_OK) {
        throw std::runtime_error(std::string("cannot make a producer for ") + pipe + ": " + ravlo_status_text(status));
    }
}

bool CameraLink::TryConnect(std::int64_t now) {
    if (IsConnected()) {
        return true;
    }
    if (now < m_nextTry) {
        return false;
    }
    m_nextTry = now + m_history.RetryInterval();
    const ravlo_status status = ravlo_producer_connect(m_producer.get(), 0);
    if (status != RAVLO_OK) {
        KeepConnectStatus(status);
        ReportConnectFailure(now);
        return false;
    }
    m_history.Connected(now);
    m_connectStatus = RAVLO_OK;
    m_reportedStatus = RAVLO_OK;
    if (!m_history.IsUnwelcome()) {
        Say("connected to " + m_pipe);
    }
    return true;
}

bool CameraLink::Send(const FrameGeometry& geometry, const void* nv12, std::int64_t now) {
    const ravlo_status status =
        ravlo_producer_write(m_producer.get(), geometry.width, geometry.height, nv12, m_writeTimeoutMs);
    if (status == RAVLO_OK) {
        m_history.FrameTaken();
        return true;
    }
    Lose(status, geometry, now);
    return false;
}

std::optional<CameraDemand> CameraLink::ReadDemand() {
    ravlo_demand demand{};
    if (ravlo_producer_read_demand(m_producer.get(), &demand) != RAVLO_OK) {
        return std::nullopt;
    }
    return CameraDemand{demand.sequence, demand.idle_ms, demand.requests};
}

void CameraLink::Leave(std::int64_t now) {
    if (IsConnected()) {
        ravlo_producer_disconnect(m_producer.get());
        m_absentSince = now;
        m_nextTry = now;
    }
}

void CameraLink::KeepConnectStatus(ravlo_status status) noexcept {
    // A pipe that was opened and closed again for its owner stays busy until that owner looks, which is no news.
    if (status != RAVLO_BUSY || m_connectStatus != RAVLO_UNTRUSTED_OWNER) {
        m_connectStatus = status;
    }
}

void CameraLink::ReportConnectFailure(std::int64_t now) {
    const bool mayPass = m_connectStatus == RAVLO_NO_CAMERA || m_connectStatus == RAVLO_BUSY;
    if (m_connectStatus != m_reportedStatus && (!mayPass || AbsentFor(now) >= kReportAfter)) {
        m_reportedStatus = m_connectStatus;
        Say(DescribeConnectStatus(m_connectStatus, m_pipe, ravlo_producer_system_error(m_producer.get())));
    }
}

std::string CameraLink::DescribeLoss(ravlo_status status, std::uint32_t error) const {
    switch (status) {
        case RAVLO_DISCONNECTED:
            return "it has closed the connection";
        case RAVLO_TIMED_OUT:
            return "it has not taken a picture within " + std::to_string(m_writeTimeoutMs) + " ms";
        default:
            return std::string(ravlo_status_text(status)) + ", " + SystemErrorText(error);
    }
}

void CameraLink::Lose(ravlo_status status, const FrameGeometry& geometry, std::int64_t now) {
    const std::uint32_t error = ravlo_producer_system_error(m_producer.get());
    ravlo_producer_disconnect(m_producer.get());
    m_absentSince = now;
    const bool isHintDue = m_history.Lost(now);
    m_nextTry = now + m_history.RetryInterval();
    if (!m_history.IsUnwelcome()) {
        Say("lost the camera: " + DescribeLoss(status, error) + "; connecting again");
    }
    if (isHintDue) {
        const std::string size = SizeText(geometry);
        Say("the camera drops every connection at once: most likely its pictures are smaller than the " + size +
            " sent here, and it takes none that are longer than its own. Start the camera with " + size +
            " or convert the input (--expect WxH refuses a wrong size up front); \"rvsetup doctor\" and the camera's "
            "log tell more. Trying once a second from now on");
    }
}

}  // namespace ravlo
