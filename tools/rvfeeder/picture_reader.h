#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>

#include "stream/geometry.h"

namespace ravlo {

/// Pictures of one geometry, one after another, as packed NV12. One thread reads.
class PictureReader {
public:
    PictureReader() = default;
    PictureReader(const PictureReader&) = delete;
    PictureReader& operator=(const PictureReader&) = delete;
    virtual ~PictureReader() = default;

    virtual const FrameGeometry& Geometry() const noexcept = 0;

    /// Reads the next picture into `nv12`, which holds FrameBytes of the geometry; with any other length nothing is
    /// read and std::invalid_argument thrown. False at the end of the input. An input that ends inside a picture, or
    /// breaks its own format, throws InputError; `nv12` is then not a picture.
    virtual bool ReadPicture(std::span<std::uint8_t> nv12) = 0;

    /// Reads past the next picture with as little work as its input allows. Everything else is as with ReadPicture,
    /// except that `scratch` never holds a picture afterwards that means anything.
    virtual bool SkipPicture(std::span<std::uint8_t> scratch) { return ReadPicture(scratch); }

protected:
    void RequireWholePicture(std::span<const std::uint8_t> nv12) const {
        if (nv12.size() != FrameBytes(Geometry())) {
            throw std::invalid_argument("the picture buffer does not have the size of the picture");
        }
    }
};

}  // namespace ravlo
