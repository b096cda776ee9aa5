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
/// Does the work, then returns something that is not 0 and sets the last error.
inline constexpr Failure kNullLastError[] = {{0, 0, false, false}};
inline constexpr Failure kNullHeap[] = {{0, ERROR_NOT_ENOUGH_MEMORY, false, false}};
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

#define GATED(name, kind, ...)                      \
    ImportRule {                                    \
#name, CodeKind::kind, __VA_ARGS__, nullptr \
    }
#define LEFT_OUT(name, reason)            \
    ImportRule {                          \
#name, CodeKind::None, {}, reason \
    }

constexpr ImportRule kImports[] = {
    // Security.
    GATED(AddAccessAllowedAce, Win32, kZeroWith<ERROR_ALLOTTED_SPACE_EXCEEDED, ERROR_INVALID_SID>),
    GATED(ConvertSidToStringSidW, Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_SID>),
    GATED(ConvertStringSidToSidW, Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_SID>),
    GATED(CreateWellKnownSid, Win32, kZeroWith<ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_PARAMETER>),
    GATED(GetSecurityInfo, Win32, kStatus<ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY>),
    GATED(GetTokenInformation, Win32, kZeroWith<ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY>),
    GATED(InitializeAcl, Win32, kZeroWith<ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_PARAMETER>),
    GATED(InitializeSecurityDescriptor, Win32, kZeroWith<ERROR_UNKNOWN_REVISION>),
    GATED(LookupAccountSidW, Win32, kZeroWith<ERROR_NONE_MAPPED, RPC_S_SERVER_UNAVAILABLE>),
    GATED(OpenProcessToken, Win32, kZeroWith<ERROR_ACCESS_DENIED, ERROR_NOT_ENOUGH_MEMORY>),
    GATED(OpenThreadToken, Win32, kZeroWith<ERROR_ACCESS_DENIED, ERROR_CANT_OPEN_ANONYMOUS>),
    GATED(SetSecurityDescriptorDacl, Win32, kZeroWith<ERROR_INVALID_SECURITY_DESCR>),
    GATED(SetSecurityDescriptorOwner, Win32, kZeroWith<ERROR_INVALID_SECURITY_DESCR>),
    GATED(IsValidSid, Win32, kZeroWith<ERROR_INVALID_SID>),
    LEFT_OUT(EqualSid, kAnswer),
    LEFT_OUT(GetLengthSid, kAnswer),
    LEFT_OUT(GetSidIdentifierAuthority, kAnswer),
    LEFT_OUT(GetSidSubAuthority, kAnswer),
    LEFT_OUT(GetSidSubAuthorityCount, kAnswer),
    // Registry.
    GATED(RegCloseKey, Win32, kStatusAfterWork<ERROR_INVALID_HANDLE>),
    GATED(RegCreateKeyExW, Win32, kStatus<ERROR_ACCESS_DENIED, ERROR_NO_SYSTEM_RESOURCES>),
    GATED(RegDeleteTreeW, Win32, kStatus<ERROR_ACCESS_DENIED, ERROR_KEY_DELETED>),
    GATED(RegGetValueW, Win32, kStatus<ERROR_FILE_NOT_FOUND, ERROR_UNSUPPORTED_TYPE, ERROR_MORE_DATA>),
    GATED(RegOpenKeyExW, Win32, kStatus<ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED>),
    GATED(RegQueryValueExW, Win32, kStatus<ERROR_FILE_NOT_FOUND, ERROR_KEY_DELETED, ERROR_MORE_DATA>),
    GATED(RegSetValueExW, Win32, kStatus<ERROR_ACCESS_DENIED, ERROR_NO_SYSTEM_RESOURCES>),
    // Pipes and files.
    GATED(CancelIoEx, Win32, kZeroAfterWorkWith<ERROR_NOT_FOUND>),
    GATED(ConnectNamedPipe, Win32, kZeroWith<ERROR_NO_DATA, ERROR_PIPE_LISTENING, ERROR_NO_SYSTEM_RESOURCES>),
    GATED(CreateDirectoryW, Win32, kZeroWith<ERROR_ACCESS_DENIED, ERROR_PATH_NOT_FOUND>),
    GATED(CreateFileW, Win32, kInvalidHandleWith<ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION>),
    GATED(CreateNamedPipeW, Win32, kInvalidHandleWith<ERROR_ACCESS_DENIED, ERROR_PIPE_BUSY>),
    GATED(DisconnectNamedPipe, Win32, kZeroAfterWorkWith<ERROR_PIPE_NOT_CONNECTED>),
    GATED(GetFileInformationByHandleEx, Win32, kZeroWith<ERROR_INVALID_PARAMETER, ERROR_ACCESS_DENIED>),
    GATED(GetOverlappedResult, Win32, kZeroWith<ERROR_BROKEN_PIPE, ERROR_OPERATION_ABORTED>),
    GATED(ReadFile, Win32, kZeroWith<ERROR_BROKEN_PIPE, ERROR_NO_SYSTEM_RESOURCES>),
    GATED(WriteFile, Win32, kZeroWith<ERROR_NO_DATA, ERROR_DISK_FULL>),
    // Events, timers, waits, threads.
    GATED(CancelWaitableTimer, Win32, kZeroWith<ERROR_INVALID_HANDLE>),
    GATED(CloseHandle, Win32, kZeroAfterWorkWith<ERROR_INVALID_HANDLE>),
    GATED(CreateEventW, Win32, kZeroWith<ERROR_NO_SYSTEM_RESOURCES, ERROR_NOT_ENOUGH_MEMORY>),
    GATED(CreateThread, Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY, ERROR_NO_SYSTEM_RESOURCES>),
    GATED(CreateWaitableTimerExW, Win32, kZeroWith<ERROR_INVALID_PARAMETER, ERROR_NO_SYSTEM_RESOURCES>),
    GATED(InitializeCriticalSectionAndSpinCount, Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY>),
    GATED(ResetEvent, Win32, kZeroWith<ERROR_INVALID_HANDLE>),
    GATED(SetEvent, Win32, kZeroWith<ERROR_INVALID_HANDLE>),
    GATED(SetWaitableTimer, Win32, kZeroWith<ERROR_INVALID_PARAMETER>),
    GATED(WaitForMultipleObjects, Win32, kWaitFailedWith<ERROR_INVALID_HANDLE, ERROR_NOT_ENOUGH_MEMORY>),
    GATED(WaitForSingleObject, Win32, kWaitFailedWith<ERROR_INVALID_HANDLE, ERROR_NOT_ENOUGH_MEMORY>),
    LEFT_OUT(DeleteCriticalSection, kVoid),
    LEFT_OUT(EnterCriticalSection, "cannot fail for a section that exists"),
    LEFT_OUT(LeaveCriticalSection, kVoid),
    LEFT_OUT(Sleep, kVoid),
    // Modules and processes.
    GATED(DisableThreadLibraryCalls, Win32, kZeroWith<ERROR_INVALID_PARAMETER>),
    GATED(FileTimeToSystemTime, Win32, kZeroWith<ERROR_INVALID_PARAMETER>),
    GATED(FreeLibrary, Win32, kZeroAfterWorkWith<ERROR_INVALID_HANDLE>),
    GATED(GetModuleFileNameW, Win32, kModuleName),
    GATED(GetProcAddress, Win32, kZeroWith<ERROR_PROC_NOT_FOUND>),
    GATED(LoadLibraryExW, Win32, kZeroWith<ERROR_MOD_NOT_FOUND, ERROR_NOT_ENOUGH_MEMORY>),
    GATED(LocalAlloc, Win32, kZeroWith<ERROR_NOT_ENOUGH_MEMORY>),
    GATED(LocalFree, Win32, kLocalFreeFails),
    GATED(ProcessIdToSessionId, Win32, kZeroWith<ERROR_ACCESS_DENIED>),
    LEFT_OUT(GetCurrentProcess, kIdentity),
    LEFT_OUT(GetCurrentProcessId, kIdentity),
    LEFT_OUT(GetCurrentThread, kIdentity),
    LEFT_OUT(GetCurrentThreadId, kIdentity),
    LEFT_OUT(GetLastError, "reads the last error, which always exists"),
    LEFT_OUT(SetLastError, kVoid),
    LEFT_OUT(GetSystemTimeAsFileTime, kClock),
    LEFT_OUT(GetTickCount64, kClock),
    LEFT_OUT(MFGetSystemTime, kClock),
    LEFT_OUT(OutputDebugStringW, kVoid),
    // Media Foundation and COM.
    GATED(CoCreateFreeThreadedMarshaler, Hresult, kStatus<kOutOfMemory>),
    GATED(CoGetApartmentType, Hresult, kStatus<static_cast<DWORD>(CO_E_NOTINITIALIZED), kUnexpected>),
    GATED(MFCreateAttributes, Hresult, kStatus<kOutOfMemory>),
    GATED(MFCreateEventQueue, Hresult, kStatus<kOutOfMemory>),
    GATED(MFCreateMediaType, Hresult, kStatus<kOutOfMemory>),
    GATED(MFCreateMemoryBuffer, Hresult, kStatus<kOutOfMemory>),
    GATED(MFCreatePresentationDescriptor, Hresult, kStatus<kOutOfMemory>),
    GATED(MFCreateSample, Hresult, kStatus<kOutOfMemory>),
    GATED(MFCreateStreamDescriptor, Hresult, kStatus<kOutOfMemory>),
    GATED(MFShutdown, Hresult, kStatusAfterWork<kPlatformNotInitialized>),
    GATED(MFStartup, Hresult, kStatus<0xC00D36E3, kOutOfMemory>),
    GATED(PropVariantClear, Hresult, kStatusAfterWork<static_cast<DWORD>(STG_E_INVALIDPARAMETER)>),
    GATED(StringFromGUID2, None, kNullLastError),
    // The heap, through which every operator new goes.
    GATED(_strdup, None, kNullHeap),
    GATED(calloc, None, kNullHeap),
    GATED(malloc, None, kNullHeap),
    GATED(realloc, None, kNullHeap),
    LEFT_OUT(free, kVoid),
    // The runtime.
    LEFT_OUT(AddVectoredExceptionHandler, kRuntime),
    LEFT_OUT(CreateEventA, kRuntime),
    LEFT_OUT(CreateSemaphoreA, kRuntime),
    LEFT_OUT(DuplicateHandle, kRuntime),
    LEFT_OUT(GetHandleInformation, kRuntime),
    LEFT_OUT(GetModuleHandleW, kRuntime),
    LEFT_OUT(GetProcessAffinityMask, kRuntime),
    LEFT_OUT(GetThreadContext, kRuntime),
    LEFT_OUT(GetThreadPriority, kRuntime),
    LEFT_OUT(InitializeCriticalSection, kRuntime),
    LEFT_OUT(IsDBCSLeadByteEx, kRuntime),
    LEFT_OUT(IsDebuggerPresent, kRuntime),
    LEFT_OUT(LoadLibraryW, kRuntime),
    LEFT_OUT(MultiByteToWideChar, kRuntime),
    LEFT_OUT(OpenProcess, kRuntime),
    LEFT_OUT(OutputDebugStringA, kRuntime),
    LEFT_OUT(ReleaseSemaphore, kRuntime),
    LEFT_OUT(RemoveVectoredExceptionHandler, kRuntime),
    LEFT_OUT(ResumeThread, kRuntime),
    LEFT_OUT(SetProcessAffinityMask, kRuntime),
    LEFT_OUT(SetThreadContext, kRuntime),
    LEFT_OUT(SetThreadPriority, kRuntime),
    LEFT_OUT(SuspendThread, kRuntime),
    LEFT_OUT(TlsAlloc, kRuntime),
    LEFT_OUT(TlsGetValue, kRuntime),
    LEFT_OUT(TlsSetValue, kRuntime),
    LEFT_OUT(TryEnterCriticalSection, kRuntime),
    LEFT_OUT(VirtualProtect, kRuntime),
    LEFT_OUT(VirtualQuery, kRuntime),
    LEFT_OUT(WideCharToMultiByte, kRuntime),
    LEFT_OUT(_beginthreadex, kRuntime),
    LEFT_OUT(_endthreadex, kRuntime),
    LEFT_OUT(_errno, kRuntime),
    LEFT_OUT(_initterm, kRuntime),
    LEFT_OUT(_lock, kRuntime),
    LEFT_OUT(_unlock, kRuntime),
    LEFT_OUT(___lc_codepage_func, kRuntime),
    LEFT_OUT(___mb_cur_max_func, kRuntime),
    LEFT_OUT(__iob_func, kRuntime),
    LEFT_OUT(_close, kRuntime),
    LEFT_OUT(_read, kRuntime),
    LEFT_OUT(_setjmp, kUnwinding),
    LEFT_OUT(longjmp, kUnwinding),
    LEFT_OUT(signal, kRuntime),
    LEFT_OUT(localeconv, kRuntime),
    LEFT_OUT(fprintf, kRuntime),
    LEFT_OUT(fputc, kRuntime),
    LEFT_OUT(fputs, kRuntime),
    LEFT_OUT(fwrite, kRuntime),
    LEFT_OUT(printf, kRuntime),
    LEFT_OUT(vfprintf, kRuntime),
    LEFT_OUT(strerror, kRuntime),
    LEFT_OUT(_ultoa, kRuntime),
    LEFT_OUT(RaiseException, kUnwinding),
    LEFT_OUT(RtlCaptureContext, kUnwinding),
    LEFT_OUT(RtlLookupFunctionEntry, kUnwinding),
    LEFT_OUT(RtlUnwindEx, kUnwinding),
    LEFT_OUT(RtlVirtualUnwind, kUnwinding),
    LEFT_OUT(__C_specific_handler, kUnwinding),
    LEFT_OUT(_amsg_exit, kEnd),
    LEFT_OUT(abort, kEnd),
    LEFT_OUT(exit, kEnd),
    LEFT_OUT(memchr, kPure),
    LEFT_OUT(memcmp, kPure),
    LEFT_OUT(memcpy, kPure),
    LEFT_OUT(memmove, kPure),
    LEFT_OUT(memset, kPure),
    LEFT_OUT(strcmp, kPure),
    LEFT_OUT(strlen, kPure),
    LEFT_OUT(strncmp, kPure),
    LEFT_OUT(wcslen, kPure),
    LEFT_OUT(wcsrchr, kPure),
};

constexpr ImportRule kResolved[] = {
    GATED(MFCreateSensorProfile, Hresult, kStatus<kOutOfMemory>),
    GATED(MFCreateSensorProfileCollection, Hresult, kStatus<kOutOfMemory>),
};

#undef GATED
#undef LEFT_OUT

const ImportRule* Find(std::span<const ImportRule> rules, const char* name) {
    for (const ImportRule& rule : rules) {
        if (std::strcmp(rule.name, name) == 0) {
            return &rule;
        }
    }
    return nullptr;
}

}  // namespace

std::span<const ImportRule> ImportRules() {
    return kImports;
}

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
