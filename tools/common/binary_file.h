#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace ravlo {

/// A name beside `target` that no file has yet, `target`.part or that with a number: for a file that is not complete.
/// Empty when there is none.
std::filesystem::path UnusedPartPath(const std::filesystem::path& target);

/// Writes `length` bytes as the whole content of a file, which takes the place of an older one only once it is
/// complete; until then it lies beside it under the name of UnusedPartPath. `path` is UTF-8. False when it cannot be
/// written.
bool WriteWholeFile(const std::string& path, const void* bytes, std::size_t length);

}  // namespace ravlo
