#include "rvhost/text_boxes.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <string>

#include <stb/stb_easy_font.h>

namespace ravlo {
namespace {

/// The font comes as rectangles of four corners each.
struct Corner {
    float x;
    float y;
    float z;
    std::uint8_t colour[4];
};
static_assert(sizeof(Corner) == 16);

}  // namespace

std::vector<TextBox> LayOutText(std::string_view text) {
    std::string copy(text);  // the font takes a pointer to mutable text, and never writes to it
    std::vector<std::byte> memory(copy.size() * 300 + 64);
    const int quads = stb_easy_font_print(0, 0, copy.data(), nullptr, memory.data(), static_cast<int>(memory.size()));
    std::vector<TextBox> boxes;
    boxes.reserve(static_cast<std::size_t>(quads));
    for (int i = 0; i < quads; ++i) {
        std::array<Corner, 4> corners{};
        std::memcpy(corners.data(), memory.data() + static_cast<std::size_t>(i) * sizeof(corners), sizeof(corners));
        const auto left = static_cast<std::uint32_t>(corners[0].x);
        const auto top = static_cast<std::uint32_t>(corners[0].y);
        const auto right = static_cast<std::uint32_t>(corners[2].x);
        const auto bottom = static_cast<std::uint32_t>(corners[2].y);
        boxes.push_back({left, top, right - left, bottom - top});
    }
    return boxes;
}

std::uint32_t TextWidth(std::string_view text) {
    std::string copy(text);
    return static_cast<std::uint32_t>(stb_easy_font_width(copy.data()));
}

}  // namespace ravlo
