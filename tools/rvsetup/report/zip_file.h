#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ravlo {

/// A moment as zip files note it.
struct ZipTime {
    std::uint32_t year = 1980;  ///< 1980..2107
    std::uint32_t month = 1;
    std::uint32_t day = 1;
    std::uint32_t hour = 0;
    std::uint32_t minute = 0;
    std::uint32_t second = 0;
};

/// Makes a zip file in memory. Everything in it together must stay below 4 GiB and a file below 2 GiB.
class ZipFile {
public:
    explicit ZipFile(const ZipTime& time) noexcept : m_time(time) {}

    /// Adds a file; `name` is UTF-8 with "/" between folders.
    void Add(const std::string& name, std::string_view bytes);

    /// The whole zip file. Nothing can be added afterwards.
    std::string Finish();

private:
    ZipTime m_time;
    std::string m_bytes;
    std::string m_directory;
    std::uint32_t m_count = 0;
};

}  // namespace ravlo
