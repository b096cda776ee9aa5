#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "rvhost/thumbnail.h"

namespace ravlo {

/// Small pictures side by side in the order in which they came, each in a coloured frame above a line of text.
class ContactSheet {
public:
    static constexpr std::size_t kMostPictures = 600;
    /// Drawing and writing the sheet takes several times as much.
    static constexpr std::size_t kMostPixelBytes = std::size_t{128} << 20;

    /// All pictures must have the same size. `label` is ASCII. False when the sheet is full: the picture is not on it.
    bool Add(RgbImage picture, std::string label, Rgb colour);

    bool IsEmpty() const noexcept { return m_entries.empty(); }
    std::size_t Pictures() const noexcept { return m_entries.size(); }

    /// Draws the sheet with `columns` pictures a row (at least 1) and `title` on top.
    RgbImage Draw(std::uint32_t columns, const std::string& title) const;

private:
    struct Entry {
        RgbImage picture;
        std::string label;
        Rgb colour;
    };

    std::vector<Entry> m_entries;
    std::size_t m_pixelBytes = 0;
};

}  // namespace ravlo
