#include "platform/sid_text.h"

#include <cstdint>

namespace ravlo {
namespace {

int DigitValue(WideChar unit, unsigned base) noexcept {
    int value = -1;
    if (unit >= '0' && unit <= '9') {
        value = static_cast<int>(unit) - '0';
    } else if (unit >= 'a' && unit <= 'f') {
        value = static_cast<int>(unit) - 'a' + 10;
    } else if (unit >= 'A' && unit <= 'F') {
        value = static_cast<int>(unit) - 'A' + 10;
    }
    return value >= 0 && static_cast<unsigned>(value) < base ? value : -1;
}

/// Reads one number of at least one digit that does not exceed `limit`; null when there is none.
const WideChar* SkipNumber(const WideChar* cursor, unsigned base, std::uint64_t limit) noexcept {
    std::uint64_t number = 0;
    int digit = DigitValue(*cursor, base);
    if (digit < 0) {
        return nullptr;
    }
    for (; digit >= 0; digit = DigitValue(*++cursor, base)) {
        number = number * base + static_cast<unsigned>(digit);
        if (number > limit) {
            return nullptr;
        }
    }
    return cursor;
}

}  // namespace

bool IsStrictSidText(const WideChar* text) noexcept {
    constexpr std::uint64_t kAuthorityLimit = 0xFFFFFFFFFFFF;  // six bytes
    constexpr std::uint64_t kSubAuthorityLimit = 0xFFFFFFFF;
    constexpr int kMaxSubAuthorities = 15;

    if (text == nullptr || (text[0] != 'S' && text[0] != 's') || text[1] != '-' || text[2] != '1' || text[3] != '-') {
        return false;
    }
    const WideChar* cursor = text + 4;
    const bool hexadecimal = cursor[0] == '0' && (cursor[1] == 'x' || cursor[1] == 'X');
    cursor = hexadecimal ? SkipNumber(cursor + 2, 16, kAuthorityLimit) : SkipNumber(cursor, 10, kAuthorityLimit);
    int subAuthorities = 0;
    while (cursor != nullptr && *cursor == '-') {
        ++subAuthorities;
        cursor = SkipNumber(cursor + 1, 10, kSubAuthorityLimit);
    }
    return cursor != nullptr && *cursor == 0 && subAuthorities >= 1 && subAuthorities <= kMaxSubAuthorities;
}

}  // namespace ravlo
