#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "rvfeeder/byte_source.h"
#include "rvfeeder/picture_reader.h"

namespace ravlo {

/// Headerless NV12: luma plane, then interleaved chroma, picture after picture. Size and rate come from the user. An
/// input without any byte is an InputError.
class RawReader final : public PictureReader {
public:
    /// `geometry` must be valid. Throws InputError when it is known already that there is no whole picture.
    RawReader(std::unique_ptr<ByteSource> source, const FrameGeometry& geometry);

    const FrameGeometry& Geometry() const noexcept override { return m_geometry; }
    bool ReadPicture(std::span<std::uint8_t> nv12) override;

private:
    /// What one picture of the user's size takes, for a message.
    std::string PictureText() const;

    std::unique_ptr<ByteSource> m_source;
    FrameGeometry m_geometry;
    std::uint64_t m_pictures = 0;
};

}  // namespace ravlo
