#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace ravlo {

/// Text as axis-aligned boxes to be filled, in units of the font: multiply by a whole number for larger text. ASCII.
struct TextBox {
    std::uint32_t x;
    std::uint32_t y;
    std::uint32_t width;
    std::uint32_t height;
};

/// From the top of a capital letter to the end of a descender.
inline constexpr std::uint32_t kTextBoxHeight = 9;
/// From the top of a capital letter to its foot.
inline constexpr std::uint32_t kCapitalHeight = 7;

/// The boxes of one line of text whose upper left corner is at 0, 0.
std::vector<TextBox> LayOutText(std::string_view text);

/// How far one line of text reaches to the right, the gap after its last letter included.
std::uint32_t TextWidth(std::string_view text);

}  // namespace ravlo
