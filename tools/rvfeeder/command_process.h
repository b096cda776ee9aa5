#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/unique_handle.h"
#include "rvfeeder/byte_source.h"

namespace ravlo {

/// A command that runs with its standard output piped to this program. Its standard input is empty; its standard error
/// is that of this program. It does not outlive this object, nor does anything that it started.
class CommandProcess {
public:
    /// Starts `command`, UTF-8, as the command prompt would, pipes and quotes included. Throws InputError.
    explicit CommandProcess(const std::string& command);
    CommandProcess(const CommandProcess&) = delete;
    CommandProcess& operator=(const CommandProcess&) = delete;
    /// Ends the command and all its children at once, if they still run.
    ~CommandProcess();

    /// What the command writes; the end comes when it has closed its output, or after Close. Once; may outlive this.
    std::unique_ptr<ByteSource> TakeOutput() { return std::move(m_output); }

    /// Reads no more: a command that goes on to write is told that its output is closed, and mostly ends by itself.
    void Close() noexcept { SetEvent(m_closed->Get()); }

    /// The exit code once the command has ended, waiting up to `timeoutMs` for it.
    std::optional<std::uint32_t> WaitForExit(DWORD timeoutMs) const noexcept;

private:
    std::shared_ptr<UniqueObject> m_closed;
    std::unique_ptr<ByteSource> m_output;
    UniqueObject m_job;
    UniqueObject m_process;
};

}  // namespace ravlo
