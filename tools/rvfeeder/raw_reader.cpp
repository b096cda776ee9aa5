#include "rvfeeder/raw_reader.h"

#include <string>
#include <utility>

namespace ravlo {

RawReader::RawReader(std::unique_ptr<ByteSource> source, const FrameGeometry& geometry)
    : m_source(std::move(source)), m_geometry(geometry) {
}

bool RawReader::ReadPicture(std::span<std::uint8_t> nv12) {
    RequireWholePicture(nv12);
    const std::size_t got = m_source->ReadFully(nv12.data(), nv12.size());
    if (got == 0) {
        return false;
    }
    if (got < nv12.size()) {
        throw InputError("the input ends inside picture " + std::to_string(m_pictures + 1) + ": " +
                         std::to_string(got) + " of " + std::to_string(nv12.size()) + " bytes; is --size right?");
    }
    ++m_pictures;
    return true;
}

}  // namespace ravlo
