#pragma once

#include <functional>
#include <string>

namespace ravlo::bench {

/// What a DLL asks of the platform's files, and of the registry, while it is loaded and unloaded.
struct AttachCalls {
    int opens = 0;
    int writes = 0;
    int closes = 0;
    int queries = 0;  ///< attributes and owners of what was opened, and registry values

    bool operator==(const AttachCalls&) const = default;
    std::string Text() const;
};

/// The calls that the DLL of this file name makes through its own imports while `loadAndUnload` runs. Throws when it
/// was not loaded, or lacks an import that is counted.
AttachCalls CountCalls(const std::wstring& fileName, const std::function<void()>& loadAndUnload);

/// Loads the DLL, and then everything that it imports once more, for the life of the process: what stays loaded costs a
/// later load next to nothing. Throws when something cannot be loaded.
void KeepImportsLoaded(const std::wstring& path);

}  // namespace ravlo::bench
