#include "rvsetup/system/text.h"

#include <algorithm>
#include <cstddef>

namespace ravlo {
namespace {

char Upper(char letter) noexcept {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

bool HasDrive(std::string_view path) noexcept {
    return path.size() >= 3 && Lower(path[0]) >= 'a' && Lower(path[0]) <= 'z' && path[1] == ':' && path[2] == '\\';
}

}  // namespace

std::string Printable(std::string_view text) {
    constexpr char kSecondBlock = '\xC2';  // in front of U+0080..U+00BF
    std::string printable;
    printable.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool isPair = text[i] == kSecondBlock && i + 1 < text.size();
        const auto next = isPair ? static_cast<unsigned char>(text[i + 1]) : static_cast<unsigned char>(0);
        if (next >= 0x80 && next <= 0x9F) {
            printable += '?';
            ++i;
        } else {
            printable += byte < 0x20 || byte == 0x7F ? '?' : text[i];
        }
    }
    return printable;
}

char Lower(char letter) noexcept {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::string Lowered(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

std::string Uppered(std::string_view text) {
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), Upper);
    return upper;
}

bool IsSameText(std::string_view left, std::string_view right) noexcept {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char one, char other) { return Lower(one) == Lower(other); });
}

std::string NamedSid(const std::string& sid, const std::string& account) {
    return account.empty() ? sid : account + " (" + sid + ")";
}

bool IsPersonalSid(std::string_view sid) noexcept {
    return sid.starts_with("S-1-5-21-") || sid.starts_with("S-1-12-");
}

bool IsAbsolutePath(std::string_view path) noexcept {
    return HasDrive(path) || path.starts_with("\\\\");
}

bool LeadsToFiles(std::string_view path) {
    constexpr std::string_view kVerbatim = "\\\\?\\";
    constexpr std::string_view kNetwork = "unc\\";
    std::string lower = Lowered(path);
    if (lower.starts_with(kVerbatim)) {
        lower.erase(0, kVerbatim.size());
        if (!lower.starts_with(kNetwork)) {
            return HasDrive(lower);
        }
        lower.replace(0, kNetwork.size(), "\\\\");
    }
    if (!lower.starts_with("\\\\")) {
        return HasDrive(lower);
    }
    const std::size_t share = lower.find('\\', 2);
    if (share == std::string::npos || lower.starts_with("\\\\.\\")) {
        return false;
    }
    return !(lower + "\\").substr(share + 1).starts_with("pipe\\");
}

}  // namespace ravlo
