#include "faults/rules.h"

#include <cstring>

namespace ravlo::faults {
namespace {

/// Returns 0 (FALSE, null) and sets the last error.
template <DWORD... kErrors>
inline constexpr Failure kZeroWith[] = {{0, kErrors, true, false}...};
/// Returns INVALID_HANDLE_VALUE, WAIT_FAILED or another all-ones value and sets the last error.
template <DWORD... kErrors>
inline constexpr Failure kInvalidHandleWith[] = {{~std::uint64_t{0}, kErrors, true, false}...};
template <DWORD... kErrors>
inline constexpr Failure kWaitFailedWith[] = {{WAIT_FAILED, kErrors, true, false}...};
/// Returns the status itself.
template <DWORD... kStatuses>
inline constexpr Failure kStatus[] = {{kStatuses, 0, false, false}...};
/// Does the work, then returns 0 and sets the last error.
template <DWORD... kErrors>
inline constexpr Failure kZeroAfterWorkWith[] = {{0, kErrors, true, true}...};
template <DWORD... kStatuses>
inline constexpr Failure kStatusAfterWork[] = {{kStatuses, 0, false, true}...};
/// Returns 0 or null and says no more.
inline constexpr Failure kZero[] = {{0, 0, false, false}};
/// Does the work, then returns something that is not 0 and sets the last error.
inline constexpr Failure kLocalFreeFails[] = {{0xDEAD0, ERROR_INVALID_HANDLE, true, true}};
/// A path that was cut: the buffer's size, in characters, and the error that tells.
inline constexpr Failure kModuleName[] = {{0, ERROR_MOD_NOT_FOUND, true, false},
                                          {1040, ERROR_INSUFFICIENT_BUFFER, true, false}};

constexpr DWORD kOutOfMemory = 0x8007000E;
constexpr DWORD kUnexpected = 0x8000FFFF;
constexpr DWORD kPlatformNotInitialized = 0xC00D36B0;

constexpr char kAnswer[] = "an answer about its argument, which every caller takes as it is; it reports no failure";
constexpr char kPure[] = "pure memory or text work of the C library, without a failing result";
constexpr char kVoid[] = "returns nothing and cannot fail";
constexpr char kRuntime[] =
    "called by the C or C++ runtime only, for its own threads, locks and exceptions; never by the module's code";
constexpr char kUnwinding[] =
    "unwinds the stack of an exception or describes it; a failure here has no caller to report to";
constexpr char kEnd[] = "ends the process; a play that reaches it counts as a crash";
constexpr char kIdentity[] = "returns an identity of the process or thread, which always exists";
constexpr char kClock[] = "reads a clock, which cannot fail; the sweep replaces it by a faster one";

using enum CodeKind;

constexpr ImportRule Gated(const char* name, CodeKind kind, std::span<const Failure> failures) {
    return {name, kind, failures, nullptr};
}

constexpr ImportRule LeftOut(const char* name, const char* reason) {
    return {name, None, {}, reason};
}

constexpr ImportRule kImports[] = {
    // Security.
    Gated("AddAccessAllowedAce", Win32, kZeroWith<ERROR_ALLOTTED_SPACE_EXCEEDED, ERROR_INVALID_SID>),
    Gated("ConvertSidToStringSidW", Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_SID>),
    Gated("ConvertStringSidToSidW", Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_SID>),
    Gated("CreateWellKnownSid", Win32, kZeroWith<ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_PARAMETER>),
    Gated("GetSecurityInfo", Win32, kStatus<ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY>),
    Gated("GetTokenInformation", Win32, kZeroWith<ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY>),
    Gated("InitializeAcl", Win32, kZeroWith<ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_PARAMETER>),
    Gated("InitializeSecurityDescriptor", Win32, kZeroWith<ERROR_UNKNOWN_REVISION>),
    Gated("LookupAccountSidW", Win32, kZeroWith<ERROR_NONE_MAPPED, RPC_S_SERVER_UNAVAILABLE>),
    Gated("OpenProcessToken", Win32, kZeroWith<ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY>),
    Gated("OpenThreadToken", Win32, kZeroWith<ERROR_ACCESS_DENIED, ERROR_CANT_OPEN_ANONYMOUS>),
    Gated("SetSecurityDescriptorDacl", Win32, kZeroWith<ERROR_INVALID_SECURITY_DESCR>),
    Gated("SetSecurityDescriptorOwner", Win32, kZeroWith<ERROR_INVALID_SECURITY_DESCR>),
    Gated("IsValidSid", Win32, kZeroWith<ERROR_INVALID_SID>),
    LeftOut("EqualSid", kAnswer),
    LeftOut("GetLengthSid", kAnswer),
    LeftOut("GetSidIdentifierAuthority", kAnswer),
    LeftOut("GetSidSubAuthority", kAnswer),
    LeftOut("GetSidSubAuthorityCount", kAnswer),
    // Registry.
    Gated("RegCloseKey", Win32, kStatusAfterWork<ERROR_INVALID_HANDLE>),
    Gated("RegCreateKeyExW", Win32, kStatus<ERROR_ACCESS_DENIED, ERROR_NO_SYSTEM_RESOURCES>),
    Gated("RegDeleteTreeW", Win32, kStatus<ERROR_ACCESS_DENIED, ERROR_KEY_DELETED>),
    Gated("RegGetValueW", Win32, kStatus<ERROR_FILE_NOT_FOUND, ERROR_UNSUPPORTED_TYPE, ERROR_MORE_DATA>),
    Gated("RegOpenKeyExW", Win32, kStatus<ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED>),
    Gated("RegQueryValueExW", Win32, kStatus<ERROR_FILE_NOT_FOUND, ERROR_KEY_DELETED, ERROR_MORE_DATA>),
    Gated("RegSetValueExW", Win32, kStatus<ERROR_ACCESS_DENIED, ERROR_NO_SYSTEM_RESOURCES>),
    // Pipes and files.
    Gated("CancelIoEx", Win32, kZeroAfterWorkWith<ERROR_NOT_FOUND, ERROR_INVALID_HANDLE>),
    Gated("ConnectNamedPipe", Win32, kZeroWith<ERROR_NO_DATA, ERROR_PIPE_LISTENING, ERROR_NO_SYSTEM_RESOURCES>),
    Gated("CreateDirectoryW", Win32, kZeroWith<ERROR_ACCESS_DENIED, ERROR_PATH_NOT_FOUND>),
    Gated("CreateFileW", Win32, kInvalidHandleWith<ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION>),
    Gated("CreateNamedPipeW", Win32, kInvalidHandleWith<ERROR_ACCESS_DENIED, ERROR_PIPE_BUSY>),
    Gated("DisconnectNamedPipe", Win32, kZeroAfterWorkWith<ERROR_PIPE_NOT_CONNECTED, ERROR_INVALID_HANDLE>),
    Gated("GetFileInformationByHandleEx", Win32, kZeroWith<ERROR_INVALID_PARAMETER, ERROR_ACCESS_DENIED>),
    Gated("GetOverlappedResult", Win32, kZeroWith<ERROR_BROKEN_PIPE, ERROR_OPERATION_ABORTED>),
    Gated("ReadFile", Win32, kZeroWith<ERROR_BROKEN_PIPE, ERROR_NO_SYSTEM_RESOURCES>),
    Gated("WriteFile", Win32, kZeroWith<ERROR_NO_DATA, ERROR_BROKEN_PIPE, ERROR_DISK_FULL>),
    // Events, timers, waits, threads.
    Gated("CancelWaitableTimer", Win32, kZeroWith<ERROR_INVALID_HANDLE>),
    Gated("CloseHandle", Win32, kZeroAfterWorkWith<ERROR_INVALID_HANDLE>),
    Gated("CreateEventW", Win32, kZeroWith<ERROR_NO_SYSTEM_RESOURCES, ERROR_NOT_ENOUGH_MEMORY>),
    Gated("CreateThread", Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_SYSTEM_RESOURCES>),
    Gated("CreateWaitableTimerExW", Win32, kZeroWith<ERROR_INVALID_PARAMETER, ERROR_NO_SYSTEM_RESOURCES>),
    Gated("InitializeCriticalSectionAndSpinCount", Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY>),
    Gated("ResetEvent", Win32, kZeroWith<ERROR_INVALID_HANDLE>),
    Gated("SetEvent", Win32, kZeroWith<ERROR_INVALID_HANDLE>),
    Gated("SetWaitableTimer", Win32, kZeroWith<ERROR_INVALID_PARAMETER>),
    Gated("WaitForMultipleObjects", Win32, kWaitFailedWith<ERROR_INVALID_HANDLE, ERROR_NOT_ENOUGH_MEMORY>),
    Gated("WaitForSingleObject", Win32, kWaitFailedWith<ERROR_INVALID_HANDLE, ERROR_NOT_ENOUGH_MEMORY>),
    LeftOut("DeleteCriticalSection", kVoid),
    LeftOut("EnterCriticalSection", "cannot fail for a section that exists"),
    LeftOut("LeaveCriticalSection", kVoid),
    LeftOut("Sleep", kVoid),
    // Modules and processes.
    Gated("DisableThreadLibraryCalls", Win32, kZeroWith<ERROR_INVALID_PARAMETER>),
    Gated("FileTimeToSystemTime", Win32, kZeroWith<ERROR_INVALID_PARAMETER>),
    Gated("FreeLibrary", Win32, kZeroAfterWorkWith<ERROR_INVALID_HANDLE>),
    Gated("GetModuleFileNameW", Win32, kModuleName),
    Gated("GetProcAddress", Win32, kZeroWith<ERROR_PROC_NOT_FOUND>),
    Gated("LoadLibraryExW", Win32, kZeroWith<ERROR_MOD_NOT_FOUND, ERROR_NOT_ENOUGH_MEMORY>),
    Gated("LocalAlloc", Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY>),
    Gated("LocalFree", Win32, kLocalFreeFails),
    Gated("ProcessIdToSessionId", Win32, kZeroWith<ERROR_ACCESS_DENIED>),
    LeftOut("GetCurrentProcess", kIdentity),
    LeftOut("GetCurrentProcessId", kIdentity),
    LeftOut("GetCurrentThread", kIdentity),
    LeftOut("GetCurrentThreadId", kIdentity),
    LeftOut("GetLastError", "reads the last error, which always exists"),
    LeftOut("SetLastError", kVoid),
    LeftOut("GetSystemTimeAsFileTime", kClock),
    LeftOut("GetTickCount64", kClock),
    LeftOut("MFGetSystemTime", kClock),
    LeftOut("OutputDebugStringW", kVoid),
    // Media Foundation and COM.
    Gated("CoCreateFreeThreadedMarshaler", Hresult, kStatus<kOutOfMemory>),
    Gated("CoGetApartmentType", Hresult, kStatus<static_cast<DWORD>(CO_E_NOTINITIALIZED), kUnexpected>),
    Gated("MFCreateAttributes", Hresult, kStatus<kOutOfMemory>),
    Gated("MFCreateEventQueue", Hresult, kStatus<kOutOfMemory>),
    Gated("MFCreateMediaType", Hresult, kStatus<kOutOfMemory>),
    Gated("MFCreateMemoryBuffer", Hresult, kStatus<kOutOfMemory>),
    Gated("MFCreatePresentationDescriptor", Hresult, kStatus<kOutOfMemory>),
    Gated("MFCreateSample", Hresult, kStatus<kOutOfMemory>),
    Gated("MFCreateStreamDescriptor", Hresult, kStatus<kOutOfMemory>),
    Gated("MFShutdown", Hresult, kStatusAfterWork<kPlatformNotInitialized>),
    Gated("MFStartup", Hresult, kStatus<0xC00D36E3, kOutOfMemory>),
    Gated("PropVariantClear", Hresult, kStatusAfterWork<static_cast<DWORD>(STG_E_INVALIDPARAMETER)>),
    Gated("StringFromGUID2", None, kZero),
    // The heap, through which every operator new goes.
    Gated("_strdup", None, kZero),
    Gated("calloc", None, kZero),
    Gated("malloc", None, kZero),
    Gated("realloc", None, kZero),
    LeftOut("free", kVoid),
    // The runtime.
    LeftOut("AddVectoredExceptionHandler", kRuntime),
    LeftOut("CreateEventA", kRuntime),
    LeftOut("CreateSemaphoreA", kRuntime),
    LeftOut("DuplicateHandle", kRuntime),
    LeftOut("GetHandleInformation", kRuntime),
    LeftOut("GetModuleHandleW", kRuntime),
    LeftOut("GetProcessAffinityMask", kRuntime),
    LeftOut("GetThreadContext", kRuntime),
    LeftOut("GetThreadPriority", kRuntime),
    LeftOut("InitializeCriticalSection", kRuntime),
    LeftOut("IsDBCSLeadByteEx", kRuntime),
    LeftOut("IsDebuggerPresent", kRuntime),
    LeftOut("LoadLibraryW", kRuntime),
    LeftOut("MultiByteToWideChar", kRuntime),
    LeftOut("OpenProcess", kRuntime),
    LeftOut("OutputDebugStringA", kRuntime),
    LeftOut("ReleaseSemaphore", kRuntime),
    LeftOut("RemoveVectoredExceptionHandler", kRuntime),
    LeftOut("ResumeThread", kRuntime),
    LeftOut("SetProcessAffinityMask", kRuntime),
    LeftOut("SetThreadContext", kRuntime),
    LeftOut("SetThreadPriority", kRuntime),
    LeftOut("SuspendThread", kRuntime),
    LeftOut("TlsAlloc", kRuntime),
    LeftOut("TlsGetValue", kRuntime),
    LeftOut("TlsSetValue", kRuntime),
    LeftOut("TryEnterCriticalSection", kRuntime),
    LeftOut("VirtualProtect", kRuntime),
    LeftOut("VirtualQuery", kRuntime),
    LeftOut("WideCharToMultiByte", kRuntime),
    LeftOut("_beginthreadex", kRuntime),
    LeftOut("_endthreadex", kRuntime),
    LeftOut("_errno", kRuntime),
    LeftOut("_initterm", kRuntime),
    LeftOut("_lock", kRuntime),
    LeftOut("_unlock", kRuntime),
    LeftOut("___lc_codepage_func", kRuntime),
    LeftOut("___mb_cur_max_func", kRuntime),
    LeftOut("__iob_func", kRuntime),
    LeftOut("_close", kRuntime),
    LeftOut("_read", kRuntime),
    LeftOut("_setjmp", kUnwinding),
    LeftOut("longjmp", kUnwinding),
    LeftOut("signal", kRuntime),
    LeftOut("localeconv", kRuntime),
    LeftOut("fprintf", kRuntime),
    LeftOut("fputc", kRuntime),
    LeftOut("fputs", kRuntime),
    LeftOut("fwrite", kRuntime),
    LeftOut("printf", kRuntime),
    LeftOut("vfprintf", kRuntime),
    LeftOut("strerror", kRuntime),
    LeftOut("_ultoa", kRuntime),
    LeftOut("FormatMessageA", kRuntime),
    LeftOut("GetModuleHandleA", kRuntime),
    LeftOut("GetTickCount", kRuntime),
    LeftOut("QueryPerformanceCounter", kRuntime),
    LeftOut("QueryPerformanceFrequency", kRuntime),
    LeftOut("_vscprintf", kRuntime),
    LeftOut("_vsnprintf", kRuntime),
    LeftOut("getenv", kRuntime),
    LeftOut("strchr", kRuntime),
    LeftOut("strtoul", kRuntime),
    LeftOut("RaiseException", kUnwinding),
    LeftOut("RtlCaptureContext", kUnwinding),
    LeftOut("RtlLookupFunctionEntry", kUnwinding),
    LeftOut("RtlUnwindEx", kUnwinding),
    LeftOut("RtlVirtualUnwind", kUnwinding),
    LeftOut("__C_specific_handler", kUnwinding),
    LeftOut("_amsg_exit", kEnd),
    LeftOut("abort", kEnd),
    LeftOut("exit", kEnd),
    LeftOut("memchr", kPure),
    LeftOut("memcmp", kPure),
    LeftOut("memcpy", kPure),
    LeftOut("memmove", kPure),
    LeftOut("memset", kPure),
    LeftOut("strcmp", kPure),
    LeftOut("strlen", kPure),
    LeftOut("strncmp", kPure),
    LeftOut("wcslen", kPure),
    LeftOut("wcsrchr", kPure),
};

constexpr ImportRule kResolved[] = {
    Gated("MFCreateSensorProfile", Hresult, kStatus<kOutOfMemory>),
    Gated("MFCreateSensorProfileCollection", Hresult, kStatus<kOutOfMemory>),
};

const ImportRule* Find(std::span<const ImportRule> rules, const char* name) {
    for (const ImportRule& rule : rules) {
        if (std::strcmp(rule.name, name) == 0) {
            return &rule;
        }
    }
    return nullptr;
}

}  // namespace

const ImportRule* FindImportRule(const char* name) {
    return Find(kImports, name);
}

bool IsLeftToRuntime(const ImportRule& rule) {
    return rule.leftOut == kRuntime;
}

const ImportRule* FindResolvedRule(const char* name) {
    return Find(kResolved, name);
}

std::span<const Failure> MethodFailures(const char* method) {
    // What ends something ends it: a store that stayed locked would only show that a lock locks.
    for (const char* const ending : {"UnlockStore", "Unlock", "Shutdown"}) {
        if (std::strcmp(method, ending) == 0) {
            return kStatusAfterWork<kUnexpected>;
        }
    }
    return kStatus<kOutOfMemory, kUnexpected>;
}

}  // namespace ravlo::faults
