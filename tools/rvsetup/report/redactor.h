#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ravlo {

/// Replaces what names a person or a machine by placeholders: SIDs of accounts (equal ones by equal placeholders),
/// names of user folders, and the names it is told. SIDs that are the same on every machine stay.
class Redactor {
public:
    /// A name to be replaced wherever it stands as a word, in whatever case. Names shorter than two bytes are left alone.
    void AddName(const std::string& name, const std::string& placeholder);

    /// The parts of "domain\name" are replaced likewise, unless the SID is that of an account which every machine has.
    void AddAccount(const std::string& sid, const std::string& account, const std::string& placeholder);

    std::string Redact(std::string_view text);

private:
    std::string ReplaceSids(std::string_view text);

    std::vector<std::pair<std::string, std::string>> m_names;  ///< longer names first; lower case
    std::map<std::string, std::string> m_sids;
};

/// What follows the first line end: the front of a text that was cut somewhere, whose rest of a SID or a name would not be
/// recognised. Empty for a text without one.
std::string WithoutTornLine(std::string_view text);

}  // namespace ravlo
