#pragma once

#include "platform/wide_char.h"

namespace ravlo {

/// True when `text` is plainly a SID: "S-1-", an identifier authority (decimal, or hexadecimal after "0x"), and one to
/// fifteen decimal sub-authorities that fit 32 bits. The platform's own conversion is laxer on some systems (blanks,
/// signs, wrapped numbers, account aliases such as "BA"); a grant of access must not rest on such a text.
bool IsStrictSidText(const WideChar* text) noexcept;

}  // namespace ravlo
