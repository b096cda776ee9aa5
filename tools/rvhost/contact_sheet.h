#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rvhost/thumbnail.h"

namespace ravlo {

/// Small pictures side by side in the order in which they came, each in a coloured frame above a line of text.
class ContactSheet {
public:
    /// All pictures must have the same size. `label` is ASCII.
    void Add(RgbImage picture, std::string label, Rgb colour);

    bool IsEmpty() const noexcept { return m_entries.empty(); }

    /// Draws the sheet with `columns` pictures a row (at least 1) and `title` on top.
    RgbImage Draw(std::uint32_t columns, const std::string& title) const;

private:
    struct Entry {
        RgbImage picture;
        std::string label;
        Rgb colour;
    };

    std::vector<Entry> m_entries;
};

}  // namespace ravlo
