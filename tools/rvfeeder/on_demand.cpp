#include "rvfeeder/on_demand.h"

#include <algorithm>
#include <utility>

#include "common/clock.h"
#include "common/messages.h"
#include "rvfeeder/byte_source.h"
#include "rvfeeder/input_reader.h"

namespace ravlo {
namespace {

/// A command whose output was closed may put its things in order for so long.
constexpr std::int64_t kEndPatience = 500 * kTicksPerMs;
/// The same at the end of the program, whose user shall not have to wait for a second.
constexpr std::int64_t kLastEndPatience = 300 * kTicksPerMs;
/// Between the end of a command's output and that of its process.
constexpr DWORD kExitPatienceMs = 100;

/// Lets a function object that can be copied hold what can not.
class SharedSource final : public ByteSource {
public:
    explicit SharedSource(std::shared_ptr<ByteSource> source) : m_source(std::move(source)) {}
    std::size_t Read(std::uint8_t* buffer, std::size_t length) override { return m_source->Read(buffer, length); }

private:
    std::shared_ptr<ByteSource> m_source;
};

std::string PauseText(std::int64_t pause) {
    return std::to_string(pause / kTicksPerSecond) + " s";
}

}  // namespace

OnDemand::OnDemand(std::string command, InputOptions input) : m_command(std::move(command)), m_input(std::move(input)) {
}

bool OnDemand::Follow(std::int64_t now, bool connected, bool leased, bool wanted) {
    if (IsEnding(now)) {
        return false;  // a device that the old command holds would be busy for the new one
    }
    switch (m_schedule.Next(now, connected, leased, wanted)) {
        case CommandSchedule::Action::None:
            return false;
        case CommandSchedule::Action::Start:
            Start(now);
            return true;
        case CommandSchedule::Action::End:
            End(now);
            return true;
    }
    return false;
}

void OnDemand::FlowEnded(std::int64_t now) {
    const bool broughtPictures = m_flow->PictureNumber() != 0;
    const std::string error = m_flow->Error();
    const auto code = m_process->WaitForExit(kExitPatienceMs);
    DropFlow();
    m_process.reset();
    const std::int64_t pause = m_schedule.EndedByItself(now, broughtPictures);
    const std::string what = !error.empty() ? "the command's pictures cannot be used (" + error + ")"
                             : code         ? "the command has ended by itself with exit code " + std::to_string(*code)
                                            : std::string("the command has closed its output");
    Say(what + "; starting it again in " + PauseText(pause));
}

void OnDemand::Close(std::int64_t now) noexcept {
    if (!m_process) {
        return;
    }
    if (m_flow) {
        DropFlow();
        m_process->Close();
    }
    m_endDeadline = std::min(m_endDeadline.value_or(now + kLastEndPatience), now + kLastEndPatience);
}

void OnDemand::AwaitEnd() const noexcept {
    if (m_process && m_endDeadline) {
        const std::int64_t left = (*m_endDeadline - SteadyTicks()) / kTicksPerMs;
        m_process->WaitForExit(static_cast<DWORD>(std::max<std::int64_t>(left, 0)));
    }
}

void OnDemand::Start(std::int64_t now) {
    try {
        m_process = std::make_unique<CommandProcess>(m_command);
    } catch (const InputError& error) {
        const std::int64_t pause = m_schedule.EndedByItself(now, false);
        Say(std::string(error.what()) + "; trying again in " + PauseText(pause));
        return;
    }
    m_schedule.Started();
    Say(m_starts++ == 0 ? "somebody watches: the command is started"
                        : "somebody watches again: the command is started");
    const auto opener = [output = std::shared_ptr<ByteSource>(m_process->TakeOutput()), options = m_input,
                         speaks = m_starts == 1]() mutable -> std::unique_ptr<PictureReader> {
        return MakeInputReader(std::make_unique<SharedSource>(std::move(output)), options,
                               [speaks](const std::string& note) {
                                   if (speaks) {
                                       Say("note: " + note);
                                   }
                               });
    };
    m_flow = std::make_unique<PictureFlow>(opener, false, true);
}

void OnDemand::End(std::int64_t now) {
    Say("nobody watches: the command is ended");
    DropFlow();
    m_process->Close();
    m_endDeadline = now + kEndPatience;
}

void OnDemand::DropFlow() noexcept {
    m_clockRestarts += m_flow->ClockRestarts();
    m_flow.reset();
}

bool OnDemand::IsEnding(std::int64_t now) noexcept {
    if (!m_endDeadline) {
        return false;
    }
    if (now < *m_endDeadline && !m_process->WaitForExit(0)) {
        return true;
    }
    m_process.reset();
    m_endDeadline.reset();
    return false;
}

}  // namespace ravlo
