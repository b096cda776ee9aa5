#include "rvfeeder/still_reader.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "rvfeeder/nv12_convert.h"
#include "rvfeeder/still_decode.h"

namespace ravlo {
namespace {

/// More than any picture of the camera's largest size has, even unpacked.
constexpr std::size_t kMostFileBytes = std::size_t{64} << 20;

std::vector<std::uint8_t> ReadAll(ByteSource& source) {
    constexpr std::size_t kStep = std::size_t{1} << 16;
    const std::string tooLong = "the picture file has more than " + std::to_string(kMostFileBytes >> 20) +
                                " MiB, more than any picture for a camera needs; save it smaller";
    if (source.TotalBytes().value_or(0) > kMostFileBytes) {
        throw InputError(tooLong);
    }
    std::vector<std::uint8_t> bytes;
    std::size_t filled = 0;
    do {
        bytes.resize(filled + std::max(kStep, filled));
        filled += source.ReadFully(bytes.data() + filled, bytes.size() - filled);
        if (filled > kMostFileBytes) {
            throw InputError(tooLong);
        }
    } while (filled == bytes.size());
    bytes.resize(filled);
    return bytes;
}

}  // namespace

StillReader::StillReader(ByteSource& source, const NumberPair& rate) {
    const StillImage image = DecodeStill(ReadAll(source));
    m_geometry = {image.width, image.height, rate.first, rate.second};
    m_isTurned = image.isTurned;
    m_nv12.resize(FrameBytes(m_geometry));
    RgbToNv12(image.rgb, m_geometry, m_nv12);
}

bool StillReader::ReadPicture(std::span<std::uint8_t> nv12) {
    RequireWholePicture(nv12);
    std::copy(m_nv12.begin(), m_nv12.end(), nv12.begin());
    return true;
}

}  // namespace ravlo
