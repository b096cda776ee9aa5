#include "rvhost/preview_overlay.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string_view>

#include "rvhost/text_boxes.h"
#include "rvhost/thumbnail.h"

namespace ravlo {
namespace {

constexpr Rgb kText{255, 255, 255};
constexpr Rgb kLive{22, 128, 57};
constexpr Rgb kPattern{190, 92, 0};
/// How much of the picture shows through the strip, of 256, and what is added so that the strip shows on black too.
constexpr std::uint32_t kShowThrough = 90;
constexpr std::uint32_t kStripLevel = 20;
/// Lines of the picture for each line of a dot of the font.
constexpr std::uint32_t kLinesPerDot = 360;

// In units of the font.
constexpr std::uint32_t kPadding = 4;
constexpr std::uint32_t kStripHeight = kTextBoxHeight + 2 * kPadding;
constexpr std::uint32_t kGap = 10;

/// The widest text expected in each field, so that fields stay where they are while their numbers change.
constexpr std::array<std::string_view, 4> kWidest{"00.0 fps", "late 00.0 ms", "latency 000 ms", "00000 samples"};

struct Box {
    std::uint32_t x;
    std::uint32_t y;
    std::uint32_t width;
    std::uint32_t height;
};

/// A picture to draw on. Boxes are cut to it.
class Canvas {
public:
    Canvas(std::span<std::uint8_t> bgrx, const FrameGeometry& geometry) noexcept
        : m_bgrx(bgrx), m_width(geometry.width), m_height(geometry.height) {}

    void Fill(const Box& box, Rgb colour) {
        ForEachPixel(box, [colour](std::uint8_t* pixel) {
            pixel[0] = colour.blue;
            pixel[1] = colour.green;
            pixel[2] = colour.red;
        });
    }

    void Darken(const Box& box) {
        ForEachPixel(box, [](std::uint8_t* pixel) {
            for (int i = 0; i < 3; ++i) {
                pixel[i] = static_cast<std::uint8_t>(pixel[i] * kShowThrough / 256 + kStripLevel);
            }
        });
    }

    void Write(std::uint32_t x, std::uint32_t y, std::uint32_t scale, std::string_view text) {
        for (const TextBox& part : LayOutText(text)) {
            Fill({x + part.x * scale, y + part.y * scale, part.width * scale, part.height * scale}, kText);
        }
    }

private:
    template <class Action>
    void ForEachPixel(const Box& box, Action action) {
        const std::uint32_t right = std::min(box.x + box.width, m_width);
        const std::uint32_t bottom = std::min(box.y + box.height, m_height);
        for (std::uint32_t y = box.y; y < bottom; ++y) {
            for (std::uint32_t x = box.x; x < right; ++x) {
                action(m_bgrx.data() + (std::size_t{y} * m_width + x) * 4);
            }
        }
    }

    std::span<std::uint8_t> m_bgrx;
    std::uint32_t m_width;
    std::uint32_t m_height;
};

std::string_view KindText(PictureKind kind) noexcept {
    return kind == PictureKind::Live ? "LIVE" : "PATTERN";
}

/// The badge is as wide for either word.
std::uint32_t BadgeWidth() {
    return TextWidth(KindText(PictureKind::Pattern)) + 2 * kPadding;
}

/// Width of the whole strip's content in units of the font.
std::uint32_t ContentWidth(const std::array<std::string, 4>& texts) {
    std::uint32_t width = BadgeWidth() + kPadding;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (!texts[i].empty()) {
            width += kGap + std::max(TextWidth(kWidest[i]), TextWidth(texts[i]));
        }
    }
    return width;
}

std::string Format(const char* format, double value) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

}  // namespace

std::array<std::string, 4> PreviewTexts(const PreviewFacts& facts) {
    constexpr double ticksPerMs = 10000;
    return {Format("%.1f fps", facts.fps), Format("late %.1f ms", static_cast<double>(facts.lateness) / ticksPerMs),
            facts.latency ? Format("latency %.0f ms", static_cast<double>(*facts.latency) / ticksPerMs) : std::string(),
            std::to_string(facts.samples) + (facts.samples == 1 ? " sample" : " samples")};
}

void DrawPreviewOverlay(std::span<std::uint8_t> bgrx, const FrameGeometry& geometry, const PreviewFacts& facts) {
    if (bgrx.size() != LumaBytes(geometry) * 4) {
        throw std::invalid_argument("a buffer has not the size of the picture that is to be drawn on");
    }
    if (geometry.height < 2 * kStripHeight || geometry.width < BadgeWidth()) {
        return;
    }
    const std::array<std::string, 4> texts = PreviewTexts(facts);
    const std::uint32_t scale =
        std::max(1U, std::min(geometry.height / kLinesPerDot, geometry.width / ContentWidth(texts)));
    const std::uint32_t top = geometry.height - kStripHeight * scale;
    const std::uint32_t textTop = top + (kStripHeight - kCapitalHeight) * scale / 2;
    Canvas canvas(bgrx, geometry);
    canvas.Darken({0, top, geometry.width, kStripHeight * scale});

    const std::string_view kind = KindText(facts.kind);
    const std::uint32_t badge = BadgeWidth() * scale;
    canvas.Fill({0, top, badge, kStripHeight * scale}, facts.kind == PictureKind::Live ? kLive : kPattern);
    // A text's width includes the gap of two units after its last letter.
    canvas.Write((badge - (TextWidth(kind) - 2) * scale) / 2, textTop, scale, kind);

    std::uint32_t x = badge + kGap * scale;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::uint32_t width = std::max(TextWidth(kWidest[i]), TextWidth(texts[i])) * scale;
        if (texts[i].empty()) {
            continue;
        }
        if (x + TextWidth(texts[i]) * scale > geometry.width) {
            break;
        }
        canvas.Write(x, textTop, scale, texts[i]);
        x += width + kGap * scale;
    }
}

}  // namespace ravlo
