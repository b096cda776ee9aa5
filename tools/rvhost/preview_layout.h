#pragma once

#include <cstdint>

namespace ravlo {

/// A rectangle in pixels of a window's inside.
struct PreviewRectangle {
    int x;
    int y;
    int width;
    int height;

    friend constexpr bool operator==(const PreviewRectangle&, const PreviewRectangle&) = default;
};

/// The largest rectangle of a picture's proportions within an area, in its middle and at least one pixel wide and high;
/// an area without pixels gives an empty one. The picture must not be empty.
PreviewRectangle FitPicture(std::uint32_t pictureWidth, std::uint32_t pictureHeight, int areaWidth, int areaHeight);

}  // namespace ravlo
