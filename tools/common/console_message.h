#pragma once

#include <string_view>

namespace ravlo {

/// Writes the line "program: text", both UTF-8, to standard error: as 16-bit text when that is a console, whose code
/// page need not be UTF-8, else as it is. Any thread.
void WriteConsoleMessage(std::string_view program, std::string_view text) noexcept;

}  // namespace ravlo
