#include "rvfeeder/camera_link.h"

#include <algorithm>
#include <utility>

#include "common/clock.h"
#include "common/messages.h"
#include "common/wide_text.h"

namespace ravlo {
namespace {

constexpr std::int64_t kRetry = 50 * kTicksPerMs;
/// A camera that drops this producer again and again is not asked more often than this.
constexpr std::int64_t kRetryWhenUnwelcome = kTicksPerSecond;
/// A pipe is busy or missing for a moment after every disconnect; only what lasts is worth a line.
constexpr std::int64_t kReportAfter = 500 * kTicksPerMs;
/// A connection that breaks sooner than this was most likely refused for what was sent.
constexpr std::int64_t kQuickLoss = 500 * kTicksPerMs;
constexpr unsigned kQuickLossesUntilHint = 3;

std::string DescribeConnectError(DWORD error, const std::string& pipe) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
            return "waiting for the camera: nothing serves " + pipe + " yet";
        case ERROR_PIPE_BUSY:
            return "waiting for the camera: " + pipe + " is taken by another producer or not listening yet";
        case ERROR_ACCESS_DENIED:
            return pipe + " does not admit this account: run as the authorized user or as SYSTEM";
        case ERROR_INVALID_OWNER:
            return pipe +
                   " is owned by an account that is neither the camera service nor the authorized user; "
                   "no frame is sent to it";
        default:
            return "cannot open " + pipe + ": " + SystemErrorText(error);
    }
}

}  // namespace

CameraLink::CameraLink(std::wstring pipeName, DWORD writeTimeoutMs)
    : m_pipeName(std::move(pipeName)), m_writeTimeoutMs(writeTimeoutMs), m_absentSince(SteadyTicks()) {
}

bool CameraLink::TryConnect(std::int64_t now) {
    if (IsConnected()) {
        return true;
    }
    if (now < m_nextTry) {
        return false;
    }
    m_nextTry = now + RetryInterval();
    if (!m_producer.ConnectToServer(m_pipeName.c_str(), 0)) {
        KeepConnectError(m_producer.LastError());
        ReportConnectFailure(now);
        return false;
    }
    ++m_connections;
    m_connectedAt = now;
    m_connectError = 0;
    m_reportedError = 0;
    if (m_quickLosses < kQuickLossesUntilHint) {
        Say("connected to " + ToUtf8(m_pipeName) + ", owner: " + OwnerTrustWord(m_producer.Owner()));
    }
    return true;
}

bool CameraLink::Send(const FrameHeader& header, const void* payload, std::int64_t now) {
    const WriteOutcome outcome = m_producer.WriteFrame(header, payload, m_writeTimeoutMs);
    const std::int64_t end = SteadyTicks();
    m_longestWrite = std::max(m_longestWrite, end - now);
    if (outcome == WriteOutcome::Ok) {
        if (end - m_connectedAt > kQuickLoss) {
            m_quickLosses = 0;
        }
        return true;
    }
    Lose(outcome, header, end);
    return false;
}

std::int64_t CameraLink::AbsentFor(std::int64_t now) const noexcept {
    return IsConnected() ? 0 : now - m_absentSince;
}

std::int64_t CameraLink::RetryInterval() const noexcept {
    return m_quickLosses < kQuickLossesUntilHint ? kRetry : kRetryWhenUnwelcome;
}

void CameraLink::KeepConnectError(DWORD error) noexcept {
    // A pipe that was opened and closed again for its owner stays busy until that owner looks, which is no news.
    if (error != ERROR_PIPE_BUSY || m_connectError != ERROR_INVALID_OWNER) {
        m_connectError = error;
    }
}

void CameraLink::ReportConnectFailure(std::int64_t now) {
    const bool mayPass = m_connectError == ERROR_FILE_NOT_FOUND || m_connectError == ERROR_PIPE_BUSY;
    if (m_connectError != m_reportedError && (!mayPass || AbsentFor(now) >= kReportAfter)) {
        m_reportedError = m_connectError;
        Say(DescribeConnectError(m_connectError, ToUtf8(m_pipeName)));
    }
}

void CameraLink::Lose(WriteOutcome outcome, const FrameHeader& header, std::int64_t now) {
    const DWORD error = m_producer.LastError();
    m_producer.Disconnect();
    m_absentSince = now;
    m_quickLosses = now - m_connectedAt <= kQuickLoss ? m_quickLosses + 1 : 0;
    m_nextTry = now + RetryInterval();
    if (m_quickLosses < kQuickLossesUntilHint) {
        Say(std::string("lost the camera: ") + WriteOutcomeWord(outcome) + ", " + SystemErrorText(error) +
            "; connecting again");
    } else if (m_quickLosses == kQuickLossesUntilHint) {
        Say("the camera drops every connection at once: most likely it was started with a smaller picture than the " +
            std::to_string(header.width) + "x" + std::to_string(header.height) +
            " sent here; trying once a second from now on");
    }
}

}  // namespace ravlo
