#include "rvsetup/doctor/glob.h"

#include <cstddef>

namespace ravlo {

bool FitsPattern(std::string_view text, std::string_view pattern) noexcept {
    std::size_t at = 0;
    std::size_t in = 0;
    std::size_t star = std::string_view::npos;  // the last "*" in the pattern
    std::size_t starAt = 0;                     // how far it has eaten into the text
    while (at < text.size()) {
        if (in < pattern.size() && pattern[in] == '*') {
            star = in++;
            starAt = at;
        } else if (in < pattern.size() && pattern[in] == text[at]) {
            ++in;
            ++at;
        } else if (star != std::string_view::npos) {
            in = star + 1;
            at = ++starAt;
        } else {
            return false;
        }
    }
    while (in < pattern.size() && pattern[in] == '*') {
        ++in;
    }
    return in == pattern.size();
}

}  // namespace ravlo
