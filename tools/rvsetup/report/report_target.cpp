#include "rvsetup/report/report_target.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "common/binary_file.h"
#include "rvsetup/report/zip_file.h"

namespace ravlo {
namespace {

std::filesystem::path PathOf(const std::string& utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

std::string TextOf(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

/// The target as it is from the root on, so that the user sees where it is.
std::string Full(const std::string& target) {
    std::error_code failed;
    const std::filesystem::path full = std::filesystem::absolute(PathOf(target), failed);
    return failed ? target : TextOf(full);
}

ZipTime Now() {
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    const auto day = std::chrono::floor<std::chrono::days>(now);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(now - day);
    return {static_cast<std::uint32_t>(static_cast<int>(date.year())),
            static_cast<unsigned>(date.month()),
            static_cast<unsigned>(date.day()),
            static_cast<std::uint32_t>(time.hours().count()),
            static_cast<std::uint32_t>(time.minutes().count()),
            static_cast<std::uint32_t>(time.seconds().count())};
}

std::string WriteZip(const std::string& target, const ReportContent& content) {
    ZipFile zip(Now());
    for (const ReportPart& part : content.parts) {
        zip.Add(part.name, part.content);
    }
    const std::string bytes = zip.Finish();
    return WriteWholeFile(target, bytes.data(), bytes.size())
               ? std::string()
               : "cannot write " + Full(target) + "; choose a folder that you may write to";
}

std::string WriteFolder(const std::string& target, const ReportContent& content) {
    for (const ReportPart& part : content.parts) {
        const std::filesystem::path path = PathOf(target) / PathOf(part.name);
        std::error_code failed;
        std::filesystem::create_directories(path.parent_path(), failed);
        if (failed || !WriteWholeFile(TextOf(path), part.content.data(), part.content.size())) {
            return "cannot write " + Full(TextOf(path)) + "; choose a folder that you may write to";
        }
    }
    return {};
}

}  // namespace

std::string WhyNoTarget(const ReportOptions& options) {
    const std::filesystem::path target = PathOf(options.target);
    std::error_code failed;
    const std::filesystem::file_status status = std::filesystem::status(target, failed);
    const bool isFolder = std::filesystem::is_directory(status);
    if (IsZipName(options.target)) {
        if (isFolder) {
            return Full(options.target) + " is a folder; give a file, or a folder without .zip";
        }
        if (std::filesystem::exists(status) && !options.force) {
            return Full(options.target) + " is there already; --force writes over it";
        }
        const std::filesystem::path folder = std::filesystem::absolute(target, failed).parent_path();
        return std::filesystem::is_directory(folder, failed) ? std::string() : "there is no folder " + TextOf(folder);
    }
    if (isFolder && !std::filesystem::is_empty(target, failed)) {
        return Full(options.target) + " is not empty; give a new folder, or a FILE.zip";
    }
    if (std::filesystem::exists(status) && !isFolder) {
        return Full(options.target) + " is a file without .zip at its end; give a FILE.zip or a folder";
    }
    return {};
}

std::string WriteReport(const ReportOptions& options, const ReportContent& content) {
    return IsZipName(options.target) ? WriteZip(options.target, content) : WriteFolder(options.target, content);
}

}  // namespace ravlo
