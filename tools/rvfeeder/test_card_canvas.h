#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "stream/geometry.h"

namespace ravlo {

/// One limited-range colour in code values.
struct CodeColour {
    std::uint8_t luma;
    std::uint8_t cb;
    std::uint8_t cr;
};

inline constexpr CodeColour kCodeBlack{16, 128, 128};
inline constexpr CodeColour kCodeWhite{235, 128, 128};

/// An area of a picture in pixels. What lies beyond the picture is not drawn.
struct CanvasBox {
    std::size_t x;
    std::size_t y;
    std::size_t width;
    std::size_t height;
};

/// Draws into one packed NV12 frame, which it borrows.
class TestCardCanvas {
public:
    /// `nv12` holds FrameBytes of `geometry`.
    TestCardCanvas(std::span<std::uint8_t> nv12, const FrameGeometry& geometry) noexcept
        : m_nv12(nv12), m_geometry(geometry) {}

    /// Colours the pixels of the box. Chroma is shared by squares of two by two pixels: a box on odd edges colours the
    /// squares that it begins in, and not those that only its last row or column reaches.
    void Fill(const CanvasBox& box, const CodeColour& colour) noexcept;

    /// The luma of one pixel within the picture.
    void SetLuma(std::size_t x, std::size_t y, std::uint8_t luma) noexcept;

    /// Luma of a box only, which leaves its colour alone.
    void FillLuma(const CanvasBox& box, std::uint8_t luma) noexcept;

    /// Writes in letters of 5 by 7 dots with one dot between them, each dot `dot` pixels wide and high. Digits, a few
    /// signs and letters exist; others are blanks.
    void WriteText(std::size_t x, std::size_t y, std::size_t dot, std::string_view text, std::uint8_t luma) noexcept;

    /// Dots that a text is wide.
    static constexpr std::size_t TextColumns(std::size_t letters) noexcept {
        return letters == 0 ? 0 : letters * 6 - 1;
    }
    /// Dots that a text is high.
    static constexpr std::size_t kTextRows = 7;

private:
    std::span<std::uint8_t> m_nv12;
    FrameGeometry m_geometry;
};

}  // namespace ravlo
