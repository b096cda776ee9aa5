#include "rvhost/preview_painter.h"

#include "rvhost/nv12_rgb.h"
#include "rvhost/preview_layout.h"
#include "rvhost/preview_overlay.h"

namespace ravlo {

PreviewPainter::PreviewPainter(const FrameGeometry& geometry)
    : m_geometry(geometry), m_bgrx(static_cast<std::size_t>(LumaBytes(geometry)) * 4) {
}

PreviewPainter::~PreviewPainter() {
    DropBackBuffer();
}

void PreviewPainter::Show(const PreviewPicture& picture) {
    ConvertNv12ToBgrx(picture.nv12, m_geometry, m_bgrx);
    DrawPreviewOverlay(m_bgrx, m_geometry, picture.facts);
}

void PreviewPainter::Paint(HDC target, int width, int height) noexcept {
    if (width <= 0 || height <= 0) {
        return;
    }
    if (PrepareBackBuffer(target, width, height)) {
        Draw(m_backDc, width, height);
        BitBlt(target, 0, 0, width, height, m_backDc, 0, 0, SRCCOPY);
    } else {
        Draw(target, width, height);
    }
}

bool PreviewPainter::PrepareBackBuffer(HDC target, int width, int height) noexcept {
    if (m_backDc != nullptr && width == m_backWidth && height == m_backHeight) {
        return true;
    }
    DropBackBuffer();
    m_backDc = CreateCompatibleDC(target);
    m_backBitmap = CreateCompatibleBitmap(target, width, height);
    if (m_backDc == nullptr || m_backBitmap == nullptr) {
        DropBackBuffer();
        return false;
    }
    m_ownBitmap = SelectObject(m_backDc, m_backBitmap);
    m_backWidth = width;
    m_backHeight = height;
    return true;
}

void PreviewPainter::DropBackBuffer() noexcept {
    if (m_ownBitmap != nullptr) {
        SelectObject(m_backDc, m_ownBitmap);
        m_ownBitmap = nullptr;
    }
    if (m_backBitmap != nullptr) {
        DeleteObject(m_backBitmap);
        m_backBitmap = nullptr;
    }
    if (m_backDc != nullptr) {
        DeleteDC(m_backDc);
        m_backDc = nullptr;
    }
}

void PreviewPainter::Draw(HDC target, int width, int height) const noexcept {
    const PreviewRectangle picture = FitPicture(m_geometry.width, m_geometry.height, width, height);
    const int right = picture.x + picture.width;
    const int bottom = picture.y + picture.height;
    PatBlt(target, 0, 0, width, picture.y, BLACKNESS);
    PatBlt(target, 0, bottom, width, height - bottom, BLACKNESS);
    PatBlt(target, 0, picture.y, picture.x, picture.height, BLACKNESS);
    PatBlt(target, right, picture.y, width - right, picture.height, BLACKNESS);

    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = static_cast<LONG>(m_geometry.width);
    info.bmiHeader.biHeight = -static_cast<LONG>(m_geometry.height);  // negative: the top row comes first
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    // Averages the pixels that fall onto one; its pattern has to be aligned anew each time it is chosen.
    SetStretchBltMode(target, HALFTONE);
    SetBrushOrgEx(target, 0, 0, nullptr);
    StretchDIBits(target, picture.x, picture.y, picture.width, picture.height, 0, 0, static_cast<int>(m_geometry.width),
                  static_cast<int>(m_geometry.height), m_bgrx.data(), &info, DIB_RGB_COLORS, SRCCOPY);
}

}  // namespace ravlo
