#pragma once

#include <memory>
#include <string>

#include "rvfeeder/byte_source.h"

namespace ravlo {

/// Opens a file, or standard input for "-". Throws InputError when it cannot be opened. `path` is UTF-8.
std::unique_ptr<ByteSource> OpenByteSource(const std::string& path);

/// True when standard input was redirected from a file, which does not run on by itself.
bool IsStandardInputAFile() noexcept;

}  // namespace ravlo
