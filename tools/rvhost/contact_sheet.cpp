#include "rvhost/contact_sheet.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "rvhost/text_boxes.h"

namespace ravlo {
namespace {

constexpr std::uint32_t kGap = 6;
constexpr std::uint32_t kFrame = 4;
constexpr std::uint32_t kTextScale = 2;
constexpr std::uint32_t kTextHeight = 26;
constexpr Rgb kBackground{24, 26, 30};
constexpr Rgb kTitleColour{230, 230, 230};
constexpr Rgb kLabelColour{255, 255, 255};

struct Box {
    std::uint32_t x;
    std::uint32_t y;
    std::uint32_t width;
    std::uint32_t height;
};

void Fill(RgbImage& image, const Box& box, Rgb colour) {
    const std::uint32_t right = std::min(box.x + box.width, image.width);
    const std::uint32_t bottom = std::min(box.y + box.height, image.height);
    for (std::uint32_t y = box.y; y < bottom; ++y) {
        std::uint8_t* pixel = image.pixels.data() + (std::size_t{y} * image.width + box.x) * 3;
        for (std::uint32_t x = box.x; x < right; ++x) {
            *pixel++ = colour.red;
            *pixel++ = colour.green;
            *pixel++ = colour.blue;
        }
    }
}

void DrawText(RgbImage& image, std::uint32_t x, std::uint32_t y, const std::string& text, Rgb colour) {
    for (const TextBox& box : LayOutText(text)) {
        Fill(image, {x + box.x * kTextScale, y + box.y * kTextScale, box.width * kTextScale, box.height * kTextScale},
             colour);
    }
}

void Paste(RgbImage& sheet, std::uint32_t x, std::uint32_t y, const RgbImage& picture) {
    for (std::uint32_t row = 0; row < picture.height; ++row) {
        std::memcpy(sheet.pixels.data() + (std::size_t{y + row} * sheet.width + x) * 3,
                    picture.pixels.data() + std::size_t{row} * picture.width * 3, std::size_t{picture.width} * 3);
    }
}

}  // namespace

bool ContactSheet::Add(RgbImage picture, std::string label, Rgb colour) {
    const std::size_t bytes = picture.pixels.size();
    if (m_entries.size() == kMostPictures || m_pixelBytes + bytes > kMostPixelBytes) {
        return false;
    }
    m_entries.push_back({std::move(picture), std::move(label), colour});
    m_pixelBytes += bytes;
    return true;
}

RgbImage ContactSheet::Draw(std::uint32_t columns, const std::string& title) const {
    RgbImage sheet;
    if (m_entries.empty()) {
        return sheet;
    }
    const auto count = static_cast<std::uint32_t>(m_entries.size());
    const std::uint32_t across = std::min(columns, count);
    const std::uint32_t down = (count + across - 1) / across;
    const std::uint32_t cellWidth = m_entries.front().picture.width + 2 * kFrame;
    const std::uint32_t cellHeight = m_entries.front().picture.height + 2 * kFrame + kTextHeight;
    sheet.width = kGap + across * (cellWidth + kGap);
    sheet.height = kTextHeight + kGap + down * (cellHeight + kGap);
    sheet.pixels.resize(std::size_t{sheet.width} * sheet.height * 3);
    Fill(sheet, {0, 0, sheet.width, sheet.height}, kBackground);
    DrawText(sheet, kGap, kGap, title, kTitleColour);
    for (std::uint32_t i = 0; i < count; ++i) {
        const Entry& entry = m_entries[i];
        const std::uint32_t x = kGap + i % across * (cellWidth + kGap);
        const std::uint32_t y = kTextHeight + kGap + i / across * (cellHeight + kGap);
        Fill(sheet, {x, y, cellWidth, cellHeight}, entry.colour);
        Paste(sheet, x + kFrame, y + kFrame, entry.picture);
        DrawText(sheet, x + 2 * kFrame, y + cellHeight - kTextHeight + 4, entry.label, kLabelColour);
    }
    return sheet;
}

}  // namespace ravlo
