#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "rvfeeder/byte_source.h"
#include "rvfeeder/picture_reader.h"

namespace ravlo {

/// What the first line of a Y4M stream says, as far as it matters here.
struct Y4mHeader {
    FrameGeometry geometry;
    bool fullRange;  ///< luma runs over 0..255 instead of the 16..235 that the camera announces
};

/// Reads the stream's first line, without its line feed. Refuses, with an InputError that says why: a line that is no
/// Y4M header, a size that NV12 cannot have, a missing or zero rate, what is beyond the camera, interlaced pictures,
/// and every colour layout other than 8-bit 4:2:0 (a missing one counts as 4:2:0).
Y4mHeader ParseY4mHeader(std::string_view line);

/// Pictures from a Y4M stream, converted from planar 4:2:0 to NV12.
class Y4mReader final : public PictureReader {
public:
    /// Reads the stream header at once. Throws InputError.
    explicit Y4mReader(std::unique_ptr<ByteSource> source);

    const FrameGeometry& Geometry() const noexcept override { return m_header.geometry; }
    bool IsFullRange() const noexcept { return m_header.fullRange; }
    bool ReadPicture(std::span<std::uint8_t> nv12) override;

private:
    std::string ReadStreamLine();
    bool ReadPictureMarker();
    void ReadPlane(std::span<std::uint8_t> plane);

    std::unique_ptr<ByteSource> m_source;
    Y4mHeader m_header{};
    std::vector<std::uint8_t> m_chroma;  ///< both chroma planes of one picture
    std::uint64_t m_pictures = 0;
};

}  // namespace ravlo
