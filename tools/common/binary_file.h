#pragma once

#include <cstddef>
#include <string>

namespace ravlo {

/// Writes `length` bytes as the whole content of a file, which takes the place of an older one only once it is
/// complete; until then it lies beside it as `path`.part. `path` is UTF-8. False when it cannot be written.
bool WriteWholeFile(const std::string& path, const void* bytes, std::size_t length);

}  // namespace ravlo
