#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "rvfeeder/command_process.h"
#include "rvfeeder/command_schedule.h"
#include "rvfeeder/input_options.h"
#include "rvfeeder/picture_flow.h"

namespace ravlo {

/// The pictures of a command that runs only while somebody watches. Times are steady, in units of 100 ns. One thread
/// uses it.
class OnDemand {
public:
    /// `command` is as CommandProcess takes it; `input` says what is expected of its pictures.
    OnDemand(std::string command, InputOptions input);

    /// Once a round: starts or ends the command, as CommandSchedule decides from the same arguments. True when the
    /// pictures have changed hands: what was known about Flow is void.
    bool Follow(std::int64_t now, bool connected, bool leased, bool wanted);

    /// The pictures of the running command; null while none runs.
    PictureFlow* Flow() noexcept { return m_flow.get(); }

    /// The flow has failed or ended although somebody watches.
    void FlowEnded(std::int64_t now);

    /// The program ends: closes the output of a command that still runs, which may then put its things in order.
    void Close(std::int64_t now) noexcept;

    /// After Close: waits until the command has ended, at most a fraction of a second from Close on. What then still
    /// runs is ended with this object.
    void AwaitEnd() const noexcept;

    std::uint64_t Starts() const noexcept { return m_starts; }
    std::uint64_t ClockRestarts() const noexcept { return m_clockRestarts + (m_flow ? m_flow->ClockRestarts() : 0); }

private:
    void Start(std::int64_t now);
    void End(std::int64_t now);
    void DropFlow() noexcept;
    bool IsEnding(std::int64_t now) noexcept;

    std::string m_command;
    InputOptions m_input;
    CommandSchedule m_schedule;
    std::unique_ptr<CommandProcess> m_process;
    std::unique_ptr<PictureFlow> m_flow;
    std::optional<std::int64_t> m_endDeadline;  ///< set while a command that nobody wants any more may end by itself
    std::uint64_t m_starts = 0;
    std::uint64_t m_clockRestarts = 0;  ///< of the flows before this one
};

}  // namespace ravlo
