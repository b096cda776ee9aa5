#include "common/binary_file.h"

#include <filesystem>
#include <fstream>
#include <ios>
#include <system_error>

namespace ravlo {

std::filesystem::path UnusedPartPath(const std::filesystem::path& target) {
    constexpr int kMostTries = 1000;
    std::error_code ignored;
    for (int i = 1; i <= kMostTries; ++i) {
        std::filesystem::path part = target;
        part += i == 1 ? std::string(".part") : ".part" + std::to_string(i);
        if (!std::filesystem::exists(part, ignored)) {
            return part;
        }
    }
    return {};
}

bool WriteWholeFile(const std::string& path, const void* bytes, std::size_t length) {
    const std::filesystem::path target(std::u8string(path.begin(), path.end()));
    const std::filesystem::path part = UnusedPartPath(target);
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
