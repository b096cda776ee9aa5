#include "rvsetup/report/report_target.h"

#include "common/binary_file.h"
#include "rvsetup/report/zip_file.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <system_error>
#include <vector>

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

/// Whether nobody lets us make anything in a folder; false when it is not there at all.
bool IsClosedToUs(const std::filesystem::path& folder) {
    const std::filesystem::path trial = folder / ".rvsetup-report-trial";
    std::error_code failed;
    if (std::filesystem::create_directory(trial, failed)) {
        std::filesystem::remove(trial, failed);
        return false;
    }
    return failed == std::errc::permission_denied;
}

ReportWritten CannotWrite(const std::filesystem::path& file) {
    std::error_code failed;
    std::filesystem::path folder = std::filesystem::absolute(file, failed).parent_path();
    while (!std::filesystem::exists(folder, failed) && folder.has_relative_path()) {
        folder = folder.parent_path();
    }
    return {"cannot write " + Full(TextOf(file)) + "; choose a folder that you may write to",
            IsClosedToUs(folder) ? ExitCode::AccessDenied : ExitCode::Failure};
}

ReportWritten WriteZip(const std::string& target, const ReportContent& content) {
    ZipFile zip(Now());
    for (const ReportPart& part : content.parts) {
        zip.Add(part.name, part.content);
    }
    const std::string bytes = zip.Finish();
    return WriteWholeFile(target, bytes.data(), bytes.size()) ? ReportWritten() : CannotWrite(PathOf(target));
}

/// What was made on the way to a folder's report, and goes again unless it is kept.
class MadeFiles {
public:
    MadeFiles() = default;
    MadeFiles(const MadeFiles&) = delete;
    MadeFiles& operator=(const MadeFiles&) = delete;
    ~MadeFiles() {
        std::error_code ignored;
        std::for_each(m_paths.rbegin(), m_paths.rend(),
                      [&ignored](const std::filesystem::path& path) { std::filesystem::remove(path, ignored); });
    }

    /// Makes a folder and those that it lies in.
    bool MakeFolder(const std::filesystem::path& folder) {
        std::error_code failed;
        if (folder.empty() || std::filesystem::is_directory(folder, failed)) {
            return true;
        }
        if (!MakeFolder(folder.parent_path()) || !std::filesystem::create_directory(folder, failed)) {
            return false;
        }
        m_paths.push_back(folder);
        return true;
    }
    bool MakeFile(const std::filesystem::path& path, const std::string& content) {
        if (!WriteWholeFile(TextOf(path), content.data(), content.size())) {
            return false;
        }
        m_paths.push_back(path);
        return true;
    }
    void Keep() noexcept { m_paths.clear(); }

private:
    std::vector<std::filesystem::path> m_paths;
};

ReportWritten WriteFolder(const std::string& target, const ReportContent& content) {
    std::error_code failed;
    const std::filesystem::path folder = std::filesystem::absolute(PathOf(target), failed);
    MadeFiles made;
    for (const ReportPart& part : content.parts) {
        const std::filesystem::path path = folder / PathOf(part.name);
        if (!made.MakeFolder(path.parent_path()) || !made.MakeFile(path, part.content)) {
            return CannotWrite(path);
        }
    }
    made.Keep();
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

ReportWritten WriteReport(const ReportOptions& options, const ReportContent& content) {
    return IsZipName(options.target) ? WriteZip(options.target, content) : WriteFolder(options.target, content);
}

}  // namespace ravlo
