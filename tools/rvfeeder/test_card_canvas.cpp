#include "rvfeeder/test_card_canvas.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace ravlo {
namespace {

/// The dots of a letter, a row a byte from the top; the leftmost of its five dots is the highest bit.
struct Letter {
    char character;
    std::array<std::uint8_t, TestCardCanvas::kTextRows> rows;
};

constexpr std::array kLetters{
    Letter{'0', {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110}},
    Letter{'1', {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    Letter{'2', {0b01110, 0b10001, 0b00001, 0b00110, 0b01000, 0b10000, 0b11111}},
    Letter{'3', {0b01110, 0b10001, 0b00001, 0b00110, 0b00001, 0b10001, 0b01110}},
    Letter{'4', {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010}},
    Letter{'5', {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110}},
    Letter{'6', {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110}},
    Letter{'7', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b01000, 0b01000}},
    Letter{'8', {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110}},
    Letter{'9', {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100}},
    Letter{':', {0b00000, 0b00100, 0b00100, 0b00000, 0b00100, 0b00100, 0b00000}},
    Letter{'.', {0b00000, 0b00000, 0b00000, 0b00000, 0b00000, 0b00110, 0b00110}},
    Letter{'x', {0b00000, 0b00000, 0b10001, 0b01010, 0b00100, 0b01010, 0b10001}},
    Letter{'f', {0b00110, 0b01001, 0b01000, 0b11100, 0b01000, 0b01000, 0b01000}},
    Letter{'p', {0b00000, 0b00000, 0b11110, 0b10001, 0b11110, 0b10000, 0b10000}},
    Letter{'s', {0b00000, 0b00000, 0b01111, 0b10000, 0b01110, 0b00001, 0b11110}},
    Letter{'r', {0b00000, 0b00000, 0b10110, 0b11001, 0b10000, 0b10000, 0b10000}},
    Letter{'a', {0b00000, 0b00000, 0b01110, 0b00001, 0b01111, 0b10001, 0b01111}},
    Letter{'m', {0b00000, 0b00000, 0b11010, 0b10101, 0b10101, 0b10101, 0b10101}},
    Letter{'e', {0b00000, 0b00000, 0b01110, 0b10001, 0b11111, 0b10000, 0b01110}},
};

}  // namespace

void TestCardCanvas::FillLuma(const CanvasBox& box, std::uint8_t luma) noexcept {
    const std::size_t stride = DefaultStride(m_geometry);
    if (box.x >= m_geometry.width || box.y >= m_geometry.height) {
        return;
    }
    const std::size_t width = std::min(box.width, m_geometry.width - box.x);
    const std::size_t bottom = box.y + std::min(box.height, m_geometry.height - box.y);
    for (std::size_t y = box.y; y < bottom; ++y) {
        std::memset(m_nv12.data() + y * stride + box.x, luma, width);
    }
}

void TestCardCanvas::Fill(const CanvasBox& box, const CodeColour& colour) noexcept {
    FillLuma(box, colour.luma);
    const std::size_t stride = DefaultStride(m_geometry);
    const std::size_t left = (box.x + 1) / 2 * 2;
    const std::size_t right = std::min<std::size_t>(box.x + box.width + 1, m_geometry.width) / 2 * 2;
    const std::size_t bottom = std::min<std::size_t>(box.y + box.height + 1, m_geometry.height) / 2;
    std::uint8_t* const plane = m_nv12.data() + LumaBytes(m_geometry);
    for (std::size_t y = (box.y + 1) / 2; y < bottom; ++y) {
        for (std::size_t x = left; x < right; x += 2) {
            plane[y * stride + x] = colour.cb;
            plane[y * stride + x + 1] = colour.cr;
        }
    }
}

void TestCardCanvas::SetLuma(std::size_t x, std::size_t y, std::uint8_t luma) noexcept {
    m_nv12[y * DefaultStride(m_geometry) + x] = luma;
}

void TestCardCanvas::WriteText(std::size_t x, std::size_t y, std::size_t dot, std::string_view text,
                               std::uint8_t luma) noexcept {
    constexpr std::size_t kColumns = 5;
    for (const char character : text) {
        const auto* const letter = std::find_if(kLetters.begin(), kLetters.end(),
                                                [=](const Letter& known) { return known.character == character; });
        for (std::size_t row = 0; letter != kLetters.end() && row < kTextRows; ++row) {
            for (std::size_t column = 0; column < kColumns; ++column) {
                if ((letter->rows[row] >> (kColumns - 1 - column) & 1) != 0) {
                    FillLuma({x + column * dot, y + row * dot, dot, dot}, luma);
                }
            }
        }
        x += (kColumns + 1) * dot;
    }
}

}  // namespace ravlo
