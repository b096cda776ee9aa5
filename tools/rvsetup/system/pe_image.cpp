#include "rvsetup/system/pe_image.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>

namespace ravlo {
namespace {

constexpr std::uint16_t kMachineAmd64 = 0x8664;
constexpr std::uint16_t kMachineI386 = 0x014C;
constexpr std::uint16_t kIsDll = 0x2000;
constexpr std::uint16_t kPe32Plus = 0x020B;
constexpr std::size_t kPeOffset = 0x3C;
constexpr std::size_t kFileHeaderSize = 24;  // with the signature
constexpr std::size_t kExportDirectory = 0;
constexpr std::size_t kImportDirectory = 1;
constexpr std::size_t kResourceDirectory = 2;
constexpr std::uint32_t kVersionResource = 16;
/// More names than any DLL has resources, exports or imports: a bound for a damaged file.
constexpr std::uint32_t kMaxEntries = 65536;

struct Damaged : std::runtime_error {
    Damaged() : std::runtime_error("is damaged or cut off") {}
};

/// The file's bytes with every access checked; throws Damaged.
class Reader {
public:
    explicit Reader(std::string_view bytes) noexcept : m_bytes(bytes) {}

    std::uint16_t Half(std::size_t offset) const {
        return static_cast<std::uint16_t>(Byte(offset) | Byte(offset + 1) << 8U);
    }
    std::uint32_t Word(std::size_t offset) const {
        return Half(offset) | static_cast<std::uint32_t>(Half(offset + 2)) << 16U;
    }
    std::string Text(std::size_t offset) const {
        constexpr std::size_t kLongest = 512;
        std::string text;
        for (; Byte(offset) != 0; ++offset) {
            text += static_cast<char>(Byte(offset));
            if (text.size() > kLongest) {
                throw Damaged();
            }
        }
        return text;
    }

private:
    std::uint8_t Byte(std::size_t offset) const {
        if (offset >= m_bytes.size()) {
            throw Damaged();
        }
        return static_cast<std::uint8_t>(m_bytes[offset]);
    }

    std::string_view m_bytes;
};

struct Section {
    std::uint32_t address;
    std::uint32_t size;
    std::uint32_t offset;
};

/// The headers of a 64-bit image.
class Image {
public:
    explicit Image(const Reader& file) : m_file(file) {
        const std::size_t header = m_file.Word(kPeOffset);
        const std::size_t sections = m_file.Half(header + 6);
        m_optional = header + kFileHeaderSize;
        const std::size_t table = m_optional + m_file.Half(header + 20);
        constexpr std::size_t kSectionSize = 40;
        for (std::size_t i = 0; i < sections; ++i) {
            const std::size_t at = table + i * kSectionSize;
            m_sections.push_back({m_file.Word(at + 12), m_file.Word(at + 16), m_file.Word(at + 20)});
        }
    }

    /// Where a directory lies in the file; nothing when the image has none.
    std::optional<std::size_t> Directory(std::size_t index) const {
        constexpr std::size_t kCount = 108;
        constexpr std::size_t kFirst = 112;
        if (m_file.Word(m_optional + kCount) <= index) {
            return std::nullopt;
        }
        const std::uint32_t address = m_file.Word(m_optional + kFirst + index * 8);
        return address == 0 ? std::nullopt : std::optional(OffsetOf(address));
    }

    /// Where a loaded address lies in the file.
    std::size_t OffsetOf(std::uint32_t address) const {
        for (const Section& section : m_sections) {
            if (address >= section.address && address - section.address < section.size) {
                return std::size_t{section.offset} + (address - section.address);
            }
        }
        throw Damaged();
    }

private:
    const Reader& m_file;
    std::size_t m_optional = 0;
    std::vector<Section> m_sections;
};

std::vector<std::string> ExportedNames(const Reader& file, const Image& image) {
    std::vector<std::string> names;
    const auto exports = image.Directory(kExportDirectory);
    if (!exports) {
        return names;
    }
    const std::uint32_t count = file.Word(*exports + 24);
    if (count == 0) {
        return names;
    }
    if (count > kMaxEntries) {
        throw Damaged();
    }
    const std::size_t table = image.OffsetOf(file.Word(*exports + 32));
    for (std::size_t i = 0; i < count; ++i) {
        names.push_back(file.Text(image.OffsetOf(file.Word(table + i * 4))));
    }
    return names;
}

std::vector<std::string> ImportedNames(const Reader& file, const Image& image) {
    constexpr std::size_t kEntrySize = 20;
    constexpr std::size_t kNameAt = 12;
    std::vector<std::string> names;
    const auto imports = image.Directory(kImportDirectory);
    for (std::size_t at = imports.value_or(0); imports && file.Word(at + kNameAt) != 0; at += kEntrySize) {
        names.push_back(file.Text(image.OffsetOf(file.Word(at + kNameAt))));
        if (names.size() > kMaxEntries) {
            throw Damaged();
        }
    }
    return names;
}

/// One level of the resource tree: the entry with this number, or the first one when `id` is nothing.
std::optional<std::uint32_t> ResourceEntry(const Reader& file, std::size_t table, std::optional<std::uint32_t> id) {
    const std::uint32_t count = std::uint32_t{file.Half(table + 12)} + file.Half(table + 14);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t entry = table + 16 + i * 8;
        if (!id || file.Word(entry) == *id) {
            return file.Word(entry + 4);
        }
    }
    return std::nullopt;
}

/// Version from the fixed part of the version resource: "1.0.0", or "1.0.0.7" when the fourth number is not 0. Empty
/// when there is none.
std::string VersionOf(const Reader& file, const Image& image) {
    constexpr std::uint32_t kIsTable = 0x80000000;
    constexpr std::uint32_t kFixedInfoSignature = 0xFEEF04BD;
    constexpr std::size_t kFixedInfo = 40;  // behind three 16-bit numbers and the key "VS_VERSION_INFO"
    const auto root = image.Directory(kResourceDirectory);
    if (!root) {
        return {};
    }
    std::size_t table = *root;
    std::optional<std::uint32_t> entry = ResourceEntry(file, table, kVersionResource);
    for (int level = 0; level < 2 && entry && (*entry & kIsTable) != 0; ++level) {
        table = *root + (*entry & ~kIsTable);
        entry = ResourceEntry(file, table, std::nullopt);
    }
    if (!entry || (*entry & kIsTable) != 0) {
        return {};
    }
    const std::size_t info = image.OffsetOf(file.Word(*root + *entry)) + kFixedInfo;
    if (file.Word(info) != kFixedInfoSignature) {
        return {};
    }
    std::string version = std::to_string(file.Half(info + 10)) + "." + std::to_string(file.Half(info + 8)) + "." +
                          std::to_string(file.Half(info + 14));
    if (file.Half(info + 12) != 0) {
        version += "." + std::to_string(file.Half(info + 12));
    }
    return version;
}

void ReadHeaders(const Reader& file, std::string_view bytes, PeImage& image) {
    image.isProgram = bytes.starts_with("MZ");
    if (!image.isProgram) {
        return;
    }
    const std::size_t header = file.Word(kPeOffset);
    image.isPe = header < bytes.size() && file.Word(header) == 0x00004550;
    if (!image.isPe) {
        return;
    }
    const std::uint16_t machine = file.Half(header + 4);
    image.is32Bit = machine == kMachineI386;
    image.is64 = machine == kMachineAmd64 && file.Half(header + kFileHeaderSize) == kPe32Plus;
    image.isDll = (file.Half(header + 22) & kIsDll) != 0;
}

}  // namespace

PeImage ReadPeImage(std::string_view bytes) {
    PeImage result;
    try {
        const Reader file(bytes);
        ReadHeaders(file, bytes, result);
        if (result.is64) {
            const Image image(file);
            result.exports = ExportedNames(file, image);
            result.imports = ImportedNames(file, image);
            result.version = VersionOf(file, image);
        }
    } catch (const Damaged&) {
        result.isDamaged = true;
    }
    return result;
}

bool ExportsName(const PeImage& image, std::string_view name) {
    return std::find(image.exports.begin(), image.exports.end(), name) != image.exports.end();
}

}  // namespace ravlo
