#include "rvfeeder/jpeg_check.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace ravlo {
namespace {

using namespace std::string_view_literals;

constexpr std::uint8_t kMarkerBegin = 0xFF;
constexpr std::uint8_t kHuffmanTables = 0xC4;
constexpr std::uint8_t kFirstRestart = 0xD0;
constexpr std::uint8_t kLastRestart = 0xD7;
constexpr std::uint8_t kStart = 0xD8;
constexpr std::uint8_t kEnd = 0xD9;
constexpr std::uint8_t kScan = 0xDA;
constexpr std::uint8_t kCameraNotes = 0xE1;

class JpegBytes {
public:
    explicit JpegBytes(std::span<const std::uint8_t> bytes) noexcept : m_bytes(bytes) {}

    std::size_t Size() const noexcept { return m_bytes.size(); }

    /// Zero behind the end, as the decoder reads it.
    std::size_t Byte(std::size_t at) const noexcept { return at < m_bytes.size() ? m_bytes[at] : 0; }

    /// Length of a segment, itself included but not the marker before it.
    std::size_t Length(std::size_t at) const noexcept { return Byte(at) << 8 | Byte(at + 1); }

    bool IsMarker(std::size_t at) const noexcept {
        return Byte(at) == kMarkerBegin && Byte(at + 1) != 0 && Byte(at + 1) != kMarkerBegin;
    }

    /// True when every table of the segment at `at` has at most as many symbols as there are. It is read exactly as the
    /// decoder reads it, also where it runs over the end of the segment.
    bool HasSaneTables(std::size_t at) const noexcept {
        constexpr std::size_t kMostSymbols = 256;
        constexpr std::size_t kLengths = 16;
        const std::size_t end = at + Length(at);
        at += 2;
        while (at < end) {
            std::size_t symbols = 0;
            for (std::size_t i = 1; i <= kLengths; ++i) {
                symbols += Byte(at + i);
            }
            if (symbols > kMostSymbols) {
                return false;
            }
            at += 1 + kLengths + symbols;
        }
        return true;
    }

    bool Carries(std::size_t at, std::string_view text) const noexcept {
        return at <= m_bytes.size() && m_bytes.size() - at >= text.size() &&
               std::equal(text.begin(), text.end(), m_bytes.begin() + static_cast<std::ptrdiff_t>(at),
                          [](char left, std::uint8_t right) { return static_cast<std::uint8_t>(left) == right; });
    }

private:
    std::span<const std::uint8_t> m_bytes;
};

/// The orientation from the notes that begin at `begin`, laid out as in a TIFF file; 0 when there is none.
std::size_t OrientationFrom(const JpegBytes& bytes, std::size_t begin) noexcept {
    constexpr std::size_t kOrientation = 0x0112;
    constexpr std::size_t kEntryBytes = 12;
    const bool isLittle = bytes.Carries(begin, "II*\0"sv);
    if (!isLittle && !bytes.Carries(begin, "MM\0*"sv)) {
        return 0;
    }
    const auto two = [&](std::size_t at) {
        return isLittle ? bytes.Byte(at + 1) << 8 | bytes.Byte(at) : bytes.Byte(at) << 8 | bytes.Byte(at + 1);
    };
    const auto four = [&](std::size_t at) {
        return isLittle ? two(at + 2) << 16 | two(at) : two(at) << 16 | two(at + 2);
    };
    const std::size_t table = begin + four(begin + 4);
    const std::size_t entries = two(table);
    for (std::size_t i = 0; i < entries; ++i) {
        const std::size_t entry = table + 2 + i * kEntryBytes;
        if (two(entry) == kOrientation) {
            return two(entry + 8);
        }
    }
    return 0;
}

}  // namespace

JpegState CheckJpeg(std::span<const std::uint8_t> file) noexcept {
    const JpegBytes bytes(file);
    if (bytes.Byte(0) != kMarkerBegin || bytes.Byte(1) != kStart) {
        return JpegState::Damaged;
    }
    bool hasScan = false;
    bool isInScan = false;  // among the bits of a picture rather than between segments
    for (std::size_t at = 2; at < bytes.Size();) {
        if (!bytes.IsMarker(at)) {
            if (!isInScan && bytes.Byte(at) != kMarkerBegin) {
                return JpegState::Damaged;
            }
            ++at;
            continue;
        }
        const std::size_t marker = bytes.Byte(at + 1);
        at += 2;
        if (isInScan && marker >= kFirstRestart && marker <= kLastRestart) {
            continue;
        }
        if (marker == kEnd) {
            return hasScan ? JpegState::Whole : JpegState::Damaged;
        }
        if (marker == kHuffmanTables && !bytes.HasSaneTables(at)) {
            return JpegState::Damaged;
        }
        isInScan = marker == kScan;
        hasScan = hasScan || isInScan;
        at += bytes.Length(at);
    }
    return JpegState::CutShort;
}

unsigned JpegOrientation(std::span<const std::uint8_t> file) noexcept {
    constexpr std::string_view kSignature = "Exif\0\0"sv;
    constexpr std::size_t kLast = 8;
    const JpegBytes bytes(file);
    for (std::size_t at = 2; bytes.IsMarker(at) && bytes.Byte(at + 1) != kScan; at += 2 + bytes.Length(at + 2)) {
        if (bytes.Byte(at + 1) == kCameraNotes && bytes.Carries(at + 4, kSignature)) {
            const std::size_t orientation = OrientationFrom(bytes, at + 4 + kSignature.size());
            return orientation >= 1 && orientation <= kLast ? static_cast<unsigned>(orientation) : 1;
        }
    }
    return 1;
}

}  // namespace ravlo
