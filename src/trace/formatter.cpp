#include "trace/formatter.h"

#include "platform/wide_char.h"

namespace ravlo {
namespace {

constexpr std::uint32_t kMaxNumberCharacters = 32;
constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr char kLowerDigits[] = "0123456789abcdef";

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

void AppendNumber(RvLineBuffer& line, std::uint64_t value, unsigned base, const char* digits, std::uint32_t width,
                  char pad) noexcept {
    char reversed[kMaxNumberCharacters];
    std::uint32_t count = 0;
    do {
        reversed[count++] = digits[value % base];
        value /= base;
    } while (value != 0 && count < kMaxNumberCharacters);
    while (count < width && count < kMaxNumberCharacters) {
        reversed[count++] = pad;
    }
    while (count > 0) {
        line.Append(reversed[--count]);
    }
}

void AppendSigned(RvLineBuffer& line, std::int64_t value, const Conversion& conversion) noexcept {
    auto magnitude = static_cast<std::uint64_t>(value);
    if (value < 0) {
        line.Append('-');
        magnitude = 0 - magnitude;
    }
    AppendNumber(line, magnitude, 10, kUpperDigits, conversion.width, conversion.pad);
}

void AppendWide(RvLineBuffer& line, const WideChar* string) noexcept {
    if (string == nullptr) {
        line.Append("(null)");
        return;
    }
    for (; *string != 0 && !line.IsFull(); ++string) {
        line.Append(*string >= 32 && *string <= 126 ? static_cast<char>(*string) : '?');
    }
}

void AppendGuid(RvLineBuffer& line, const TraceGuid* guid) noexcept {
    if (guid == nullptr) {
        line.Append("{null-guid}");
        return;
    }
    const auto hex = [&line](std::uint64_t value, std::uint32_t digits) {
        AppendNumber(line, value, 16, kUpperDigits, digits, '0');
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

void AppendConversion(RvLineBuffer& line, char character, const Conversion& conversion, Slots& slots) noexcept {
    switch (character) {
        case 'd':
        case 'i':
            AppendSigned(line, slots.NextSigned(conversion.is64), conversion);
            break;
        case 'u':
            AppendNumber(line, slots.NextUnsigned(conversion.is64), 10, kUpperDigits, conversion.width, conversion.pad);
            break;
        case 'x':
            AppendNumber(line, slots.NextUnsigned(conversion.is64), 16, kLowerDigits, conversion.width, conversion.pad);
            break;
        case 'X':
            AppendNumber(line, slots.NextUnsigned(conversion.is64), 16, kUpperDigits, conversion.width, conversion.pad);
            break;
        case 'p':
            AppendNumber(line, slots.Next(), 16, kUpperDigits, 16, '0');
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

}  // namespace

void RvFormat(RvLineBuffer& line, const char* format, const TraceSlot* slots, std::size_t slotCount) noexcept {
    Slots arguments(slots, slotCount);
    for (const char* cursor = format; *cursor != '\0'; ++cursor) {
        if (*cursor != '%') {
            line.Append(*cursor);
            continue;
        }
        ++cursor;
        if (*cursor == '%') {
            line.Append('%');
            continue;
        }
        Conversion conversion;
        cursor = ParseConversion(cursor, conversion);
        if (*cursor == '\0') {
            return;
        }
        AppendConversion(line, *cursor, conversion, arguments);
    }
}

}  // namespace ravlo
