#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ravlo::bench {

/// The lines that the module writes into its trace log in this process, from construction on. The location is chosen by
/// the module's own rule, so it is to be made when the anchor is set and the module loaded.
class ProcessLog {
public:
    explicit ProcessLog(HMODULE module);

    const std::wstring& Path() const noexcept { return m_path; }
    /// The messages of this process's own lines, without what stands in front of them.
    std::vector<std::string> Messages() const;

private:
    std::wstring m_path;
    std::uint64_t m_begin = 0;
};

}  // namespace ravlo::bench
