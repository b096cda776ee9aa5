#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rvhost/thumbnail.h"

namespace ravlo {

/// What matters more about a PNG file.
enum class PngEffort : std::uint8_t {
    Small,  ///< compressed, which takes about a second for a large picture
    Quick,  ///< as large as the pixels are, but ready in no time: for a user who waits for the program to end
};

/// The bytes of a PNG file whose pixels are not compressed.
std::vector<std::uint8_t> PlainPng(const RgbImage& image);

/// Writes the picture as a PNG file, replacing what was there. `path` is UTF-8. False when it cannot be written.
bool WritePng(const std::string& path, const RgbImage& image, PngEffort effort = PngEffort::Small);

}  // namespace ravlo
