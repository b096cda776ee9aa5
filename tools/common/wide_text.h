#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ravlo {

/// UTF-8 to the system's 16-bit text; what is not UTF-8 becomes U+FFFD.
std::wstring ToWide(std::string_view utf8);

/// The system's 16-bit text to UTF-8; an unpaired surrogate becomes U+FFFD.
std::string ToUtf8(std::wstring_view wide);

/// The arguments of this process in UTF-8, the program's own name first. The C runtime's argv cannot name every file.
std::vector<std::string> Utf8Arguments();

/// A Win32 error code as a sentence without its final full stop, such as "Access is denied (error 5)".
std::string SystemErrorText(unsigned long code);

}  // namespace ravlo
