#pragma once

#include <string_view>

namespace ravlo {

/// True when the whole of `text` fits `pattern`, in which "*" stands for any characters, also for none.
bool FitsPattern(std::string_view text, std::string_view pattern) noexcept;

}  // namespace ravlo
