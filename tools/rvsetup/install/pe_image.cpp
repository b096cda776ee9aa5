#include "rvsetup/install/pe_image.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace ravlo {
namespace {

constexpr std::uint16_t kMachineAmd64 = 0x8664;
constexpr std::uint16_t kMachineI386 = 0x014C;
constexpr std::uint16_t kIsDll = 0x2000;
constexpr std::uint16_t kPe32Plus = 0x020B;
constexpr std::size_t kExportDirectory = 0;
constexpr std::size_t kResourceDirectory = 2;
constexpr std::uint32_t kVersionResource = 16;
/// More names than any DLL has resources or exports: a bound for a damaged file.
constexpr std::uint32_t kMaxEntries = 65536;

/// In every registration of the camera, so in the DLL that registers it: it tells the camera from other COM servers.
constexpr std::string_view kClassId = "{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}";

struct Damaged : std::runtime_error {
    Damaged() : std::runtime_error("is damaged or cut off") {}
};

/// The file's bytes with every access checked; throws Damaged.
class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> bytes) noexcept : m_bytes(bytes) {}

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
        return m_bytes[offset];
    }

    std::span<const std::uint8_t> m_bytes;
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
        constexpr std::size_t kPeOffset = 0x3C;
        constexpr std::size_t kFileHeaderSize = 24;
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

/// Version from the fixed part of the version resource: "1.0.0", or "1.0.0.7" when the fourth number is not 0.
std::optional<std::string> VersionOf(const Reader& file, const Image& image) {
    constexpr std::uint32_t kIsTable = 0x80000000;
    constexpr std::uint32_t kFixedInfoSignature = 0xFEEF04BD;
    constexpr std::size_t kFixedInfo = 40;  // behind three 16-bit numbers and the key "VS_VERSION_INFO"
    const auto root = image.Directory(kResourceDirectory);
    if (!root) {
        return std::nullopt;
    }
    std::size_t table = *root;
    std::optional<std::uint32_t> entry = ResourceEntry(file, table, kVersionResource);
    for (int level = 0; level < 2 && entry && (*entry & kIsTable) != 0; ++level) {
        table = *root + (*entry & ~kIsTable);
        entry = ResourceEntry(file, table, std::nullopt);
    }
    if (!entry || (*entry & kIsTable) != 0) {
        return std::nullopt;
    }
    const std::size_t info = image.OffsetOf(file.Word(*root + *entry)) + kFixedInfo;
    if (file.Word(info) != kFixedInfoSignature) {
        return std::nullopt;
    }
    std::string version = std::to_string(file.Half(info + 10)) + "." + std::to_string(file.Half(info + 8)) + "." +
                          std::to_string(file.Half(info + 14));
    if (file.Half(info + 12) != 0) {
        version += "." + std::to_string(file.Half(info + 12));
    }
    return version;
}

bool HoldsWideText(std::span<const std::uint8_t> bytes, std::string_view text) {
    std::vector<std::uint8_t> wide;
    for (const char character : text) {
        wide.push_back(static_cast<std::uint8_t>(character));
        wide.push_back(0);
    }
    return std::search(bytes.begin(), bytes.end(), wide.begin(), wide.end()) != bytes.end();
}

/// Why the headers are not those of a 64-bit DLL; empty when they are.
std::string JudgeHeaders(std::span<const std::uint8_t> bytes, const Reader& file) {
    constexpr std::size_t kPeOffset = 0x3C;
    if (bytes.size() < 2 || bytes[0] != 'M' || bytes[1] != 'Z') {
        return "is no DLL: it does not begin like a program file of Windows";
    }
    const std::size_t header = file.Word(kPeOffset);
    if (header >= bytes.size() || file.Word(header) != 0x00004550) {
        return "is no DLL: it is a program file of another kind";
    }
    const std::uint16_t machine = file.Half(header + 4);
    if (machine == kMachineI386) {
        return "is a 32-bit file; the camera is loaded by 64-bit Windows services and must be the 64-bit DLL";
    }
    if (machine != kMachineAmd64 || file.Half(header + 24) != kPe32Plus) {
        return "is built for another processor; x86-64 is needed";
    }
    if ((file.Half(header + 22) & kIsDll) == 0) {
        return "is a program, not a DLL";
    }
    return {};
}

}  // namespace

std::optional<std::string> InspectCameraDll(std::span<const std::uint8_t> bytes, std::string& problem) {
    try {
        const Reader file(bytes);
        problem = JudgeHeaders(bytes, file);
        if (!problem.empty()) {
            return std::nullopt;
        }
        const Image image(file);
        const std::vector<std::string> names = ExportedNames(file, image);
        for (const char* needed : {"DllGetClassObject", "DllRegisterServer"}) {
            if (std::find(names.begin(), names.end(), needed) == names.end()) {
                problem = std::string("exports no ") + needed + ", so it cannot be the camera";
                return std::nullopt;
            }
        }
        if (!HoldsWideText(bytes, kClassId)) {
            problem = "is a COM server, but not the Ravlo camera";
            return std::nullopt;
        }
        std::optional<std::string> version = VersionOf(file, image);
        if (!version) {
            problem = "carries no version";
        }
        return version;
    } catch (const Damaged& damaged) {
        problem = damaged.what();
        return std::nullopt;
    }
}

}  // namespace ravlo
