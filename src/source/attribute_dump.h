#pragma once

#include <windows.h>

#include <mfobjects.h>

namespace ravlo {

/// Writes every attribute of `store` (may be null) to the log; each line begins with `tag` and `name`. Numbers, strings
/// and identifiers show their values, other types only their keys.
void DumpAttributes(const char* tag, const char* name, IMFAttributes* store) noexcept;

}  // namespace ravlo
