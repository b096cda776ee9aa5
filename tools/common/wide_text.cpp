#include "common/wide_text.h"

#include <windows.h>

#include <shellapi.h>

#include <array>
#include <cstddef>
#include <memory>

namespace ravlo {
namespace {

struct LocalFreeDeleter {
    void operator()(wchar_t** memory) const noexcept { LocalFree(memory); }
};

}  // namespace

std::wstring ToWide(std::string_view utf8) {
    const int bytes = static_cast<int>(utf8.size());
    const int needed = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(needed), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, wide.data(), needed);
    return wide;
}

std::string ToUtf8(std::wstring_view wide) {
    const int units = static_cast<int>(wide.size());
    const int needed = WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<std::size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, utf8.data(), needed, nullptr, nullptr);
    return utf8;
}

std::vector<std::string> Utf8Arguments() {
    int count = 0;
    const std::unique_ptr<wchar_t*, LocalFreeDeleter> words(CommandLineToArgvW(GetCommandLineW(), &count));
    std::vector<std::string> arguments;
    for (int i = 0; words && i < count; ++i) {
        arguments.push_back(ToUtf8(words.get()[i]));
    }
    return arguments;
}

std::string SystemErrorText(unsigned long code) {
    std::array<wchar_t, 512> buffer{};
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                                  buffer.data(), static_cast<DWORD>(buffer.size()), nullptr);
    while (length != 0 && (buffer[length - 1] <= L' ' || buffer[length - 1] == L'.')) {
        --length;
    }
    const std::string number = "error " + std::to_string(code);
    return length == 0 ? number : ToUtf8({buffer.data(), length}) + " (" + number + ")";
}

}  // namespace ravlo
