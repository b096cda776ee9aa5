#include "rvsetup/doctor/pe_file.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace ravlo {
namespace {

constexpr std::uint32_t kMachineX64 = 0x8664;
constexpr std::uint32_t kOptionalMagic64 = 0x20B;
constexpr std::uint32_t kDllFlag = 0x2000;
constexpr std::size_t kFileHeaderBytes = 24;   // signature and file header
constexpr std::size_t kDirectoriesAt64 = 112;  // in the optional header
constexpr std::size_t kSectionBytes = 40;
constexpr std::size_t kImportBytes = 20;
constexpr std::uint32_t kMostEntries = 4096;  // a damaged count must not keep us busy
constexpr std::size_t kLongestName = 512;

class Image {
public:
    explicit Image(std::string_view bytes) noexcept : m_bytes(bytes) {}

    /// `length` (1..4) bytes at `at` as a little-endian number; 0 beyond the end.
    std::uint32_t Number(std::size_t at, std::size_t length) const noexcept {
        if (at > m_bytes.size() || m_bytes.size() - at < length) {
            return 0;
        }
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < length; ++i) {
            value |= std::uint32_t{static_cast<unsigned char>(m_bytes[at + i])} << (8 * i);
        }
        return value;
    }
    std::uint32_t Word(std::size_t at) const noexcept { return Number(at, 2); }
    std::uint32_t Long(std::size_t at) const noexcept { return Number(at, 4); }

    void SetSections(std::size_t at, std::uint32_t count) noexcept {
        m_sectionsAt = at;
        m_sectionCount = count;
    }

    /// Where an address of the loaded image lies in the file; 0 when it lies nowhere.
    std::size_t Offset(std::uint32_t address) const noexcept {
        for (std::uint32_t i = 0; i < m_sectionCount; ++i) {
            const std::size_t section = m_sectionsAt + i * kSectionBytes;
            const std::uint32_t begin = Long(section + 12);
            const std::uint32_t length = Long(section + 16);
            if (address >= begin && address - begin < length) {
                return std::size_t{Long(section + 20)} + (address - begin);
            }
        }
        return 0;
    }

    std::string Name(std::uint32_t address) const {
        const std::size_t at = Offset(address);
        if (at == 0 || at >= m_bytes.size()) {
            return {};
        }
        const std::string_view rest = m_bytes.substr(at, kLongestName);
        const std::size_t end = rest.find('\0');
        return end == std::string_view::npos ? std::string() : std::string(rest.substr(0, end));
    }

private:
    std::string_view m_bytes;
    std::size_t m_sectionsAt = 0;
    std::uint32_t m_sectionCount = 0;
};

std::vector<std::string> ReadExports(const Image& image, std::uint32_t directory) {
    std::vector<std::string> names;
    const std::size_t at = image.Offset(directory);
    const std::size_t table = at == 0 ? 0 : image.Offset(image.Long(at + 32));
    const std::uint32_t count = table == 0 ? 0 : std::min(image.Long(at + 24), kMostEntries);
    for (std::uint32_t i = 0; i < count; ++i) {
        names.push_back(image.Name(image.Long(table + std::size_t{i} * 4)));
    }
    return names;
}

std::vector<std::string> ReadImports(const Image& image, std::uint32_t directory) {
    std::vector<std::string> names;
    std::size_t at = image.Offset(directory);
    for (std::uint32_t i = 0; at != 0 && i < kMostEntries && image.Long(at + 12) != 0; ++i, at += kImportBytes) {
        names.push_back(image.Name(image.Long(at + 12)));
    }
    return names;
}

}  // namespace

PeFile ReadPeFile(std::string_view bytes) {
    PeFile file;
    Image image(bytes);
    const std::size_t header = image.Long(0x3C);
    if (!bytes.starts_with("MZ") || header == 0 || image.Long(header) != 0x00004550) {
        return file;
    }
    const std::size_t optional = header + kFileHeaderBytes;
    file.isPe = true;
    file.isDll = (image.Word(header + 22) & kDllFlag) != 0;
    file.is64 = image.Word(header + 4) == kMachineX64 && image.Word(optional) == kOptionalMagic64;
    if (!file.is64) {
        return file;
    }
    image.SetSections(optional + image.Word(header + 20), image.Word(header + 6));
    file.exports = ReadExports(image, image.Long(optional + kDirectoriesAt64));
    file.imports = ReadImports(image, image.Long(optional + kDirectoriesAt64 + 8));
    return file;
}

std::string FileVersionOf(std::string_view bytes) {
    // The resource begins with this key in 16-bit text; its fixed part follows at the next multiple of four.
    std::string key;
    for (const char letter : std::string_view("VS_VERSION_INFO")) {
        key += letter;
        key += '\0';
    }
    constexpr std::string_view kSignature("\xBD\x04\xEF\xFE", 4);
    constexpr std::size_t kMostPadding = 8;
    const std::size_t begin = bytes.find(key);
    const std::size_t at = begin == std::string_view::npos ? begin : bytes.find(kSignature, begin);
    if (at == std::string_view::npos || at > begin + key.size() + kMostPadding) {
        return {};
    }
    const Image image(bytes);
    const std::uint32_t high = image.Long(at + 8);
    const std::uint32_t low = image.Long(at + 12);
    std::string version =
        std::to_string(high >> 16) + "." + std::to_string(high & 0xFFFF) + "." + std::to_string(low >> 16);
    if ((low & 0xFFFF) != 0) {
        version += "." + std::to_string(low & 0xFFFF);
    }
    return version;
}

bool ExportsName(const PeFile& file, std::string_view name) {
    return std::find(file.exports.begin(), file.exports.end(), name) != file.exports.end();
}

}  // namespace ravlo
