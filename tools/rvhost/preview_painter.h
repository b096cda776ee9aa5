#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

#include "rvhost/preview_slot.h"
#include "stream/geometry.h"

namespace ravlo {

/// Turns pictures into what a window shows: the picture with its overlay, as large as the window allows, on black. It
/// draws into a bitmap of the window's size first, so that the window never flickers. One thread uses it.
class PreviewPainter {
public:
    /// Black until the first picture.
    explicit PreviewPainter(const FrameGeometry& geometry);
    PreviewPainter(const PreviewPainter&) = delete;
    PreviewPainter& operator=(const PreviewPainter&) = delete;
    ~PreviewPainter();

    /// Takes over the picture to be shown from now on. Throws std::bad_alloc, and std::invalid_argument for a frame of
    /// another size.
    void Show(const PreviewPicture& picture);

    /// Paints the whole inside of a window, which is `width` x `height` pixels large.
    void Paint(HDC target, int width, int height) noexcept;

private:
    bool PrepareBackBuffer(HDC target, int width, int height) noexcept;
    void DropBackBuffer() noexcept;
    void Draw(HDC target, int width, int height) const noexcept;

    const FrameGeometry m_geometry;
    std::vector<std::uint8_t> m_bgrx;

    HDC m_backDc = nullptr;
    HBITMAP m_backBitmap = nullptr;
    HGDIOBJ m_ownBitmap = nullptr;  ///< what the context was born with, and must be given back before it goes
    int m_backWidth = 0;
    int m_backHeight = 0;
};

}  // namespace ravlo
