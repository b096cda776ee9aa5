#include "common/test_card_stamp.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace ravlo {
namespace {

constexpr std::uint8_t kBlack = 16;
constexpr std::uint8_t kWhite = 235;
constexpr std::uint8_t kNoColour = 128;
constexpr std::uint32_t kMagic = 0x5256;
constexpr std::uint32_t kSmallestCell = 2;

/// The stamp's bits as bytes, the first bit in the highest place of the first byte.
using StampBytes = std::array<std::uint8_t, std::size_t{kStampColumns} * kStampRows / 8>;
constexpr std::size_t kFrameAt = 2;
constexpr std::size_t kTimeAt = 6;
constexpr std::size_t kCrcAt = 14;
static_assert(kCrcAt + 2 == sizeof(StampBytes));

void PutNumber(StampBytes& bytes, std::size_t at, std::size_t length, std::uint64_t value) noexcept {
    for (std::size_t i = 0; i < length; ++i) {
        bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * (length - 1 - i)));
    }
}

std::uint64_t GetNumber(const StampBytes& bytes, std::size_t at, std::size_t length) noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < length; ++i) {
        value = value << 8 | bytes[at + i];
    }
    return value;
}

std::uint32_t Crc16(const StampBytes& bytes) noexcept {
    std::uint32_t crc = 0xFFFF;
    for (std::size_t i = 0; i < kCrcAt; ++i) {
        crc ^= std::uint32_t{bytes[i]} << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000U) != 0 ? crc << 1 ^ 0x1021U : crc << 1;
        }
        crc &= 0xFFFFU;
    }
    return crc;
}

bool IsWhole(std::size_t bytes, const FrameGeometry& geometry) noexcept {
    return IsValidGeometry(geometry) && bytes == FrameBytes(geometry);
}

}  // namespace

std::uint32_t TestCardStampCell(const FrameGeometry& geometry) noexcept {
    if (geometry.width < kStampColumns * kSmallestCell || geometry.height < kStampRows * kSmallestCell) {
        return 0;
    }
    const std::uint32_t cell = std::min(geometry.width / 4 / kStampColumns, geometry.height / 2 / kStampRows);
    return std::max(cell / 2 * 2, kSmallestCell);
}

bool DrawTestCardStamp(std::span<std::uint8_t> nv12, const FrameGeometry& geometry,
                       const TestCardStamp& stamp) noexcept {
    const std::size_t cell = TestCardStampCell(geometry);
    if (cell == 0 || !IsWhole(nv12.size(), geometry)) {
        return false;
    }
    StampBytes bytes{};
    PutNumber(bytes, 0, kFrameAt, kMagic);
    PutNumber(bytes, kFrameAt, kTimeAt - kFrameAt, stamp.frame);
    PutNumber(bytes, kTimeAt, kCrcAt - kTimeAt, static_cast<std::uint64_t>(stamp.time));
    PutNumber(bytes, kCrcAt, sizeof(StampBytes) - kCrcAt, Crc16(bytes));
    const std::size_t stride = DefaultStride(geometry);
    for (std::size_t y = 0; y < kStampRows * cell; ++y) {
        std::uint8_t* row = nv12.data() + y * stride;
        for (std::size_t column = 0; column < kStampColumns; ++column) {
            const std::size_t bit = y / cell * kStampColumns + column;
            const bool isOne = (bytes[bit / 8] >> (7 - bit % 8) & 1) != 0;
            std::memset(row + column * cell, isOne ? kWhite : kBlack, cell);
        }
    }
    std::uint8_t* const chroma = nv12.data() + LumaBytes(geometry);
    for (std::size_t y = 0; y < kStampRows * cell / 2; ++y) {
        std::memset(chroma + y * stride, kNoColour, kStampColumns * cell);
    }
    return true;
}

std::optional<TestCardStamp> ReadTestCardStamp(std::span<const std::uint8_t> nv12,
                                               const FrameGeometry& geometry) noexcept {
    constexpr unsigned kMiddle = (kBlack + kWhite) / 2;
    const std::size_t cell = TestCardStampCell(geometry);
    if (cell == 0 || !IsWhole(nv12.size(), geometry)) {
        return std::nullopt;
    }
    const std::size_t stride = DefaultStride(geometry);
    StampBytes bytes{};
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        // The mean of the four pixels around the cell's middle, which are whole pixels because the cell is even.
        const std::size_t y = bit / kStampColumns * cell + cell / 2;
        const std::size_t x = bit % kStampColumns * cell + cell / 2;
        const std::uint8_t* const below = nv12.data() + y * stride + x;
        const std::uint8_t* const above = below - stride;
        const unsigned sum = unsigned{above[-1]} + above[0] + below[-1] + below[0];
        if (sum > kMiddle * 4) {
            bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] | 1U << (7 - bit % 8));
        }
    }
    if (GetNumber(bytes, 0, kFrameAt) != kMagic ||
        GetNumber(bytes, kCrcAt, sizeof(StampBytes) - kCrcAt) != Crc16(bytes)) {
        return std::nullopt;
    }
    return TestCardStamp{static_cast<std::uint32_t>(GetNumber(bytes, kFrameAt, kTimeAt - kFrameAt)),
                         static_cast<std::int64_t>(GetNumber(bytes, kTimeAt, kCrcAt - kTimeAt))};
}

}  // namespace ravlo
