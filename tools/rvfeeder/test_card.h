#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "rvfeeder/test_card_canvas.h"
#include "stream/geometry.h"

namespace ravlo {

/// A moving picture to try a camera with, in limited-range BT.709. From top to bottom: a black band with room for the
/// stamp in its left corner and the geometry in words on its right; eight colour bars of 75 % (grey, yellow, cyan, green,
/// magenta, red, blue, black); a track on which a white disc moves with every frame; a ramp from black to white; the
/// frame number and the time since frame 0. Pictures too small for words show the bars and a bar that moves over them.
class TestCard {
public:
    /// Draws what does not move. `geometry` must be valid.
    explicit TestCard(const FrameGeometry& geometry);

    const FrameGeometry& Geometry() const noexcept { return m_geometry; }

    /// Draws the picture with this number over all of `nv12`, which holds FrameBytes of the geometry. The same number
    /// always gives the same picture. Nothing moves where the stamp belongs, unless the picture is no higher than that.
    void Draw(std::span<std::uint8_t> nv12, std::uint32_t number) const noexcept;

private:
    /// Rows at which the parts of the card begin, all even; each ends where the next begins.
    struct Layout {
        std::size_t bars;
        std::size_t track;
        std::size_t ramp;
        std::size_t numbers;
        std::size_t end;
    };

    void DrawStill(TestCardCanvas& canvas) const;
    void DrawBars(TestCardCanvas& canvas, const CanvasBox& box) const noexcept;
    void DrawRamp(TestCardCanvas& canvas, const CanvasBox& box) const noexcept;
    void DrawTitle(TestCardCanvas& canvas) const;
    void DrawDisc(TestCardCanvas& canvas, std::uint32_t number) const noexcept;
    void DrawNumbers(TestCardCanvas& canvas, std::uint32_t number) const noexcept;
    void DrawMovingBar(TestCardCanvas& canvas, std::uint32_t number) const noexcept;

    FrameGeometry m_geometry;
    Layout m_layout;
    bool m_hasRoom;  ///< for words and the parts around them
    std::vector<std::uint8_t> m_still;
};

/// The time of a frame, number / rate, as HH:MM:SS.mmm; cut off, not rounded. Begins again after 100 hours.
std::string TestCardTime(std::uint32_t number, const FrameGeometry& geometry);

/// The geometry in words, such as "1280x720 29.97 fps": a rate that is no whole number with two places.
std::string TestCardTitle(const FrameGeometry& geometry);

}  // namespace ravlo
