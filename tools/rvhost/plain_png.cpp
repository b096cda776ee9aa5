#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "rvhost/png_file.h"

namespace ravlo {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::array<std::uint8_t, 8> kSignature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
/// The most that one block of the compressed stream holds when it is not compressed.
constexpr std::size_t kMostStored = 65535;

/// The table of CRC-32 as PNG uses it: polynomial 0xEDB88320, least significant bit first.
constexpr std::array<std::uint32_t, 256> MakeCrcTable() noexcept {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) {
            value = value >> 1 ^ ((value & 1U) != 0 ? 0xEDB88320U : 0U);
        }
        table[i] = value;
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> kCrcTable = MakeCrcTable();

std::uint32_t Crc32(std::span<const std::uint8_t> bytes) noexcept {
    std::uint32_t value = 0xFFFFFFFFU;
    for (const std::uint8_t byte : bytes) {
        value = value >> 8 ^ kCrcTable[(value ^ byte) & 0xFFU];
    }
    return ~value;
}

std::uint32_t Adler32(std::span<const std::uint8_t> bytes) noexcept {
    constexpr std::uint32_t kModulus = 65521;
    constexpr std::size_t kMostBetweenDivisions = 5552;  // beyond that the second sum could overflow
    std::uint32_t first = 1;
    std::uint32_t second = 0;
    while (!bytes.empty()) {
        const std::size_t count = std::min(bytes.size(), kMostBetweenDivisions);
        for (const std::uint8_t byte : bytes.first(count)) {
            first += byte;
            second += first;
        }
        first %= kModulus;
        second %= kModulus;
        bytes = bytes.subspan(count);
    }
    return second << 16 | first;
}

void AppendBigEndian(Bytes& out, std::uint32_t value) {
    for (const int shift : {24, 16, 8, 0}) {
        out.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

void AppendChunk(Bytes& out, std::string_view type, std::span<const std::uint8_t> content) {
    AppendBigEndian(out, static_cast<std::uint32_t>(content.size()));
    const std::size_t begin = out.size();
    out.insert(out.end(), type.begin(), type.end());
    out.insert(out.end(), content.begin(), content.end());
    AppendBigEndian(out, Crc32(std::span(out).subspan(begin)));
}

/// The rows, each behind a zero that says "not filtered".
Bytes Scanlines(const RgbImage& image) {
    const std::size_t rowBytes = std::size_t{image.width} * 3;
    Bytes rows;
    rows.reserve((rowBytes + 1) * image.height);
    for (std::size_t y = 0; y < image.height; ++y) {
        rows.push_back(0);
        const auto row = std::span(image.pixels).subspan(y * rowBytes, rowBytes);
        rows.insert(rows.end(), row.begin(), row.end());
    }
    return rows;
}

/// The bytes as a zlib stream of blocks that are only stored.
Bytes Stored(std::span<const std::uint8_t> bytes) {
    Bytes out{0x78, 0x01};
    out.reserve(bytes.size() + bytes.size() / kMostStored * 5 + 16);
    const std::uint32_t checkSum = Adler32(bytes);
    bool last = false;
    while (!last) {
        const auto block = bytes.first(std::min(bytes.size(), kMostStored));
        bytes = bytes.subspan(block.size());
        last = bytes.empty();
        out.push_back(last ? 1 : 0);
        const auto length = static_cast<std::uint16_t>(block.size());
        const auto inverse = static_cast<std::uint16_t>(~length);
        for (const std::uint16_t value : {length, inverse}) {
            out.push_back(static_cast<std::uint8_t>(value & 0xFFU));
            out.push_back(static_cast<std::uint8_t>(value >> 8));
        }
        out.insert(out.end(), block.begin(), block.end());
    }
    AppendBigEndian(out, checkSum);
    return out;
}

}  // namespace

std::vector<std::uint8_t> PlainPng(const RgbImage& image) {
    Bytes header;
    AppendBigEndian(header, image.width);
    AppendBigEndian(header, image.height);
    header.insert(header.end(), {8, 2, 0, 0, 0});  // eight bits of red, green and blue, not interlaced
    Bytes file(kSignature.begin(), kSignature.end());
    AppendChunk(file, "IHDR", header);
    AppendChunk(file, "IDAT", Stored(Scanlines(image)));
    AppendChunk(file, "IEND", {});
    return file;
}

}  // namespace ravlo
