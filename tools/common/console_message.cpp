#include "common/console_message.h"

#include <windows.h>

#include <new>
#include <string>

#include "common/messages.h"
#include "common/wide_text.h"

namespace ravlo {
namespace {

bool WriteToConsole(HANDLE console, std::string_view program, std::string_view text) noexcept {
    try {
        const std::wstring line = ToWide(program) + L": " + ToWide(text) + L"\n";
        DWORD written = 0;
        return WriteConsoleW(console, line.data(), static_cast<DWORD>(line.size()), &written, nullptr) != FALSE;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

void WriteConsoleMessage(std::string_view program, std::string_view text) noexcept {
    const HANDLE error = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    if (!GetConsoleMode(error, &mode) || !WriteToConsole(error, program, text)) {
        WriteMessage(program, text);
    }
}

}  // namespace ravlo
