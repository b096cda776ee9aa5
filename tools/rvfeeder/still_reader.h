#pragma once

#include <cstdint>
#include <vector>

#include "common/parse_text.h"
#include "rvfeeder/byte_source.h"
#include "rvfeeder/picture_reader.h"

namespace ravlo {

/// One PNG or JPEG picture, repeated without end.
class StillReader final : public PictureReader {
public:
    /// Reads `source` to its end and decodes it at once. `rate` is in frames a second, neither number zero. Throws
    /// InputError.
    StillReader(ByteSource& source, const NumberPair& rate);

    const FrameGeometry& Geometry() const noexcept override { return m_geometry; }
    bool ReadPicture(std::span<std::uint8_t> nv12) override;

    /// True when the file wants its picture turned or mirrored; it is shown as it is stored.
    bool IsTurned() const noexcept { return m_isTurned; }

private:
    FrameGeometry m_geometry{};
    bool m_isTurned = false;
    std::vector<std::uint8_t> m_nv12;
};

}  // namespace ravlo
