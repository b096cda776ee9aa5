#pragma once

#include <string>
#include <string_view>

namespace ravlo {

/// UTF-8 text for one line of a console: each control character, of ASCII or of the block behind it, becomes "?". What
/// others wrote into a log or the registry could steer the terminal otherwise.
std::string Printable(std::string_view text);

/// ASCII letters in lower or upper case; everything else stays.
char Lower(char letter) noexcept;
std::string Lowered(std::string_view text);
std::string Uppered(std::string_view text);

/// Whether two texts are the same but for the case of ASCII letters.
bool IsSameText(std::string_view left, std::string_view right) noexcept;

/// "account (SID)", or the SID alone for an account without a name.
std::string NamedSid(const std::string& sid, const std::string& account);

/// Whether a SID is that of an account of a machine, a domain or the cloud. Others are the same on every machine.
bool IsPersonalSid(std::string_view sid) noexcept;

/// Whether a path leads to the same place from everywhere: it begins with a drive and a backslash, or with two.
bool IsAbsolutePath(std::string_view path) noexcept;

/// Whether an absolute path leads to files, and not to a device or a pipe, which a mere look at it may open.
bool LeadsToFiles(std::string_view path);

}  // namespace ravlo
