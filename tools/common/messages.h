#pragma once

#include <string_view>

namespace ravlo {

/// Puts "program: text" and a line feed where the user sees them. Must be safe on any thread.
using MessageWriter = void (*)(std::string_view program, std::string_view text) noexcept;

/// Writes the line to standard error as the bytes that it consists of.
void WriteMessage(std::string_view program, std::string_view text) noexcept;

/// What every line of this program on standard error begins with, and how it gets there; `program` must outlive the
/// program's last message. Call it before the first message.
void NameMessages(std::string_view program, MessageWriter writer) noexcept;

/// One line to the user on standard error, "program: text"; `text` is UTF-8. Standard output carries data only. Any
/// thread.
void Say(std::string_view text) noexcept;

}  // namespace ravlo
