#include "common/binary_file.h"

#include <filesystem>
#include <fstream>
#include <ios>
#include <system_error>

namespace ravlo {

bool WriteWholeFile(const std::string& path, const void* bytes, std::size_t length) {
    const std::filesystem::path target(std::u8string(path.begin(), path.end()));
    std::filesystem::path part(target);
    part += ".part";
    std::ofstream file(part, std::ios::binary | std::ios::trunc);
    file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(length));
    file.close();
    std::error_code failed;
    if (!file.fail()) {
        std::filesystem::rename(part, target, failed);
        if (!failed) {
            return true;
        }
    }
    std::filesystem::remove(part, failed);
    return false;
}

}  // namespace ravlo
