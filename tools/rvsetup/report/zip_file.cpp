#include "rvsetup/report/zip_file.h"

#include <cstddef>
#include <utility>

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>

#include "rvsetup/report/checksum.h"

namespace ravlo {
namespace {

constexpr std::uint32_t kVersionNeeded = 20;
constexpr std::uint32_t kUtf8Names = 0x0800;
constexpr std::uint32_t kStored = 0;
constexpr std::uint32_t kDeflated = 8;
constexpr int kEffort = 8;
/// The compressed data come with two bytes in front and a checksum of four behind, which a zip file does not want.
constexpr std::size_t kWrapFront = 2;
constexpr std::size_t kWrapBack = 4;

/// Appends little-endian numbers.
class Record {
public:
    Record& Short(std::uint32_t value) { return Append(value, 2); }
    Record& Long(std::uint32_t value) { return Append(value, 4); }
    const std::string& Bytes() const noexcept { return m_bytes; }

private:
    Record& Append(std::uint32_t value, int length) {
        for (int i = 0; i < length; ++i) {
            m_bytes += static_cast<char>((value >> (8 * i)) & 0xFF);
        }
        return *this;
    }

    std::string m_bytes;
};

/// Empty when the bytes cannot be made smaller.
std::string Deflated(std::string_view bytes) {
    std::string input(bytes);  // the compressor takes no constant
    int length = 0;
    unsigned char* const packed = stbi_zlib_compress(reinterpret_cast<unsigned char*>(input.data()),
                                                     static_cast<int>(input.size()), &length, kEffort);
    if (packed == nullptr) {
        return {};
    }
    std::string result;
    const auto size = static_cast<std::size_t>(length);
    if (size > kWrapFront + kWrapBack && size - kWrapFront - kWrapBack < bytes.size()) {
        result.assign(reinterpret_cast<const char*>(packed) + kWrapFront, size - kWrapFront - kWrapBack);
    }
    STBIW_FREE(packed);
    return result;
}

std::uint32_t Size32(std::size_t size) noexcept {
    return static_cast<std::uint32_t>(size);
}

}  // namespace

void ZipFile::Add(const std::string& name, std::string_view bytes) {
    const std::string deflated = bytes.empty() ? std::string() : Deflated(bytes);
    const std::string_view stored = deflated.empty() ? bytes : std::string_view(deflated);
    const std::uint32_t offset = Size32(m_bytes.size());
    Record common;  // what the entry and the directory both say
    common.Short(kVersionNeeded)
        .Short(kUtf8Names)
        .Short(deflated.empty() ? kStored : kDeflated)
        .Short((m_time.hour << 11) | (m_time.minute << 5) | (m_time.second / 2))
        .Short(((m_time.year - 1980) << 9) | (m_time.month << 5) | m_time.day)
        .Long(Crc32(bytes))
        .Long(Size32(stored.size()))
        .Long(Size32(bytes.size()))
        .Short(Size32(name.size()))
        .Short(0);
    m_bytes += Record().Long(0x04034B50).Bytes() + common.Bytes() + name;
    m_bytes += stored;
    m_directory += Record().Long(0x02014B50).Short(kVersionNeeded).Bytes() + common.Bytes() +
                   Record().Short(0).Short(0).Short(0).Long(0).Long(offset).Bytes() + name;
    ++m_count;
}

std::string ZipFile::Finish() {
    const std::uint32_t offset = Size32(m_bytes.size());
    const std::uint32_t size = Size32(m_directory.size());
    m_bytes += m_directory;
    m_bytes += Record()
                   .Long(0x06054B50)
                   .Short(0)
                   .Short(0)
                   .Short(m_count)
                   .Short(m_count)
                   .Long(size)
                   .Long(offset)
                   .Short(0)
                   .Bytes();
    return std::move(m_bytes);
}

}  // namespace ravlo
