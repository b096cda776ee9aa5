#include "rvfeeder/test_card.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "common/test_card_stamp.h"

namespace ravlo {
namespace {

/// 75 % bars: R', G' and B' are each 0 or 0.75, brought to limited-range BT.709 and rounded.
constexpr std::array kBars{
    CodeColour{180, 128, 128},  // grey
    CodeColour{168, 44, 136},   // yellow
    CodeColour{145, 147, 44},   // cyan
    CodeColour{133, 63, 52},    // green
    CodeColour{63, 193, 204},   // magenta
    CodeColour{51, 109, 212},   // red
    CodeColour{28, 212, 120},   // blue
    CodeColour{16, 128, 128},   // black
};
constexpr CodeColour kTrack{48, 128, 128};
constexpr CodeColour kTrackMark{96, 128, 128};

/// Below these there is no room for letters of one pixel a dot.
constexpr std::uint32_t kLeastWidth = 160;
constexpr std::uint32_t kLeastHeight = 90;
/// The disc crosses the picture in about this many frames, so that the eye can follow it.
constexpr std::size_t kFramesAcross = 120;

std::size_t Even(std::size_t value) noexcept {
    return value / 2 * 2;
}

/// Pixels a dot of `letters` letters, at least one, may have to fit in a box.
std::size_t DotFor(std::size_t letters, std::size_t width, std::size_t height) noexcept {
    return std::min(width / TestCardCanvas::TextColumns(std::max<std::size_t>(letters, 1)),
                    height / TestCardCanvas::kTextRows);
}

using TimeText = std::array<char, 24>;

TimeText FormatTime(std::uint32_t number, const FrameGeometry& geometry) noexcept {
    // 64 bits hold 2^32 frames times 2^32, but not times 1000 as well, so the whole seconds go first.
    const std::uint64_t parts = std::uint64_t{number} * geometry.rateDenominator;
    const std::uint64_t seconds = parts / geometry.rateNumerator;
    const std::uint64_t ms = parts % geometry.rateNumerator * 1000 / geometry.rateNumerator;
    TimeText text{};
    std::snprintf(text.data(), text.size(), "%02u:%02u:%02u.%03u", static_cast<unsigned>(seconds / 3600 % 100),
                  static_cast<unsigned>(seconds / 60 % 60), static_cast<unsigned>(seconds % 60),
                  static_cast<unsigned>(ms));
    return text;
}

}  // namespace

std::string TestCardTime(std::uint32_t number, const FrameGeometry& geometry) {
    return FormatTime(number, geometry).data();
}

std::string TestCardTitle(const FrameGeometry& geometry) {
    const std::uint64_t hundredths =
        (std::uint64_t{geometry.rateNumerator} * 100 + geometry.rateDenominator / 2) / geometry.rateDenominator;
    std::array<char, 80> text{};
    if (geometry.rateNumerator % geometry.rateDenominator == 0) {
        std::snprintf(text.data(), text.size(), "%ux%u %u fps", geometry.width, geometry.height,
                      geometry.rateNumerator / geometry.rateDenominator);
    } else {
        std::snprintf(text.data(), text.size(), "%ux%u %u.%02u fps", geometry.width, geometry.height,
                      static_cast<unsigned>(hundredths / 100), static_cast<unsigned>(hundredths % 100));
    }
    return text.data();
}

TestCard::TestCard(const FrameGeometry& geometry)
    : m_geometry(geometry),
      m_layout{},
      m_hasRoom(geometry.width >= kLeastWidth && geometry.height >= kLeastHeight),
      m_still(FrameBytes(geometry)) {
    const std::size_t height = geometry.height;
    const std::size_t stamp = std::size_t{TestCardStampCell(geometry)} * kStampRows;
    if (m_hasRoom) {
        m_layout.bars = std::max(Even(height / 9), stamp);
        m_layout.track = Even(height * 56 / 100);
        m_layout.ramp = Even(height * 64 / 100);
        m_layout.numbers = Even(height * 72 / 100);
        m_layout.end = height;
    }
    TestCardCanvas canvas(m_still, geometry);
    DrawStill(canvas);
}

void TestCard::Draw(std::span<std::uint8_t> nv12, std::uint32_t number) const noexcept {
    std::memcpy(nv12.data(), m_still.data(), m_still.size());
    TestCardCanvas canvas(nv12, m_geometry);
    if (m_hasRoom) {
        DrawDisc(canvas, number);
        DrawNumbers(canvas, number);
    } else {
        DrawMovingBar(canvas, number);
    }
}

void TestCard::DrawStill(TestCardCanvas& canvas) const {
    const std::size_t width = m_geometry.width;
    canvas.Fill({0, 0, width, m_geometry.height}, kCodeBlack);
    if (!m_hasRoom) {
        DrawBars(canvas, {0, 0, width, m_geometry.height});
        return;
    }
    DrawBars(canvas, {0, m_layout.bars, width, m_layout.track - m_layout.bars});
    canvas.Fill({0, m_layout.track, width, m_layout.ramp - m_layout.track}, kTrack);
    for (std::size_t mark = 1; mark < kBars.size(); ++mark) {
        canvas.FillLuma({mark * width / kBars.size(), m_layout.track, 2, m_layout.ramp - m_layout.track},
                        kTrackMark.luma);
    }
    DrawRamp(canvas, {0, m_layout.ramp, width, m_layout.numbers - m_layout.ramp});
    DrawTitle(canvas);
}

void TestCard::DrawBars(TestCardCanvas& canvas, const CanvasBox& box) const noexcept {
    for (std::size_t bar = 0; bar < kBars.size(); ++bar) {
        const std::size_t left = Even(bar * box.width / kBars.size());
        const std::size_t right = Even((bar + 1) * box.width / kBars.size());
        canvas.Fill({box.x + left, box.y, right - left, box.height}, kBars[bar]);
    }
}

void TestCard::DrawRamp(TestCardCanvas& canvas, const CanvasBox& box) const noexcept {
    constexpr std::size_t kSteps = 235 - 16;
    for (std::size_t x = 0; x < box.width; ++x) {
        const std::size_t luma = 16 + (x * kSteps + (box.width - 1) / 2) / (box.width - 1);
        canvas.FillLuma({box.x + x, box.y, 1, box.height}, static_cast<std::uint8_t>(luma));
    }
}

void TestCard::DrawTitle(TestCardCanvas& canvas) const {
    std::string title = TestCardTitle(m_geometry);
    const std::size_t stampWidth = std::size_t{TestCardStampCell(m_geometry)} * kStampColumns;
    const std::size_t room = m_geometry.width - stampWidth;
    std::size_t dot = DotFor(title.size(), room * 9 / 10, m_layout.bars * 3 / 4);
    if (dot == 0) {
        dot = DotFor(title.size(), room, m_layout.bars);  // without a margin
    }
    if (dot == 0) {
        title.resize(title.find(' '));  // without the rate
        dot = DotFor(title.size(), room, m_layout.bars);
    }
    const std::size_t width = TestCardCanvas::TextColumns(title.size()) * dot;
    canvas.WriteText(stampWidth + (room - width) / 2, (m_layout.bars - TestCardCanvas::kTextRows * dot) / 2, dot, title,
                     kCodeWhite.luma);
}

void TestCard::DrawDisc(TestCardCanvas& canvas, std::uint32_t number) const noexcept {
    const std::size_t width = m_geometry.width;
    const std::size_t height = m_layout.ramp - m_layout.track;
    const std::size_t step = std::max<std::size_t>(width / kFramesAcross, 1);
    const std::size_t left = static_cast<std::size_t>(std::uint64_t{number} * step % width);
    // Middle and distances are counted in half pixels, so that an even diameter has its middle between two pixels.
    const auto radius = static_cast<std::int64_t>(height);
    for (std::size_t y = 0; y < height; ++y) {
        const std::int64_t down = 2 * static_cast<std::int64_t>(y) + 1 - radius;
        for (std::size_t x = 0; x < height; ++x) {
            const std::int64_t across = 2 * static_cast<std::int64_t>(x) + 1 - radius;
            if (across * across + down * down <= radius * radius) {
                canvas.SetLuma((left + x) % width, m_layout.track + y, kCodeWhite.luma);  // leaves right, enters left
            }
        }
    }
}

void TestCard::DrawNumbers(TestCardCanvas& canvas, std::uint32_t number) const noexcept {
    const TimeText time = FormatTime(number, m_geometry);
    std::array<char, 24> frame{};
    std::snprintf(frame.data(), frame.size(), "frame %06u", number);
    const std::array<std::string_view, 2> lines{frame.data(), time.data()};
    // Two lines with three dots above, between and below them; the letters leave room for the largest number.
    constexpr std::size_t kGap = 3;
    constexpr std::size_t kLineRows = TestCardCanvas::kTextRows + kGap;
    constexpr std::size_t kRows = lines.size() * kLineRows + kGap;
    constexpr std::size_t kLongestLine = std::string_view("frame 4294967295").size();
    const std::size_t height = m_layout.end - m_layout.numbers;
    const std::size_t dot = DotFor(kLongestLine, m_geometry.width * 9 / 10, height * TestCardCanvas::kTextRows / kRows);
    std::size_t y = m_layout.numbers + (height - (kRows - 2 * kGap) * dot) / 2;
    for (const std::string_view& line : lines) {
        const std::size_t width = TestCardCanvas::TextColumns(line.size()) * dot;
        canvas.WriteText((m_geometry.width - width) / 2, y, dot, line, kCodeWhite.luma);
        y += kLineRows * dot;
    }
}

void TestCard::DrawMovingBar(TestCardCanvas& canvas, std::uint32_t number) const noexcept {
    constexpr std::size_t kBarWidth = 2;
    const std::size_t places = m_geometry.width / kBarWidth;
    const std::size_t pass = number / places;
    // The bar changes its shade with every pass, so that even a picture as wide as the bar moves.
    const CodeColour& colour = pass % 2 == 0 ? kCodeWhite : kTrackMark;
    const std::size_t top = std::size_t{TestCardStampCell(m_geometry)} * kStampRows;
    const std::size_t begin = top < m_geometry.height ? top : 0;
    canvas.Fill({number % places * kBarWidth, begin, kBarWidth, m_geometry.height - begin}, colour);
}

}  // namespace ravlo
