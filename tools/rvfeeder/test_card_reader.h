#pragma once

#include <cstdint>

#include "rvfeeder/picture_reader.h"
#include "rvfeeder/test_card.h"

namespace ravlo {

/// The test card as an input that never ends. The first picture has the number 1.
class TestCardReader final : public PictureReader {
public:
    /// `geometry` must be valid.
    explicit TestCardReader(const FrameGeometry& geometry) : m_card(geometry) {}

    const FrameGeometry& Geometry() const noexcept override { return m_card.Geometry(); }

    bool ReadPicture(std::span<std::uint8_t> nv12) override {
        RequireWholePicture(nv12);
        m_card.Draw(nv12, ++m_number);
        return true;
    }

private:
    TestCard m_card;
    std::uint32_t m_number = 0;
};

}  // namespace ravlo
