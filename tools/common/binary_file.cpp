#include "common/binary_file.h"

#include <filesystem>
#include <fstream>
#include <ios>

namespace ravlo {

bool WriteWholeFile(const std::string& path, const void* bytes, std::size_t length) {
    const std::u8string name(path.begin(), path.end());
    std::ofstream file(std::filesystem::path(name), std::ios::binary | std::ios::trunc);
    file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(length));
    file.close();
    return !file.fail();
}

}  // namespace ravlo
