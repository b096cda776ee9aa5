#pragma once

#include <cinttypes>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "trace/formatter.h"

/// The trace formatter once more, with strings that grow and the runtime library's numbers, for comparison with it.
namespace ravlo::fuzz {

/// A piece of a format: text, or a conversion, which takes an argument unless it is unknown.
struct Piece {
    enum class Takes { Nothing, Number, Narrow, Wide, Guid };

    std::string text;  ///< printed as it is when nothing is taken
    Takes takes = Takes::Nothing;
    char character = '\0';
    bool is64 = false;
    bool isZeroPadded = false;
    std::size_t width = 0;   ///< at most 32
    std::size_t offset = 0;  ///< of the character behind "%" in the format
};

/// What a piece takes, for as long as the formatter may look at it.
struct Argument {
    TraceSlot number = 0;
    std::optional<std::vector<char>> narrow;
    std::optional<std::vector<WideChar>> wide;
    std::optional<TraceGuid> guid;
};

inline std::string Padded(const std::string& digits, const Piece& piece) {
    const std::size_t missing = piece.width > digits.size() ? piece.width - digits.size() : 0;
    return std::string(missing, piece.isZeroPadded ? '0' : ' ') + digits;
}

inline std::string Hexadecimal(std::uint64_t value, bool isUpper, int digits = 1) {
    char text[24];
    std::snprintf(text, sizeof(text), isUpper ? "%0*" PRIX64 : "%0*" PRIx64, digits, value);
    return text;
}

inline Piece::Takes KindOf(char character, bool isLong) {
    switch (character) {
        case 's':
            return isLong ? Piece::Takes::Wide : Piece::Takes::Narrow;
        case 'S':
            return Piece::Takes::Wide;
        case 'G':
            return Piece::Takes::Guid;
        default:
            return std::string("diuxXpc").find(character) != std::string::npos ? Piece::Takes::Number
                                                                               : Piece::Takes::Nothing;
    }
}

/// Takes a format apart.
inline std::vector<Piece> Pieces(const std::string& format) {
    std::vector<Piece> pieces;
    std::size_t at = 0;
    const auto skip = [&](const char* text) {
        const std::size_t length = std::string(text).size();
        const bool isThere = format.compare(at, length, text) == 0;
        at += isThere ? length : 0;
        return isThere;
    };
    while (at < format.size()) {
        Piece piece;
        const std::size_t percent = std::min(format.find('%', at), format.size());
        piece.text = format.substr(at, percent - at);
        if (!piece.text.empty()) {
            pieces.push_back(piece);
        }
        at = percent + 1;
        piece.offset = at;
        if (at >= format.size()) {
            break;
        }
        if (skip("%")) {
            piece.text = "%";
            pieces.push_back(piece);
            continue;
        }
        piece.isZeroPadded = format[at] == '0';
        const std::size_t digits = std::min(format.find_first_not_of("0123456789", at), format.size());
        for (; at < digits; ++at) {
            piece.width = std::min<std::size_t>(32, piece.width * 10 + static_cast<std::size_t>(format[at] - '0'));
        }
        piece.is64 = skip("I64") || skip("ll");
        const bool isLong = !piece.is64 && skip("l");
        if (at >= format.size()) {
            break;
        }
        piece.character = format[at++];
        piece.takes = KindOf(piece.character, isLong);
        piece.text = std::string("%") + piece.character;
        pieces.push_back(piece);
    }
    return pieces;
}

inline std::string ExpandNumber(const Piece& piece, TraceSlot slot) {
    const std::uint64_t number = piece.is64 ? slot : slot & 0xFFFFFFFF;
    switch (piece.character) {
        case 'x':
        case 'X':
            return Padded(Hexadecimal(number, piece.character == 'X'), piece);
        case 'p':
            return Hexadecimal(slot, true, 16);
        case 'c':
            return std::string(1, static_cast<char>(slot & 0xFF));
        case 'u':
            return Padded(std::to_string(number), piece);
        default:
            break;
    }
    const std::string digits = piece.is64 ? std::to_string(static_cast<std::int64_t>(slot))
                                          : std::to_string(static_cast<std::int32_t>(number));
    return digits[0] == '-' ? "-" + Padded(digits.substr(1), piece) : Padded(digits, piece);
}

inline std::string ExpandGuid(const TraceGuid& guid) {
    std::string text = "{" + Hexadecimal(guid.data1, true, 8) + "-" + Hexadecimal(guid.data2, true, 4) + "-" +
                       Hexadecimal(guid.data3, true, 4) + "-";
    for (const std::uint8_t byte : guid.data4) {
        text += Hexadecimal(byte, true, 2);
    }
    text.insert(24, "-");
    return text + "}";
}

/// What one piece prints. An argument that is not there is a zero, which is a null pointer too.
inline std::string Expand(const Piece& piece, const Argument* argument) {
    std::string text;
    switch (piece.takes) {
        case Piece::Takes::Number:
            return ExpandNumber(piece, argument != nullptr ? argument->number : 0);
        case Piece::Takes::Narrow:
            return argument != nullptr && argument->narrow ? argument->narrow->data() : "(null)";
        case Piece::Takes::Wide:
            if (argument == nullptr || !argument->wide) {
                return "(null)";
            }
            std::transform(argument->wide->begin(), argument->wide->end() - 1, std::back_inserter(text),
                           [](WideChar unit) { return unit < 32 || unit > 126 ? '?' : static_cast<char>(unit); });
            return text;
        case Piece::Takes::Guid:
            return argument != nullptr && argument->guid ? ExpandGuid(*argument->guid) : "{null-guid}";
        default:
            return piece.text;
    }
}

}  // namespace ravlo::fuzz
