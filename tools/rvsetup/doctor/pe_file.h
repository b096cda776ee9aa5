#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ravlo {

/// What the headers of a program file say.
struct PeFile {
    bool isPe = false;  ///< has the headers of a Windows program file
    bool is64 = false;  ///< for x86-64
    bool isDll = false;
    std::vector<std::string> exports;  ///< names
    std::vector<std::string> imports;  ///< the DLLs that it needs, as they are written there
};

/// Reads a whole file's bytes. Never fails: what cannot be read in a damaged file is missing in the result.
PeFile ReadPeFile(std::string_view bytes);

/// The file version in the version resource of a program file, such as "1.0.0"; empty when it has none.
std::string FileVersionOf(std::string_view bytes);

bool ExportsName(const PeFile& file, std::string_view name);

}  // namespace ravlo
