#include "rvsetup/report/redactor.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

#include "rvsetup/system/text.h"

namespace ravlo {
namespace {

/// Part of a word; bytes of letters beyond ASCII are.
bool IsWordByte(char byte) noexcept {
    const auto code = static_cast<unsigned char>(byte);
    return std::isalnum(code) != 0 || byte == '_' || code >= 0x80;
}

bool StandsAlone(std::string_view text, std::size_t at, std::size_t length) noexcept {
    const bool begins = at == 0 || !IsWordByte(text[at - 1]) || !IsWordByte(text[at]);
    const std::size_t end = at + length;
    return begins && (end == text.size() || !IsWordByte(text[end]) || !IsWordByte(text[end - 1]));
}

std::string ReplaceWord(std::string_view text, const std::string& lowerName, const std::string& placeholder) {
    const std::string lower = Lowered(text);
    std::string result;
    std::size_t done = 0;
    for (std::size_t at = 0; (at = lower.find(lowerName, at)) != std::string::npos;) {
        if (!StandsAlone(text, at, lowerName.size())) {
            ++at;
            continue;
        }
        result += text.substr(done, at - done);
        result += placeholder;
        at += lowerName.size();
        done = at;
    }
    result += text.substr(done);
    return result;
}

/// "\Users\NAME", also with the backslashes doubled as JSON has them, or with slashes.
std::string ReplaceUserFolders(std::string_view text) {
    const std::string lower = Lowered(text);
    std::string result;
    std::size_t done = 0;
    for (std::size_t at = 0; (at = lower.find("users", at)) != std::string::npos;) {
        std::size_t name = at + 5;
        const bool isFolder = at > 0 && (lower[at - 1] == '\\' || lower[at - 1] == '/') && name < lower.size() &&
                              (lower[name] == '\\' || lower[name] == '/');
        at = name;
        if (!isFolder) {
            continue;
        }
        while (name < lower.size() && (lower[name] == '\\' || lower[name] == '/')) {
            ++name;
        }
        const std::size_t end = std::min(lower.find_first_of("\\/\"\r\n:*?<>|", name), lower.size());
        const std::string_view owner = std::string_view(lower).substr(name, end - name);
        if (owner.empty() || owner == "public" || owner == "default") {
            continue;
        }
        result += text.substr(done, name - done);
        result += "<user>";
        done = at = end;
    }
    result += text.substr(done);
    return result;
}

bool IsSidByte(char byte) noexcept {
    return (byte >= '0' && byte <= '9') || byte == '-';
}

}  // namespace

void Redactor::AddName(const std::string& name, const std::string& placeholder) {
    if (name.size() < 2) {
        return;
    }
    m_names.emplace_back(Lowered(name), placeholder);
    std::stable_sort(m_names.begin(), m_names.end(),
                     [](const auto& left, const auto& right) { return left.first.size() > right.first.size(); });
}

void Redactor::AddAccount(const std::string& sid, const std::string& account, const std::string& placeholder) {
    if (!IsPersonalSid(sid)) {
        return;
    }
    const std::size_t split = account.find('\\');
    AddName(split == std::string::npos ? account : account.substr(split + 1), placeholder);
    if (split != std::string::npos) {
        AddName(account.substr(0, split), "<machine>");
    }
}

std::string Redactor::Redact(std::string_view text) {
    std::string result = ReplaceUserFolders(ReplaceSids(text));
    for (const auto& [name, placeholder] : m_names) {
        result = ReplaceWord(result, name, placeholder);
    }
    return result;
}

std::string WithoutTornLine(std::string_view text) {
    const std::size_t end = text.find('\n');
    return end == std::string_view::npos ? std::string() : std::string(text.substr(end + 1));
}

std::string Redactor::ReplaceSids(std::string_view text) {
    std::string result;
    std::size_t done = 0;
    const std::string lower = Lowered(text);
    // Accounts of a machine or domain, and of the cloud; all other SIDs mean the same everywhere.
    for (std::size_t at = 0; (at = lower.find("s-1-", at)) != std::string::npos;) {
        std::size_t end = at + 4;
        while (end < lower.size() && IsSidByte(lower[end])) {
            ++end;
        }
        while (lower[end - 1] == '-') {
            --end;  // a dash behind it is no part of it
        }
        if (IsPersonalSid(Uppered(text.substr(at, end - at)))) {
            std::string& placeholder = m_sids[lower.substr(at, end - at)];
            if (placeholder.empty()) {
                placeholder = "<SID-" + std::to_string(m_sids.size()) + ">";
            }
            result += text.substr(done, at - done);
            result += placeholder;
            done = end;
        }
        at = end;
    }
    result += text.substr(done);
    return result;
}

}  // namespace ravlo
