#include "rvhost/preview_layout.h"

#include <algorithm>

namespace ravlo {

PreviewRectangle FitPicture(std::uint32_t pictureWidth, std::uint32_t pictureHeight, int areaWidth, int areaHeight) {
    if (areaWidth <= 0 || areaHeight <= 0) {
        return {0, 0, 0, 0};
    }
    // Rounded to the nearest pixel; one of the two sides fills the area.
    const std::int64_t width = pictureWidth;
    const std::int64_t height = pictureHeight;
    const std::int64_t byHeight = (areaHeight * width + height / 2) / height;
    const std::int64_t byWidth = (areaWidth * height + width / 2) / width;
    const int fittedWidth = static_cast<int>(std::clamp<std::int64_t>(byHeight, 1, areaWidth));
    const int fittedHeight = static_cast<int>(std::clamp<std::int64_t>(byWidth, 1, areaHeight));
    return {(areaWidth - fittedWidth) / 2, (areaHeight - fittedHeight) / 2, fittedWidth, fittedHeight};
}

}  // namespace ravlo
