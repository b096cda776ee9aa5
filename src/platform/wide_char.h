#pragma once

#include <type_traits>

namespace ravlo {

/// A UTF-16 code unit: the platform's own wide character where that has 16 bits, char16_t elsewhere.
using WideChar = std::conditional_t<sizeof(wchar_t) == 2, wchar_t, char16_t>;

}  // namespace ravlo
