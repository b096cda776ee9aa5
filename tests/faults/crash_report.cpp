#include "faults/crash_report.h"

#include <tlhelp32.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cwchar>

namespace ravlo::faults {
namespace {

HANDLE g_report = nullptr;
std::atomic<ULONGLONG> g_deadline{0};

/// Without the heap and without buffers: whatever is wrong may be wrong there.
void Write(const char* format, ...) {
    char text[512];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    DWORD written = 0;
    WriteFile(g_report, text, static_cast<DWORD>(length), &written, nullptr);
}

void WriteStack(CONTEXT context) {
    constexpr int kMaxDepth = 40;
    for (int depth = 0; depth < kMaxDepth && context.Rip != 0; ++depth) {
        HMODULE module = nullptr;
        wchar_t path[MAX_PATH]{};
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           reinterpret_cast<LPCWSTR>(context.Rip), &module);
        if (module != nullptr) {
            GetModuleFileNameW(module, path, MAX_PATH);
        }
        const wchar_t* const slash = std::wcsrchr(path, L'\\');
        Write("STACK %ls+0x%llx\n", slash != nullptr ? slash + 1 : L"?",
              static_cast<unsigned long long>(context.Rip - reinterpret_cast<std::uint64_t>(module)));
        DWORD64 base = 0;
        RUNTIME_FUNCTION* const function = RtlLookupFunctionEntry(context.Rip, &base, nullptr);
        if (function == nullptr) {
            if (context.Rsp == 0 || IsBadReadPtr(reinterpret_cast<void*>(context.Rsp), 8)) {
                return;
            }
            context.Rip = *reinterpret_cast<std::uint64_t*>(context.Rsp);
            context.Rsp += 8;
            continue;
        }
        void* handlerData = nullptr;
        DWORD64 frame = 0;
        RtlVirtualUnwind(UNW_FLAG_NHANDLER, base, context.Rip, function, &context, &handlerData, &frame, nullptr);
    }
}

LONG WINAPI OnCrash(EXCEPTION_POINTERS* exception) {
    Write("CRASH exception 0x%08lX\n", exception->ExceptionRecord->ExceptionCode);
    WriteStack(*exception->ContextRecord);
    TerminateProcess(GetCurrentProcess(), kCrashExitCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

void WriteAllStacks() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID != GetCurrentProcessId() || entry.th32ThreadID == GetCurrentThreadId()) {
            continue;
        }
        const HANDLE thread = OpenThread(THREAD_ALL_ACCESS, FALSE, entry.th32ThreadID);
        if (thread == nullptr) {
            continue;
        }
        CONTEXT context{};
        context.ContextFlags = CONTEXT_FULL;
        SuspendThread(thread);
        Write("THREAD %lu\n", entry.th32ThreadID);
        if (GetThreadContext(thread, &context)) {
            WriteStack(context);
        }
        ResumeThread(thread);
    }
}

DWORD WINAPI Watch(void*) {
    constexpr DWORD kLookMs = 100;
    for (;;) {
        Sleep(kLookMs);
        const ULONGLONG deadline = g_deadline.load();
        if (deadline != 0 && GetTickCount64() > deadline) {
            Write("HANG\n");
            WriteAllStacks();
            TerminateProcess(GetCurrentProcess(), kHangExitCode);
        }
    }
}

}  // namespace

void InstallCrashReport(HANDLE report) {
    g_report = report;
    SetUnhandledExceptionFilter(&OnCrash);
    const HANDLE watch = CreateThread(nullptr, 0, &Watch, nullptr, 0, nullptr);
    CloseHandle(watch);
}

void EndAsCrash(const char* reason) {
    Write("CRASH %s\n", reason);
    CONTEXT context{};
    RtlCaptureContext(&context);
    WriteStack(context);
    TerminateProcess(GetCurrentProcess(), kCrashExitCode);
    std::_Exit(kCrashExitCode);
}

void WatchFor(DWORD milliseconds) {
    g_deadline = milliseconds == 0 ? 0 : GetTickCount64() + milliseconds;
}

}  // namespace ravlo::faults
