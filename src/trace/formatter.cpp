#include "trace/formatter.h"

#include <array>
#include <bit>
#include <cstring>

#include "platform/wide_char.h"

namespace ravlo {
namespace {

constexpr std::uint32_t kMaxNumberCharacters = 32;
constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr char kLowerDigits[] = "0123456789abcdef";
/// The two digits of every number below 100, so that each division yields two.
constexpr char kDigitPairs[] =
    "0001020304050607080910111213141516171819202122232425262728293031323334353637383940414243444546474849"
    "5051525354555657585960616263646566676869707172737475767778798081828384858687888990919293949596979899";
/// Element n is 10 to the power of n, the least number of n + 1 digits.
constexpr auto kPowersOfTen = [] {
    std::array<std::uint64_t, 20> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) {
        powers[i] = powers[i - 1] * 10;
    }
    return powers;
}();

/// What stands between "%" and the conversion character.
struct Conversion {
    char pad = ' ';
    std::uint32_t width = 0;
    bool is64 = false;
    bool isWide = false;
};

/// Hands out the arguments in order.
class Slots {
public:
    Slots(const TraceSlot* slots, std::size_t count) noexcept : m_slots(slots), m_left(count) {}

    TraceSlot Next() noexcept {
        if (m_left == 0) {
            return 0;
        }
        --m_left;
        return *m_slots++;
    }

    template <class T>
    const T* NextPointer() noexcept {
        return reinterpret_cast<const T*>(static_cast<std::uintptr_t>(Next()));
    }

    std::uint64_t NextUnsigned(bool is64) noexcept {
        const TraceSlot slot = Next();
        return is64 ? slot : static_cast<std::uint32_t>(slot);
    }

    std::int64_t NextSigned(bool is64) noexcept {
        const TraceSlot slot = Next();
        return is64 ? static_cast<std::int64_t>(slot) : static_cast<std::int32_t>(static_cast<std::uint32_t>(slot));
    }

private:
    const TraceSlot* m_slots;
    std::size_t m_left;
};

/// The free end of a line while a format is expanded into it. Its two ends can stay in registers, where those of the
/// line itself must be read again behind every character: for the language, a store of a character may change anything.
/// The terminator is written by Finish, before anybody else sees the line.
class LineTail {
public:
    explicit LineTail(const RvLineBuffer& line) noexcept
        : m_to(line.text + line.length), m_end(line.IsFull() ? m_to : line.text + line.capacity - 1) {}

    std::size_t Room() const noexcept { return static_cast<std::size_t>(m_end - m_to); }

    void Append(char character) noexcept {
        if (m_to != m_end) {
            *m_to++ = character;
        }
    }

    /// Appends as many of `count` characters as there is room for.
    void Append(const char* characters, std::size_t count) noexcept {
        const std::size_t taken = count < Room() ? count : Room();
        CopyShort(m_to, characters, taken);
        m_to += taken;
    }

    /// Appends a string, and reads no more of it than there is room for.
    void Append(const char* string) noexcept {
        char* to = m_to;
        for (const char* const end = m_end; to != end && *string != '\0'; ++string) {
            *to++ = *string;
        }
        m_to = to;
    }

    /// Appends `count` characters that `write` writes in their place, or as many of them as there is room for.
    template <class Write>
    void AppendInPlace(std::size_t count, Write write) noexcept {
        if (count <= Room()) {
            write(m_to);
            m_to += count;
            return;
        }
        char text[kMaxNumberCharacters];
        write(text);
        Append(text, count);
    }

    void Finish(RvLineBuffer& line) const noexcept {
        const auto length = static_cast<std::int32_t>(m_to - line.text);
        if (length != line.length) {
            line.length = length;
            *m_to = '\0';
        }
    }

private:
    /// Copies a few dozen bytes in steps of 16, 8 and 4, the last of which may overlap the one before. The call of a
    /// library function would cost more than the copy.
    static void CopyShort(char* to, const char* from, std::size_t count) noexcept {
        if (count >= 16) {
            for (std::size_t done = 0; done + 16 < count; done += 16) {
                std::memcpy(to + done, from + done, 16);
            }
            std::memcpy(to + count - 16, from + count - 16, 16);
        } else if (count >= 8) {
            std::memcpy(to, from, 8);
            std::memcpy(to + count - 8, from + count - 8, 8);
        } else if (count >= 4) {
            std::memcpy(to, from, 4);
            std::memcpy(to + count - 4, from + count - 4, 4);
        } else {
            for (std::size_t i = 0; i < count; ++i) {
                to[i] = from[i];
            }
        }
    }

    char* m_to;
    char* m_end;
};

std::uint32_t CountDecimalDigits(std::uint64_t value) noexcept {
    // 1233 / 4096 is the decimal logarithm of 2 closely enough for 64 bits: the product is the number of digits or one
    // less. The lowest bit makes 0 a number of one digit, and no other number longer.
    const std::uint64_t notZero = value | 1;
    const auto atLeast = static_cast<std::uint32_t>(std::bit_width(notZero)) * 1233 >> 12;
    return atLeast + (notZero >= kPowersOfTen[atLeast] ? 1 : 0);
}

/// Writes the digits of `value` so that they end before `end`.
void WriteDecimal(char* end, std::uint64_t value) noexcept {
    for (; value >= 100; value /= 100) {
        end -= 2;
        std::memcpy(end, kDigitPairs + value % 100 * 2, 2);
    }
    if (value >= 10) {
        std::memcpy(end - 2, kDigitPairs + value * 2, 2);
    } else {
        end[-1] = static_cast<char>('0' + value);
    }
}

/// A run of `pad` up to `width`, then `digits` digits, which `write` writes before the end that it is given.
template <class Write>
void AppendPadded(LineTail& line, std::uint32_t digits, const Conversion& conversion, Write write) noexcept {
    const std::uint32_t count = digits > conversion.width ? digits : conversion.width;
    line.AppendInPlace(count, [&](char* to) {
        for (std::uint32_t i = digits; i < count; ++i) {
            *to++ = conversion.pad;
        }
        write(to + digits);
    });
}

void AppendDecimal(LineTail& line, std::uint64_t value, const Conversion& conversion) noexcept {
    AppendPadded(line, CountDecimalDigits(value), conversion, [value](char* end) { WriteDecimal(end, value); });
}

void AppendHex(LineTail& line, std::uint64_t value, const char* digits, const Conversion& conversion) noexcept {
    const auto count = static_cast<std::uint32_t>(std::bit_width(value | 1) + 3) / 4;
    AppendPadded(line, count, conversion, [=](char* end) {
        std::uint64_t left = value;
        for (std::uint32_t i = 0; i < count; ++i, left >>= 4) {
            *--end = digits[left & 0xF];
        }
    });
}

void AppendSigned(LineTail& line, std::int64_t value, const Conversion& conversion) noexcept {
    auto magnitude = static_cast<std::uint64_t>(value);
    if (value < 0) {
        line.Append('-');
        magnitude = 0 - magnitude;
    }
    AppendDecimal(line, magnitude, conversion);
}

void AppendWide(LineTail& line, const WideChar* string) noexcept {
    if (string == nullptr) {
        line.Append("(null)");
        return;
    }
    for (; line.Room() != 0 && *string != 0; ++string) {
        line.Append(*string >= 32 && *string <= 126 ? static_cast<char>(*string) : '?');
    }
}

void AppendGuid(LineTail& line, const TraceGuid* guid) noexcept {
    if (guid == nullptr) {
        line.Append("{null-guid}");
        return;
    }
    const auto hex = [&line](std::uint64_t value, std::uint32_t digits) {
        AppendHex(line, value, kUpperDigits, {.pad = '0', .width = digits});
    };
    line.Append('{');
    hex(guid->data1, 8);
    line.Append('-');
    hex(guid->data2, 4);
    line.Append('-');
    hex(guid->data3, 4);
    line.Append('-');
    for (std::size_t i = 0; i < 8; ++i) {
        if (i == 2) {
            line.Append('-');
        }
        hex(guid->data4[i], 2);
    }
    line.Append('}');
}

/// Reads flags, width and size; returns the position of the conversion character.
const char* ParseConversion(const char* cursor, Conversion& conversion) noexcept {
    if (*cursor == '0') {
        conversion.pad = '0';
        ++cursor;
    }
    for (; *cursor >= '0' && *cursor <= '9'; ++cursor) {
        conversion.width = conversion.width * 10 + static_cast<std::uint32_t>(*cursor - '0');
        if (conversion.width > kMaxNumberCharacters) {
            conversion.width = kMaxNumberCharacters;  // more could not show, and must not wrap around
        }
    }
    if (cursor[0] == 'I' && cursor[1] == '6' && cursor[2] == '4') {
        conversion.is64 = true;
        cursor += 3;
    } else if (cursor[0] == 'l' && cursor[1] == 'l') {
        conversion.is64 = true;
        cursor += 2;
    } else if (cursor[0] == 'l') {
        conversion.isWide = true;
        ++cursor;
    }
    return cursor;
}

void AppendConversion(LineTail& line, char character, const Conversion& conversion, Slots& slots) noexcept {
    switch (character) {
        case 'd':
        case 'i':
            AppendSigned(line, slots.NextSigned(conversion.is64), conversion);
            break;
        case 'u':
            AppendDecimal(line, slots.NextUnsigned(conversion.is64), conversion);
            break;
        case 'x':
            AppendHex(line, slots.NextUnsigned(conversion.is64), kLowerDigits, conversion);
            break;
        case 'X':
            AppendHex(line, slots.NextUnsigned(conversion.is64), kUpperDigits, conversion);
            break;
        case 'p':
            AppendHex(line, slots.Next(), kUpperDigits, {.pad = '0', .width = 16});
            break;
        case 'c':
            line.Append(static_cast<char>(slots.Next() & 0xFF));
            break;
        case 's':
            if (conversion.isWide) {
                AppendWide(line, slots.NextPointer<WideChar>());
            } else {
                const char* const string = slots.NextPointer<char>();
                line.Append(string != nullptr ? string : "(null)");
            }
            break;
        case 'S':
            AppendWide(line, slots.NextPointer<WideChar>());
            break;
        case 'G':
            AppendGuid(line, slots.NextPointer<TraceGuid>());
            break;
        default:
            line.Append('%');
            line.Append(character);
            break;
    }
}

/// Expands up to the end of the format, or into a conversion that the format ends in.
void Expand(LineTail& line, const char* cursor, Slots& arguments) noexcept {
    for (;;) {
        const char* const run = cursor;
        while (*cursor != '%' && *cursor != '\0') {
            ++cursor;
        }
        line.Append(run, static_cast<std::size_t>(cursor - run));
        if (*cursor == '\0') {
            return;
        }
        ++cursor;
        if (*cursor == '%') {
            line.Append('%');
            ++cursor;
            continue;
        }
        Conversion conversion;
        cursor = ParseConversion(cursor, conversion);
        if (*cursor == '\0') {
            return;
        }
        AppendConversion(line, *cursor, conversion, arguments);
        ++cursor;
    }
}

}  // namespace

void RvFormat(RvLineBuffer& line, const char* format, const TraceSlot* slots, std::size_t slotCount) noexcept {
    Slots arguments(slots, slotCount);
    LineTail end(line);
    Expand(end, format, arguments);
    end.Finish(line);
}

}  // namespace ravlo
