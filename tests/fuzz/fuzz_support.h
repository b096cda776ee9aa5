#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/wide_char.h"

/// What every fuzzer needs: a check, the input as a sequence of values, and texts that end where their memory ends.
namespace ravlo::fuzz {

using Bytes = std::vector<std::uint8_t>;
using WideText = std::basic_string<WideChar>;

/// Says which property does not hold and aborts; the engine then keeps the input that led here.
inline void Require(bool condition, const char* text) {
    if (!condition) {
        std::fprintf(stderr, "property violated: %s\n", text);
        std::abort();
    }
}

/// The engine's bytes, taken from the front, so that a seed can be written and read by hand. What is not there reads as
/// zero.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) noexcept : m_cursor(data), m_left(size) {}

    bool IsEmpty() const noexcept { return m_left == 0; }

    std::uint8_t Byte() noexcept {
        if (m_left == 0) {
            return 0;
        }
        --m_left;
        return *m_cursor++;
    }

    /// A little-endian number of `bytes` bytes.
    std::uint64_t Number(unsigned bytes) noexcept {
        std::uint64_t number = 0;
        for (unsigned i = 0; i < bytes; ++i) {
            number |= std::uint64_t{Byte()} << (8 * i);
        }
        return number;
    }

    std::uint32_t Number32() noexcept { return static_cast<std::uint32_t>(Number(4)); }
    std::uint64_t Number64() noexcept { return Number(8); }

    /// At most `count` bytes; fewer when fewer are left.
    Bytes Take(std::size_t count) {
        const std::size_t taken = std::min(count, m_left);
        Bytes bytes(m_cursor, m_cursor + taken);
        m_cursor += taken;
        m_left -= taken;
        return bytes;
    }

    Bytes Rest() { return Take(m_left); }

    /// The bytes up to a zero byte or the end; the zero byte is taken too.
    std::string Line() {
        std::string line;
        while (!IsEmpty()) {
            const char character = static_cast<char>(Byte());
            if (character == '\0') {
                break;
            }
            line.push_back(character);
        }
        return line;
    }

    /// The rest as UTF-16 units: a byte below 0x80 is a unit of its own; from 0x80 on its low seven bits and the next
    /// byte are one, so that units which only look like ASCII in their low byte are a single mutation away.
    WideText WideRest() {
        WideText text;
        while (!IsEmpty()) {
            const std::uint8_t first = Byte();
            const unsigned unit = first < 0x80 ? first : (first & 0x7FU) << 8 | Byte();
            text.push_back(static_cast<WideChar>(unit));
        }
        return text;
    }

private:
    const std::uint8_t* m_cursor;
    std::size_t m_left;
};

/// The text as a platform function sees it: up to its first terminator.
inline WideText UpToTerminator(const WideText& text) {
    return text.substr(0, text.find(WideChar{0}));
}

/// A copy whose memory ends with the terminator, so that a step too far is noticed.
inline std::vector<WideChar> Terminated(const WideText& text) {
    std::vector<WideChar> copy(text.begin(), text.end());
    copy.push_back(0);
    copy.shrink_to_fit();
    return copy;
}

inline bool IsDecimalDigit(unsigned unit) noexcept {
    return unit >= 0x30 && unit <= 0x39;
}

/// True for a text of digits alone, at least one.
template <class Text>
bool IsAllDigits(const Text& text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](auto unit) { return IsDecimalDigit(static_cast<unsigned>(unit)); });
}

/// The parts of `text` between separators, empty ones included: one more than there are separators.
template <class Text>
std::vector<Text> Split(const Text& text, typename Text::value_type separator) {
    std::vector<Text> parts(1);
    for (const auto unit : text) {
        if (unit == separator) {
            parts.emplace_back();
        } else {
            parts.back().push_back(unit);
        }
    }
    return parts;
}

/// ASCII as 16-bit units.
inline WideText Widen(const std::string& ascii) {
    return WideText(ascii.begin(), ascii.end());
}

}  // namespace ravlo::fuzz
