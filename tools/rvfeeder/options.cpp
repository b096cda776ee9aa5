#include "rvfeeder/options.h"

#include "common/clock.h"
#include "common/parse_text.h"

namespace ravlo {
namespace {

/// A write cannot be taken back, so Ctrl+C may have to wait as long, and the last report after it takes its own time.
constexpr std::int64_t kLongestWriteMs = 600;
constexpr const char* kDefaultPipe = "\\\\.\\pipe\\Ravlo";
constexpr double kDefaultIdleAfterSeconds = 2;
/// The camera counts its idle time up to an hour.
constexpr double kLongestIdleAfterSeconds = 3000;
/// Records come twice a second and count whole requests; below this, a slow viewer would count as none.
constexpr double kShortestIdleAfterSeconds = 0.5;
constexpr double kMostSeconds = 1e6;
constexpr std::int64_t kMostFrames = 1'000'000'000'000;

std::optional<std::int64_t> TicksOf(double seconds) {
    if (seconds == 0) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(seconds * static_cast<double>(kTicksPerSecond));
}

}  // namespace

void FeederOptionSet::Declare(OptionSet& options) {
    m_input.Declare(options);
    options.Group("Camera");
    options.Text("--pipe", "NAME", m_pipe, "The camera's frame pipe (default \\\\.\\pipe\\Ravlo)");
    options.Decimal("--timeout", "SECONDS", m_timeoutSeconds, 0.1, kMostSeconds,
                    "Give up after this time without a camera (default: never)");
    options.Number("--write-timeout-ms", "MS", m_writeTimeoutMs, 1, kLongestWriteMs,
                   "Longest time one frame may take to send, up to 600 (default 500)");
    options.Group("Demand");
    options.Decimal("--idle-after", "SECONDS", m_idleAfterSeconds, kShortestIdleAfterSeconds, kLongestIdleAfterSeconds,
                    "Rest when the camera was asked for no sample for this time, 0.5 to 3000 (default 2)");
    options.Flag("--always", m_always, "Send every frame, whether or not anybody watches");
    options.Text("--on-demand", "CMD", m_command,
                 "Take the pictures from a command that writes Y4M to its standard output; it runs only while somebody "
                 "watches");
    options.Group("Run");
    options.Flag("--json", m_json, "Write one JSON object a second to standard output");
    options.Decimal("--seconds", "S", m_seconds, 0.1, kMostSeconds, "End after this time");
    options.Number("--frames", "N", m_frames, 1, kMostFrames, "End when so many frames have been sent");
}

std::optional<std::string> FeederOptionSet::Interpret(FeederOptions& result) const {
    result = FeederOptions{};
    if (auto wrong = InterpretSource(result)) {
        return wrong;
    }
    if (auto wrong = InterpretDemand(result)) {
        return wrong;
    }
    if (!ParsePipeName(m_pipe)) {
        return WhyNoPipeName(m_pipe);
    }
    result.pipe = m_pipe.empty() ? kDefaultPipe : m_pipe;
    result.absenceLimit = TicksOf(m_timeoutSeconds);
    result.writeTimeoutMs = static_cast<std::uint32_t>(m_writeTimeoutMs);
    result.json = m_json;
    result.timeLimit = TicksOf(m_seconds);
    if (m_frames != 0) {
        result.frameLimit = static_cast<std::uint64_t>(m_frames);
    }
    return std::nullopt;
}

std::optional<std::string> FeederOptionSet::InterpretSource(FeederOptions& result) const {
    result.command = m_command;
    return m_command.empty() ? m_input.Interpret(result.input) : m_input.InterpretForCommand(result.input);
}

std::optional<std::string> FeederOptionSet::InterpretDemand(FeederOptions& result) const {
    if (m_always && m_idleAfterSeconds != 0) {
        return "--always and --idle-after contradict each other: with --always the camera is never taken to be idle";
    }
    if (m_always && !m_command.empty()) {
        return "--always and --on-demand contradict each other: with --always, pipe the command's output into rvfeeder -";
    }
    const double idleAfter = m_idleAfterSeconds == 0 ? kDefaultIdleAfterSeconds : m_idleAfterSeconds;
    result.idleAfterMs = static_cast<std::uint64_t>(idleAfter * 1000);
    result.always = m_always;
    return std::nullopt;
}

}  // namespace ravlo
