#pragma once

#include <string>

#include "platform/wide_char.h"

namespace ravlo {

using WideText = std::basic_string<WideChar>;

/// The same characters in 16-bit units; each byte becomes one unit.
inline WideText Wide(const std::string& ascii) {
    WideText wide;
    for (const char character : ascii) {
        wide.push_back(static_cast<WideChar>(static_cast<unsigned char>(character)));
    }
    return wide;
}

/// The characters up to the terminator, for a comparison that prints readably. The units must be ASCII.
inline std::string Narrow(const WideChar* wide) {
    std::string ascii;
    for (; *wide != 0; ++wide) {
        ascii.push_back(static_cast<char>(*wide));
    }
    return ascii;
}

}  // namespace ravlo
