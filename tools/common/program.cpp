#include "common/program.h"

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <new>

#include "common/console.h"
#include "common/messages.h"
#include "common/program_error.h"

namespace ravlo {

void RunProgram(const char* name, ExitCode (*body)()) {
    // A drive without a disk, or a library that does not load, is to be a failure and no window that waits for a click.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    ExitCode code = ExitCode::Failure;
    NameMessages(name, WriteConsoleMessage);
    try {
        code = body();
    } catch (const ProgramError& error) {
        Say(error.what());
        code = error.Code();
    } catch (const std::bad_alloc&) {
        Say("out of memory");
    } catch (const std::exception& error) {
        Say(error.what());
    }
    constexpr std::chrono::milliseconds kLastWords{300};
    FlushMessages(kLastWords);
    std::fflush(nullptr);
    ExitProcess(static_cast<UINT>(code));
}

}  // namespace ravlo
