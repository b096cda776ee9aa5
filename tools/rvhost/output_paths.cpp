#include "rvhost/output_paths.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <ios>
#include <system_error>

#include "common/binary_file.h"

namespace ravlo {
namespace {

namespace fs = std::filesystem;

fs::path FromUtf8(const std::string& text) {
    return {std::u8string(text.begin(), text.end())};
}

/// Whether a file can be made beside `path`; it is gone afterwards. The name is not the file's own, because others may
/// take the file's appearance for a sign that the camera runs.
bool CanMakeBeside(const fs::path& path) {
    const fs::path trial = UnusedPartPath(path);
    const bool made = std::ofstream(trial, std::ios::binary | std::ios::app).is_open();
    if (made) {
        std::error_code ignored;
        fs::remove(trial, ignored);
    }
    return made;
}

/// What Windows takes for a device wherever it lies and whatever its extension is.
bool IsDeviceName(const fs::path& path) {
    const std::u8string text = path.filename().u8string();
    std::string name(text.begin(), text.end());
    name.resize(std::min(name.find('.'), name.size()));
    name.resize(name.find_last_not_of(' ') + 1);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    constexpr std::array kDevices{"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"};
    if (std::find(kDevices.begin(), kDevices.end(), name) != kDevices.end()) {
        return true;
    }
    return name.size() == 4 && (name.starts_with("COM") || name.starts_with("LPT")) && name[3] >= '0' && name[3] <= '9';
}

/// The folder that a file lies in.
fs::path FolderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

std::string WhyNotWritable(const OutputFile& file) {
    const fs::path path = FromUtf8(file.path);
    const std::string problem = "cannot write " + file.path + " (" + file.option + "): ";
    std::error_code ignored;
    if (fs::is_directory(path, ignored)) {
        return problem + "it is a folder; name a file in it";
    }
    if (!path.has_filename()) {
        return problem + "it names no file";
    }
    if (IsDeviceName(path)) {
        return problem + "that name belongs to a device; choose another one";
    }
    if (!fs::is_directory(FolderOf(path), ignored)) {
        return problem + "its folder does not exist; make it first";
    }
    if (fs::exists(path, ignored)) {
        const bool opens = std::ofstream(path, std::ios::binary | std::ios::app).is_open();
        return opens ? std::string() : problem + "it is write-protected or in use; choose another name";
    }
    return CanMakeBeside(path) ? std::string() : problem + "its folder takes no new files; choose another one";
}

}  // namespace

std::string WhyNotWritable(const std::vector<OutputFile>& files) {
    for (const OutputFile& file : files) {
        std::string problem = file.path.empty() ? std::string() : WhyNotWritable(file);
        if (!problem.empty()) {
            return problem;
        }
    }
    return {};
}

std::string WhyNoOutputFolder(const std::string& path) {
    const fs::path folder = FromUtf8(path);
    if (IsDeviceName(folder)) {
        return "cannot create the folder " + path + ": that name belongs to a device; choose another one";
    }
    std::error_code failed;
    fs::create_directories(folder, failed);
    if (!fs::is_directory(folder, failed)) {
        return "cannot create the folder " + path + ": a part of its path is a file, or its drive takes no folders";
    }
    return CanMakeBeside(folder / "picture.png") ? std::string()
                                                 : "cannot write into the folder " + path + "; choose another one";
}

std::string WhySameFile(const std::vector<OutputFile>& files) {
    for (std::size_t i = 0; i < files.size(); ++i) {
        for (std::size_t j = i + 1; j < files.size(); ++j) {
            if (!files[i].path.empty() &&
                FromUtf8(files[i].path).lexically_normal() == FromUtf8(files[j].path).lexically_normal()) {
                return files[i].option + " and " + files[j].option + " name the same file, " + files[i].path;
            }
        }
    }
    return {};
}

}  // namespace ravlo
