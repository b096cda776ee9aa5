#pragma once

#include <string>

#include "rvhost/thumbnail.h"

namespace ravlo {

/// Writes the picture as a PNG file, replacing what was there. `path` is UTF-8. False when it cannot be written.
bool WritePng(const std::string& path, const RgbImage& image);

}  // namespace ravlo
