#pragma once

#include <string_view>

namespace ravlo {

/// What every line of this program on standard error begins with; `program` must outlive the program's last message.
void NameMessages(std::string_view program) noexcept;

/// One line to the user on standard error, "program: text". Standard output carries data only. Any thread.
void Say(std::string_view text) noexcept;

}  // namespace ravlo
