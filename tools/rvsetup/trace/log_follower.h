#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "rvsetup/trace/trace_line.h"

namespace ravlo {

/// Reads what is appended to a file, which may be cut, replaced or taken away meanwhile and need not exist yet. The file
/// is open only while it is read, so that whoever owns it can do with it what they like.
class LogFollower {
public:
    using LineTest = std::function<bool(const std::string&)>;

    /// Reading ends early once the event `interrupt` is signalled; null: never.
    explicit LogFollower(std::wstring path, HANDLE interrupt = nullptr)
        : m_path(std::move(path)), m_interrupt(interrupt) {}

    /// The last `count` lines of what is there now that `isWanted` accepts; all are wanted where it is empty. It looks for
    /// them no farther than 64 MiB from the end. NewLines goes on behind them.
    std::vector<std::string> LastLines(std::size_t count, const LineTest& isWanted = {});

    /// The lines completed since the last call. A file that became shorter, or another file of that name, is read from
    /// its beginning.
    std::vector<std::string> NewLines();

    /// A last line without a line end, if any.
    std::string TakeRest() { return m_splitter.TakeRest(); }

    /// Whether the last look found a file.
    bool Exists() const noexcept { return m_exists; }

private:
    struct Identity {
        DWORD volume = 0;
        std::uint64_t index = 0;

        friend bool operator==(const Identity&, const Identity&) = default;
    };

    void ReadOn(HANDLE file, const std::function<void(std::string&&)>& take);
    bool Look(HANDLE file, std::uint64_t& size);

    std::wstring m_path;
    HANDLE m_interrupt;
    LineSplitter m_splitter;
    Identity m_identity;
    std::uint64_t m_next = 0;
    bool m_exists = false;
};

}  // namespace ravlo
