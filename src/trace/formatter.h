#pragma once

#include <cstddef>
#include <cstdint>

#include "trace/line_buffer.h"

namespace ravlo {

/// A GUID as the formatter reads it; the platform's own GUID has this layout.
struct TraceGuid {
    std::uint32_t data1;
    std::uint16_t data2;
    std::uint16_t data3;
    std::uint8_t data4[8];
};
static_assert(sizeof(TraceGuid) == 16);

/// One argument of a format: a number, or a pointer to a string or GUID, in eight bytes.
using TraceSlot = std::uint64_t;

/// Expands `format` into `line`. A format character may be preceded by "0", a minimum width, and "I64", "ll" or "l":
///   d i   signed decimal, the sign outside the width      u   unsigned decimal
///   x X   hexadecimal, lower or upper case digits         p   16 upper-case hexadecimal digits
///   c     one character                                   s   8-bit string, "(null)" for null
///   ls S  UTF-16 string, "?" for every unit outside 32..126, "(null)" for null
///   G     GUID in braces, "{null-guid}" for null          %   a percent sign
/// Numbers are 32-bit unless "I64" or "ll" stands before the conversion. Any other character after "%" is printed
/// behind a percent sign and takes no argument, so "%zu" prints as it stands. A format that ends inside a conversion
/// ends there. An argument that is not there reads as 0. Never allocates, never fails, any thread.
void RvFormat(RvLineBuffer& line, const char* format, const TraceSlot* slots, std::size_t slotCount) noexcept;

}  // namespace ravlo
