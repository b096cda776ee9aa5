#include "rvfeeder/raw_reader.h"

#include <string>
#include <utility>

#include "common/parse_text.h"

namespace ravlo {

RawReader::RawReader(std::unique_ptr<ByteSource> source, const FrameGeometry& geometry)
    : m_source(std::move(source)), m_geometry(geometry) {
    const auto total = m_source->TotalBytes();
    if (total == 0U) {
        throw InputError("the input is empty");
    }
    if (total && *total < FrameBytes(geometry)) {
        throw InputError("the input has " + std::to_string(*total) + " bytes, less than one picture: " + PictureText() +
                         "; is --size right?");
    }
}

bool RawReader::ReadPicture(std::span<std::uint8_t> nv12) {
    RequireWholePicture(nv12);
    const std::size_t got = m_source->ReadFully(nv12.data(), nv12.size());
    if (got == 0) {
        if (m_pictures == 0) {
            throw InputError("the input is empty");
        }
        return false;
    }
    if (got < nv12.size()) {
        throw InputError("the input ends inside picture " + std::to_string(m_pictures + 1) + ": " +
                         std::to_string(got) + " bytes are left over, " + PictureText() + "; is --size right?");
    }
    ++m_pictures;
    return true;
}

std::string RawReader::PictureText() const {
    return "a " + SizeText(m_geometry) + " picture has " + std::to_string(FrameBytes(m_geometry));
}

}  // namespace ravlo
