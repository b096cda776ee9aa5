#include "rvfeeder/feeder.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "common/clock.h"
#include "common/messages.h"
#include "common/parse_text.h"
#include "common/sleeper.h"
#include "common/test_card_stamp.h"
#include "rvfeeder/camera_link.h"
#include "rvfeeder/demand_hint.h"
#include "rvfeeder/demand_news.h"
#include "rvfeeder/demand_policy.h"
#include "rvfeeder/feed_report.h"
#include "rvfeeder/feed_statistics.h"
#include "rvfeeder/on_demand.h"
#include "rvfeeder/open_input.h"
#include "rvfeeder/picture_flow.h"

namespace ravlo {
namespace {

/// No wait is longer: so often the demand, the camera, the limits and the user's wish to end are looked at.
constexpr std::chrono::milliseconds kLookUp{50};
constexpr std::int64_t kLookUpTicks = kLookUp.count() * kTicksPerMs;

FeedEnd EndWith(std::string reason, ExitCode code) {
    return {std::move(reason), static_cast<int>(code)};
}

/// One run of the program. A single thread goes round: it looks after everything that is not a picture, then takes one
/// step with the pictures.
class FeedRun {
public:
    FeedRun(const FeederOptions& options, const Interrupt& interrupt)
        : m_options(options),
          m_interrupt(interrupt),
          m_sleeper(interrupt.Event()),
          m_begin(SteadyTicks()),
          m_link(options.pipe, options.writeTimeoutMs),
          m_policy(options.idleAfterMs, options.always),
          m_statistics(m_begin),
          m_report(options.pipe, options.json) {
        if (options.command.empty()) {
            m_ownFlow =
                std::make_unique<PictureFlow>(InputOpener(options.input), options.input.loop, IsLive(options.input));
        } else {
            m_onDemand = std::make_unique<OnDemand>(options.command, options.input);
        }
    }

    ExitCode Run() {
        std::optional<FeedEnd> end;
        while (!end) {
            const std::int64_t now = SteadyTicks();
            LookAfterCamera(now);
            if (m_report.IsDue(now)) {
                m_report.Show(now, Status(now));
            }
            end = Limits(now);
            if (!end) {
                end = Step(now);
            }
        }
        if (m_onDemand) {
            m_onDemand->Close(SteadyTicks());  // ends while the last report is written
        }
        FeedStatus status = Status(SteadyTicks());
        status.state = FeedState::Ended;
        m_report.End(status, *end);
        if (m_onDemand) {
            m_onDemand->AwaitEnd();
        }
        return static_cast<ExitCode>(end->exitCode);
    }

private:
    PictureFlow* Flow() noexcept { return m_onDemand ? m_onDemand->Flow() : m_ownFlow.get(); }

    bool IsWanted() const noexcept { return m_verdict == DemandPolicy::Verdict::Wanted; }

    /// Before the input has said what it holds there is nothing to connect for, and how long it takes to open is not
    /// the camera's fault.
    bool IsCameraNeeded() const noexcept { return m_onDemand || m_ownFlow->Geometry(); }

    void LookAfterCamera(std::int64_t now) {
        if (IsCameraNeeded()) {
            m_link.TryConnect(now);
        } else {
            m_link.RestartAbsence(now);
        }
        if (now >= m_nextDemand) {
            m_nextDemand = now + kLookUpTicks;
            LookAtDemand(now);
        }
        if (m_onDemand) {
            m_onDemand->Follow(now, m_link.IsConnected(), m_demand.has_value(), IsWanted());
        }
    }

    void LookAtDemand(std::int64_t now) {
        const bool wasTold = m_demand.has_value();
        m_demand = m_link.ReadDemand();
        m_statistics.Demand(now, m_demand);
        const DemandPolicy::Verdict verdict = m_policy.Judge(m_demand);
        // While nothing is written only the records tell that the camera is still there; without them, a new connection.
        if (!IsWanted() && wasTold && !m_demand) {
            m_link.Leave(now);
        }
        m_verdict = verdict;
        if (!IsWanted()) {
            m_link.Rest();
        }
        if (!m_onDemand) {  // which says itself when it starts and ends the command
            Tell(m_news.Observe(now, m_link.IsConnected(), m_demand.has_value(), IsWanted()));
        }
        if (m_hint.Observe(now, m_link.IsConnected(), m_demand)) {
            TellNoDemand();
        }
    }

    void Tell(DemandNews::News news) const {
        switch (news) {
            case DemandNews::News::None:
                break;
            case DemandNews::News::Idle:
                Say(IsLive(m_options.input) ? "nobody watches the camera: the input is read on and thrown away"
                                            : "nobody watches the camera: the input waits");
                break;
            case DemandNews::News::WantedAgain:
                Say("pictures are wanted again: sending");
                break;
            case DemandNews::News::Unknown:
                Say("the camera no longer tells whether anybody watches: sending");
                break;
        }
    }

    void TellNoDemand() const {
        const std::string wrongSize = m_geometry ? "not " + SizeText(*m_geometry) : "of another size than yours";
        Say("the camera on " + m_options.pipe +
            " has been asked for no picture so far. Open it in a program that shows cameras. If one shows it already, "
            "that camera is another one (see --pipe); and if it shows only its test pattern, its pictures are " +
            wrongSize +
            " (\"geometry mismatch\" in the camera's log; --expect WxH refuses a wrong size up front). \"rvsetup doctor\" tells more");
    }

    std::optional<FeedEnd> Limits(std::int64_t now) {
        if (m_interrupt.IsRaised()) {
            return EndWith("interrupted", ExitCode::Interrupted);
        }
        if (m_options.frameLimit && m_statistics.SentCount() >= *m_options.frameLimit) {
            return EndWith("all frames that --frames asks for have been sent", ExitCode::Ok);
        }
        if (m_options.timeLimit && now - m_begin >= *m_options.timeLimit) {
            return m_link.Connections() != 0 ? EndWith("the time that --seconds allows is over", ExitCode::Ok)
                                             : Absence("--seconds");
        }
        if (m_options.absenceLimit && m_link.AbsentFor(now) >= *m_options.absenceLimit) {
            return Absence("--timeout");
        }
        return std::nullopt;
    }

    FeedEnd Absence(const std::string& option) const {
        switch (m_link.LastConnectStatus()) {
            case RAVLO_ACCESS_DENIED:
                return EndWith("giving up: the camera's pipe does not admit this account", ExitCode::AccessDenied);
            case RAVLO_UNTRUSTED_OWNER:
                return EndWith("giving up: the camera's pipe belongs to an account that is not trusted",
                               ExitCode::AccessDenied);
            default:
                return EndWith("giving up: no camera took frames for the time that " + option + " allows",
                               ExitCode::PeerAbsent);
        }
    }

    std::optional<FeedEnd> Step(std::int64_t now) {
        PictureFlow* const flow = Flow();
        // A film starts when somebody is there to see it: until the first connection the input waits too.
        if (flow == nullptr || (flow->Geometry() && m_link.Connections() == 0)) {
            m_sleeper.Wait(kLookUpTicks);
            return std::nullopt;
        }
        const PictureFlow::Step step = flow->Next(now, IsWanted(), kLookUp);
        if (flow->Geometry() != m_geometry && flow->Geometry()) {
            AnnounceInput(*flow->Geometry());
        }
        switch (step.kind) {
            case PictureFlow::Kind::Opening:
            case PictureFlow::Kind::Silent:
                break;  // it has waited already
            case PictureFlow::Kind::Paused:
                m_sleeper.Wait(kLookUpTicks);
                break;
            case PictureFlow::Kind::Wait:
                m_sleeper.Wait(std::min(step.wait, kLookUpTicks));
                break;
            case PictureFlow::Kind::Send:
                SendOne(*flow, *step.frame);
                break;
            case PictureFlow::Kind::Late:
                m_statistics.DroppedLate();
                break;
            case PictureFlow::Kind::Drained:
                m_statistics.Drained();
                break;
            case PictureFlow::Kind::Failed:
            case PictureFlow::Kind::End:
                return FlowEnded(*flow, now);
        }
        return std::nullopt;
    }

    void AnnounceInput(const FrameGeometry& geometry) {
        m_geometry = geometry;
        Say("input " + SizeText(geometry) + " at " + std::to_string(geometry.rateNumerator) + "/" +
            std::to_string(geometry.rateDenominator) + " frames a second");
    }

    /// Without a camera the picture is let go, so that the film runs on and is at the right place when the camera
    /// returns.
    void SendOne(PictureFlow& flow, QueuedFrame& frame) {
        const std::int64_t begin = SteadyTicks();
        if (m_options.input.testCard) {
            DrawTestCardStamp(frame.nv12, *m_geometry, {static_cast<std::uint32_t>(flow.PictureNumber()), begin});
        }
        if (m_link.IsConnected() && m_link.Send(*m_geometry, frame.nv12.data(), begin)) {
            const std::int64_t end = SteadyTicks();
            m_statistics.Sent(end, end - begin);
        } else {
            m_statistics.DroppedUnseen();
        }
        flow.Done();
    }

    std::optional<FeedEnd> FlowEnded(PictureFlow& flow, std::int64_t now) {
        if (m_onDemand) {
            m_onDemand->FlowEnded(now);
            return std::nullopt;
        }
        const std::string error = flow.Error();
        return error.empty() ? EndWith("the input has ended", ExitCode::Ok) : EndWith(error, ExitCode::Failure);
    }

    FeedState State() const noexcept {
        if (!IsCameraNeeded()) {
            return FeedState::Opening;
        }
        if (m_link.IsConnected()) {
            return IsWanted() ? FeedState::Live : FeedState::Idle;
        }
        switch (m_link.LastConnectStatus()) {
            case RAVLO_ACCESS_DENIED:
                return FeedState::AccessDenied;
            case RAVLO_UNTRUSTED_OWNER:
                return FeedState::UntrustedOwner;
            default:
                return FeedState::Waiting;
        }
    }

    FeedStatus Status(std::int64_t now) const {
        FeedStatus status = m_statistics.Status(now);
        status.state = State();
        status.connected = m_link.IsConnected();
        status.reconnects = m_link.Connections() == 0 ? 0 : m_link.Connections() - 1;
        status.clockRestarts = m_onDemand ? m_onDemand->ClockRestarts() : m_ownFlow->ClockRestarts();
        status.commandStarts = m_onDemand ? m_onDemand->Starts() : 0;
        status.input = m_geometry;
        return status;
    }

    const FeederOptions& m_options;
    const Interrupt& m_interrupt;
    Sleeper m_sleeper;
    std::int64_t m_begin;
    CameraLink m_link;
    DemandPolicy m_policy;
    DemandHint m_hint;
    DemandNews m_news;
    FeedStatistics m_statistics;
    FeedReport m_report;
    std::unique_ptr<PictureFlow> m_ownFlow;  ///< set unless a command brings the pictures
    std::unique_ptr<OnDemand> m_onDemand;    ///< set if one does
    std::optional<FrameGeometry> m_geometry;
    std::optional<CameraDemand> m_demand;
    DemandPolicy::Verdict m_verdict = DemandPolicy::Verdict::Wanted;
    std::int64_t m_nextDemand = 0;
};

}  // namespace

ExitCode Feed(const FeederOptions& options, const Interrupt& interrupt) {
    return FeedRun(options, interrupt).Run();
}

}  // namespace ravlo
