#include "rvfeeder/feeder.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "common/clock.h"
#include "common/messages.h"
#include "common/sleeper.h"
#include "pipe/frame_header.h"
#include "rvfeeder/camera_link.h"
#include "rvfeeder/file_source.h"
#include "rvfeeder/frame_clock.h"
#include "rvfeeder/picture_input.h"
#include "rvfeeder/raw_reader.h"
#include "rvfeeder/y4m_reader.h"

namespace ravlo {
namespace {

/// Enough to ride out a decoder that delivers unevenly, short enough that the picture stays recent.
constexpr std::size_t kPicturesAhead = 4;
/// How often a wait for the input looks up to see whether the user wants to end.
constexpr std::chrono::milliseconds kLookUp{100};
/// Between two tries for a camera that is not there yet.
constexpr DWORD kFirstConnectMs = 50;

std::unique_ptr<PictureReader> OpenInput(const FeederOptions& options) {
    auto source = OpenByteSource(options.input);
    if (options.rawInput) {
        return std::make_unique<RawReader>(std::move(source), *options.rawInput);
    }
    auto reader = std::make_unique<Y4mReader>(std::move(source));
    if (reader->IsFullRange()) {
        Say("note: the input is full range, the camera announces limited range; its contrast will look too strong");
    }
    return reader;
}

/// One run of the program: input, clock and link, and what has been counted.
class FeedRun {
public:
    FeedRun(const FeederOptions& options, const Interrupt& interrupt)
        : m_options(options),
          m_interrupt(interrupt),
          m_sleeper(interrupt.Event()),
          m_input([options] { return OpenInput(options); }, options.loop, kPicturesAhead),
          m_link(options.pipeName, options.writeTimeoutMs) {}

    ExitCode Run() {
        if (const auto ended = WaitForInput()) {
            return *ended;
        }
        const FrameGeometry& geometry = m_input.Geometry();
        std::array<char, 128> line{};
        std::snprintf(line.data(), line.size(), "input %ux%u at %u/%u frames a second", geometry.width, geometry.height,
                      geometry.rateNumerator, geometry.rateDenominator);
        Say(line.data());
        if (const auto ended = WaitForCamera()) {
            return *ended;
        }
        const ExitCode code = SendAll(FrameClock(geometry.rateNumerator, geometry.rateDenominator));
        Summarize();
        return code;
    }

private:
    std::optional<ExitCode> WaitForInput() {
        PictureInput::State state = PictureInput::State::Opening;
        while ((state = m_input.WaitUntilOpen(kLookUp)) == PictureInput::State::Opening) {
            if (m_interrupt.IsRaised()) {
                return Interrupted();
            }
        }
        if (state == PictureInput::State::Failed) {
            Say(m_input.Error());
            return ExitCode::Failure;
        }
        return std::nullopt;
    }

    /// The input waits too: a film starts when somebody is there to see it.
    std::optional<ExitCode> WaitForCamera() {
        m_link.RestartAbsence(SteadyTicks());  // how long the input took to open is not the camera's fault
        while (!m_link.TryConnect(SteadyTicks())) {
            if (const auto ended = CheckAbsence()) {
                return ended;
            }
            if (m_interrupt.WaitForMs(kFirstConnectMs)) {
                return Interrupted();
            }
        }
        return std::nullopt;
    }

    ExitCode SendAll(FrameClock clock) {
        QueuedFrame frame;
        ExitCode code = ExitCode::Ok;
        bool going = true;
        while (going) {
            if (m_interrupt.IsRaised()) {
                code = Interrupted();
                break;
            }
            switch (m_input.Queue().TakeFilled(frame, kLookUp)) {
                case FrameQueue::Take::Nothing:
                    if (const auto ended = SeekCamera()) {
                        code = *ended;
                        going = false;
                    }
                    continue;
                case FrameQueue::Take::End:
                    code = InputEnded();
                    going = false;
                    continue;
                case FrameQueue::Take::Frame:
                    break;
            }
            if (WaitUntilDue(clock, frame)) {
                SendOne(frame);
                if (const auto ended = CheckAbsence()) {
                    code = *ended;
                    going = false;
                }
            }
            clock.Advance();
            m_input.Queue().PutEmpty(std::move(frame));
        }
        m_restarts = clock.Restarts();
        return code;
    }

    /// While the input has nothing to send: a camera that was lost is looked for all the same.
    std::optional<ExitCode> SeekCamera() { return m_link.TryConnect(SteadyTicks()) ? std::nullopt : CheckAbsence(); }

    /// False when the frame's moment has passed, or the user ends the program before it comes.
    bool WaitUntilDue(FrameClock& clock, const QueuedFrame& frame) {
        for (;;) {
            const FrameStep step = clock.Judge(SteadyTicks(), frame.arrived);
            if (step.kind == FrameStep::Kind::Send) {
                return true;
            }
            if (step.kind == FrameStep::Kind::Drop) {
                ++m_droppedLate;
                return false;
            }
            if (!m_sleeper.Wait(step.wait)) {
                return false;
            }
        }
    }

    /// Without a camera the frame is let go, so that the film runs on and is at the right place when the camera
    /// returns.
    void SendOne(const QueuedFrame& frame) {
        const std::int64_t now = SteadyTicks();
        if (m_link.TryConnect(now) &&
            m_link.Send(MakeFrameHeader(m_input.Geometry().width, m_input.Geometry().height, m_sequence),
                        frame.nv12.data(), now)) {
            ++m_sent;
        } else {
            ++m_droppedUnseen;
        }
        ++m_sequence;
    }

    std::optional<ExitCode> CheckAbsence() const {
        if (!m_options.absenceLimit || m_link.AbsentFor(SteadyTicks()) < *m_options.absenceLimit) {
            return std::nullopt;
        }
        switch (m_link.LastConnectError()) {
            case ERROR_ACCESS_DENIED:
                Say("giving up: the camera's pipe does not admit this account");
                return ExitCode::AccessDenied;
            case ERROR_INVALID_OWNER:
                Say("giving up: the camera's pipe belongs to an account that is not trusted");
                return ExitCode::AccessDenied;
            default:
                Say("giving up: no camera took frames for the time that --timeout allows");
                return ExitCode::PeerAbsent;
        }
    }

    ExitCode InputEnded() const {
        const std::string error = m_input.Error();
        Say(error.empty() ? "the input has ended" : error);
        return error.empty() ? ExitCode::Ok : ExitCode::Failure;
    }

    static ExitCode Interrupted() {
        Say("interrupted");
        return ExitCode::Interrupted;
    }

    void Summarize() const {
        const std::uint64_t connections = m_link.Connections();
        std::array<char, 256> line{};
        std::snprintf(line.data(), line.size(),
                      "%llu frames sent, %llu dropped (%llu late, %llu while no camera took them), %llu reconnects, "
                      "%llu clock restarts, longest write %.1f ms",
                      static_cast<unsigned long long>(m_sent),
                      static_cast<unsigned long long>(m_droppedLate + m_droppedUnseen),
                      static_cast<unsigned long long>(m_droppedLate), static_cast<unsigned long long>(m_droppedUnseen),
                      static_cast<unsigned long long>(connections == 0 ? 0 : connections - 1),
                      static_cast<unsigned long long>(m_restarts),
                      static_cast<double>(m_link.LongestWrite()) / static_cast<double>(kTicksPerMs));
        Say(line.data());
    }

    const FeederOptions& m_options;
    const Interrupt& m_interrupt;
    Sleeper m_sleeper;
    PictureInput m_input;
    CameraLink m_link;
    std::uint64_t m_sequence = 0;
    std::uint64_t m_sent = 0;
    std::uint64_t m_droppedLate = 0;
    std::uint64_t m_droppedUnseen = 0;
    std::uint64_t m_restarts = 0;
};

}  // namespace

ExitCode Feed(const FeederOptions& options, const Interrupt& interrupt) {
    return FeedRun(options, interrupt).Run();
}

}  // namespace ravlo
