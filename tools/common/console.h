#pragma once

#include <chrono>
#include <string_view>

namespace ravlo {

/// Whether a person reads what is written there, rather than a file or a pipe.
bool IsErrorConsole() noexcept;
bool IsOutputConsole() noexcept;

/// Lets the console behind standard output understand colour sequences. False when there is none, or it cannot.
bool EnableOutputColour() noexcept;

/// Writes UTF-8 text to standard output: to a console as 16-bit text, because its code page need not be UTF-8, else
/// byte by byte with line ends as they are. False when it could not all be written. One thread.
bool WriteOutput(std::string_view text) noexcept;

/// Writes the line "program: text", both UTF-8, to standard error, above the status line if there is one. Does not wait
/// for a console: a thread of its own writes there. Any thread.
void WriteConsoleMessage(std::string_view program, std::string_view text) noexcept;

/// Shows `text` as the line that stands at the bottom of the console behind standard error, in place of the one before.
/// Writes nothing when standard error is no console. `text` is UTF-8 without line feeds; what is wider than the console
/// is cut. Any thread.
void ShowStatus(std::string_view text) noexcept;

/// Takes the status line away, before a summary for instance. Any thread.
void ClearStatus() noexcept;

/// Waits until the console shows what was said, at most `patience`; before the program ends, for instance. Any thread.
void FlushMessages(std::chrono::milliseconds patience) noexcept;

}  // namespace ravlo
