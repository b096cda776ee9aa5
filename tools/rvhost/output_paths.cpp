#include "rvhost/output_paths.h"

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <ios>
#include <system_error>

namespace ravlo {
namespace {

namespace fs = std::filesystem;

fs::path FromUtf8(const std::string& text) {
    return {std::u8string(text.begin(), text.end())};
}

/// Whether a file can be made there; it is gone afterwards.
bool CanMake(const fs::path& path) {
    const bool made = std::ofstream(path, std::ios::binary | std::ios::app).is_open();
    std::error_code ignored;
    fs::remove(path, ignored);
    return made;
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
    if (!fs::is_directory(FolderOf(path), ignored)) {
        return problem + "its folder does not exist; make it first";
    }
    if (fs::exists(path, ignored)) {
        const bool opens = std::ofstream(path, std::ios::binary | std::ios::app).is_open();
        return opens ? std::string() : problem + "it is write-protected or in use; choose another name";
    }
    // A name of its own, because others may take the file's appearance for a sign that the camera runs.
    fs::path trial = path;
    trial += ".part";
    return CanMake(trial) ? std::string() : problem + "its folder takes no new files; choose another one";
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
    std::error_code failed;
    fs::create_directories(folder, failed);
    if (!fs::is_directory(folder, failed)) {
        return "cannot create the folder " + path + ": a part of its path is a file, or its drive takes no folders";
    }
    return CanMake(folder / ".rvhost.part") ? std::string()
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
