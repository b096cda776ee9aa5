// The parts of log lines that differ from run to run, spelled as the log spells them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace ravlo::test {

/// Sixteen upper-case hexadecimal digits.
inline std::string PointerText(const void* pointer) {
    char text[24];
    std::snprintf(text, sizeof text, "%016llX", reinterpret_cast<unsigned long long>(pointer));
    return text;
}

/// "0x" and eight upper-case hexadecimal digits.
inline std::string ResultText(long result) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(result));
    return text;
}

/// For texts that are plain ASCII.
inline std::string Narrow(const std::wstring& text) {
    std::string result;
    for (const wchar_t character : text) {
        result += static_cast<char>(character);
    }
    return result;
}

/// For texts that are plain ASCII.
inline std::wstring Widen(const std::string& text) {
    return {text.begin(), text.end()};
}

}  // namespace ravlo::test
