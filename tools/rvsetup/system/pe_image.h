#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ravlo {

/// What the headers and tables of a program file say.
struct PeImage {
    bool isProgram = false;  ///< begins like a program file of Windows
    bool isPe = false;       ///< has the headers of one, and not of an older kind
    bool is32Bit = false;    ///< for x86
    bool is64 = false;       ///< for x86-64
    bool isDll = false;
    bool isDamaged = false;              ///< its headers or tables lead out of the file
    std::vector<std::string> exports{};  ///< names
    std::vector<std::string> imports{};  ///< the DLLs that it needs, as they are written there
    std::string version{};               ///< such as "1.0.0", or "1.0.0.7"; empty when it carries none
};

/// Reads a whole file's bytes without running anything of it. Never fails: exports, imports and version of a damaged
/// file, or of one that is not for x86-64, are empty as far as they cannot be read.
PeImage ReadPeImage(std::string_view bytes);

bool ExportsName(const PeImage& image, std::string_view name);

}  // namespace ravlo
