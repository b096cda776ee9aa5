#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ravlo {

/// What happened to a file that had to go.
struct Removal {
    DWORD error = ERROR_SUCCESS;  ///< Win32 error when it is still in its place
    std::string movedTo;          ///< not empty: a program still uses it, so it waits there for a restart of Windows
};

/// Two folders beside the program folder that are ours alone: in one the folder is made ready before it appears under
/// its name, and taken apart after it has gone from there; in the other lie files that a program still used when they
/// had to go. What an earlier run left in them may be removed at any time.
std::string WorkFolder(const std::string& programFolder);
std::string OldFilesFolder(const std::string& programFolder);

/// Removes what an earlier run left behind, as far as it is not in use.
void Sweep(const std::string& programFolder) noexcept;

bool PathExists(const std::string& path) noexcept;

/// True when the folder holds this one file and nothing else.
bool HoldsOnly(const std::string& folder, const std::string& name);

/// The whole content of a file; nothing with the Win32 error when it cannot be read, or is larger than any DLL.
std::optional<std::vector<std::uint8_t>> ReadWholeFile(const std::string& path, DWORD& error);

/// False also when one of them cannot be read.
bool HaveSameContent(const std::string& left, const std::string& right);

/// Writes a file that is complete or absent, even if the power fails: it is written under another name first.
DWORD WriteFileSafely(const std::string& path, const std::string& text) noexcept;

/// Copies under another name first, then takes the place of `target`. A program that uses the old file keeps it.
Removal CopyFileSafely(const std::string& source, const std::string& target, const std::string& programFolder);

/// Removes a file, and what a copy that was broken off has left beside it. None there is success.
Removal RemoveFileSafely(const std::string& path, const std::string& programFolder);

/// Remembers an empty folder that cannot be removed because it is open somewhere: the next restart of Windows removes
/// it, or an earlier sweep.
void LeaveFolderForLater(const std::string& folder, const std::string& programFolder) noexcept;

/// Removes an empty folder. None there is success.
DWORD RemoveFolder(const std::string& path) noexcept;

/// Gives a folder another name, which must be free.
DWORD MoveFolder(const std::string& from, const std::string& to) noexcept;

/// Gives a file another name; what has that name already must go.
DWORD MoveOver(const std::string& from, const std::string& to) noexcept;

}  // namespace ravlo
