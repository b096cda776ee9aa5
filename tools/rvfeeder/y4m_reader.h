#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/parse_text.h"
#include "rvfeeder/byte_source.h"
#include "rvfeeder/picture_reader.h"

namespace ravlo {

/// What the first line of a Y4M stream says, as far as it matters here.
struct Y4mHeader {
    FrameGeometry geometry;
    bool fullRange;          ///< luma runs over 0..255 instead of the 16..235 that the camera announces
    NumberPair pixelAspect;  ///< width to height of a pixel; 1:1 unless the stream says otherwise
};

/// Reads the stream's first line, without its line feed. Refuses, with an InputError that says why: a line that is no
/// Y4M header, a size that NV12 cannot have, a missing or zero rate, what is beyond the camera, interlaced pictures,
/// and every colour layout other than 8-bit 4:2:0 (a missing one counts as 4:2:0).
Y4mHeader ParseY4mHeader(std::string_view line);

/// Pictures from a Y4M stream, converted from planar 4:2:0 to NV12 and from full to limited range. A stream without
/// any picture is an InputError.
class Y4mReader final : public PictureReader {
public:
    /// Reads the stream header at once. Throws InputError, also when it is known already that no whole picture follows.
    explicit Y4mReader(std::unique_ptr<ByteSource> source);

    const FrameGeometry& Geometry() const noexcept override { return m_header.geometry; }
    const Y4mHeader& Header() const noexcept { return m_header; }
    bool ReadPicture(std::span<std::uint8_t> nv12) override;
    bool SkipPicture(std::span<std::uint8_t> scratch) override;

private:
    std::string ReadStreamLine();
    bool BeginPicture();
    bool ReadPictureMarker();
    void ReadPlane(std::span<std::uint8_t> plane);
    /// Throws when so many bytes cannot hold a picture.
    void RequireOnePicture(std::uint64_t bytesAfterHeader) const;
    [[noreturn]] void RefuseCutPicture() const;

    std::unique_ptr<ByteSource> m_source;
    Y4mHeader m_header{};
    std::vector<std::uint8_t> m_chroma;  ///< both chroma planes of one picture
    std::uint64_t m_pictures = 0;
};

}  // namespace ravlo
