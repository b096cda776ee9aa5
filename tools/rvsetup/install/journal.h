#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ravlo {

/// A registry value as it is stored: any type, any bytes.
struct RegistryValue {
    std::string name;  ///< UTF-8; empty for the default value
    std::uint32_t type;
    std::vector<std::uint8_t> bytes;

    friend bool operator==(const RegistryValue&, const RegistryValue&) = default;
};

/// A registry key with everything below it.
struct RegistryTree {
    std::string name;  ///< UTF-8; empty for the top
    std::vector<RegistryValue> values;
    std::vector<RegistryTree> keys;

    friend bool operator==(const RegistryTree&, const RegistryTree&) = default;
};

/// The anchor before the first install, and every SID that rvsetup has written since. A value that is none of these was
/// written by somebody else.
struct AnchorRecord {
    bool keyExisted = false;
    std::optional<RegistryValue> before;
    std::vector<std::string> written;

    friend bool operator==(const AnchorRecord&, const AnchorRecord&) = default;
};

/// The class key before the first install.
struct ClassRecord {
    std::optional<RegistryTree> before;

    friend bool operator==(const ClassRecord&, const ClassRecord&) = default;
};

/// A file that install puts somewhere. One that existed before is kept beside it, see AsidePath.
struct FileRecord {
    std::string path;
    bool existed = false;

    friend bool operator==(const FileRecord&, const FileRecord&) = default;
};

/// The folder of the trace log before the first install.
struct LogRecord {
    bool existed = false;
    bool fileExisted = false;  ///< the log itself
    std::string security;      ///< owner and access list of an existing folder in the system's text form

    friend bool operator==(const LogRecord&, const LogRecord&) = default;
};

/// What has to be put back by uninstall. It is stored before anything is changed, so it may hold changes that were never
/// made; putting these back must change nothing.
struct Journal {
    std::optional<AnchorRecord> anchor;
    std::optional<ClassRecord> classKey;
    std::optional<LogRecord> log;
    std::vector<FileRecord> files;
    std::vector<std::string> folders;  ///< made by install, outer ones first

    friend bool operator==(const Journal&, const Journal&) = default;
};

/// Where a file that was there before install waits for uninstall.
std::string AsidePath(const std::string& path);

/// The journal as JSON text.
std::string JournalToText(const Journal& journal);

/// Nothing for a text that JournalToText cannot have written.
std::optional<Journal> JournalFromText(std::string_view text);

}  // namespace ravlo
