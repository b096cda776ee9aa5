#include "rvfeeder/input_kind.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string_view>

namespace ravlo {
namespace {

using namespace std::string_view_literals;

struct Signature {
    std::size_t offset;
    std::string_view bytes;
    const char* name;
};

/// What people have in their folders and try first.
constexpr std::array kFilms{
    Signature{4, "ftyp"sv, "an MP4 or QuickTime film"},
    Signature{0, "\x1a\x45\xdf\xa3"sv, "a Matroska or WebM film"},
    Signature{8, "AVI "sv, "an AVI film"},
    Signature{0, "\0\0\1\xba"sv, "an MPEG film"},
    Signature{0, "\x30\x26\xb2\x75"sv, "a Windows Media film"},
};
constexpr std::array kPictures{
    Signature{0, "GIF8"sv, "a GIF picture"},   Signature{8, "WEBP"sv, "a WebP picture"},
    Signature{0, "BM"sv, "a BMP picture"},     Signature{0, "II*\0"sv, "a TIFF picture"},
    Signature{0, "MM\0*"sv, "a TIFF picture"},
};

bool Carries(std::span<const std::uint8_t> bytes, std::string_view signature, std::size_t offset = 0) noexcept {
    return bytes.size() >= offset + signature.size() &&
           std::equal(signature.begin(), signature.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                      [](char left, std::uint8_t right) { return static_cast<std::uint8_t>(left) == right; });
}

template <class Table>
const char* NameFrom(const Table& table, std::span<const std::uint8_t> bytes) noexcept {
    for (const Signature& signature : table) {
        if (Carries(bytes, signature.bytes, signature.offset)) {
            return signature.name;
        }
    }
    return nullptr;
}

std::string Hexadecimal(std::span<const std::uint8_t> bytes) {
    constexpr std::size_t kMostShown = 8;
    std::string text;
    for (const std::uint8_t byte : bytes.first(std::min(bytes.size(), kMostShown))) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", unsigned{byte});
        text += (text.empty() ? "" : " ") + std::string(digits.data());
    }
    return text;
}

}  // namespace

InputKind RecogniseInput(std::span<const std::uint8_t> firstBytes) noexcept {
    if (Carries(firstBytes, "YUV4MPEG2 "sv) || Carries(firstBytes, "YUV4MPEG2\n"sv)) {
        return InputKind::Y4m;
    }
    if (Carries(firstBytes, "\x89PNG\r\n\x1a\n"sv)) {
        return InputKind::Png;
    }
    return Carries(firstBytes, "\xff\xd8\xff"sv) ? InputKind::Jpeg : InputKind::Other;
}

std::string WhyNotShown(std::span<const std::uint8_t> firstBytes) {
    if (firstBytes.empty()) {
        return "the input is empty";
    }
    if (const char* const film = NameFrom(kFilms, firstBytes)) {
        return std::string("the input is ") + film +
               "; decode it first, for example with ffmpeg -i FILE -pix_fmt yuv420p -f yuv4mpegpipe - | rvfeeder -";
    }
    if (const char* const picture = NameFrom(kPictures, firstBytes)) {
        return std::string("the input is ") + picture + "; save it as PNG or JPEG first";
    }
    return "the input is neither Y4M nor PNG nor JPEG, it begins with " + Hexadecimal(firstBytes) +
           "; for raw NV12 give --size and --rate";
}

}  // namespace ravlo
