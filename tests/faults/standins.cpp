#include "faults/standins.h"

#include "faults/crash_report.h"
#include "faults/gates.h"
#include "faults/ledger.h"
#include "faults/sites.h"
#include "faults/staging.h"
#include "faults/trace_capture.h"

#include <aclapi.h>
#include <sddl.h>
#include <mfapi.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

namespace ravlo::faults {
namespace {

// ---- accounts ----

std::atomic<long> g_localBlocks{0};
std::atomic<long> g_failedCloses{0};
std::atomic<long> g_runningThreads{0};
std::atomic<long> g_threadsStarted{0};
std::atomic<long> g_running[5];  // by role

// ---- time ----

std::atomic<LONGLONG> g_advanced{0};  // 100 ns

LONGLONG FastTime() {
    static const LONGLONG frequency = [] {
        LARGE_INTEGER value;
        QueryPerformanceFrequency(&value);
        return value.QuadPart;
    }();
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    const LONGLONG seconds = now.QuadPart / frequency;
    const LONGLONG rest = now.QuadPart % frequency;
    return (seconds * 10'000'000 + rest * 10'000'000 / frequency) * kTimeFactor + g_advanced.load();
}

/// The gate does nothing but write a record every half second, so its time may run faster still.
constexpr int kGateFactor = 8;

int RoleFactor() {
    return CurrentRole() == Role::Gate ? kGateFactor : 1;
}

ULONGLONG WINAPI FastTickCount64() {
    return static_cast<ULONGLONG>(FastTime() / 10'000 * RoleFactor());
}

LONGLONG WINAPI FastSystemTime() {
    return FastTime();
}

DWORD Shortened(DWORD milliseconds) {
    const DWORD factor = static_cast<DWORD>(kTimeFactor * RoleFactor());
    return milliseconds == 0 || milliseconds == INFINITE ? milliseconds : std::max<DWORD>(milliseconds / factor, 1);
}

DWORD WINAPI ShortWaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    return WaitForSingleObject(handle, Shortened(milliseconds));
}

/// The join at the end of a stream keeps its time: what it bounds is real work of other threads.
DWORD WINAPI ShortWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
    return WaitForMultipleObjects(count, handles, all, all ? milliseconds : Shortened(milliseconds));
}

BOOL WINAPI ShortSetWaitableTimer(HANDLE timer, const LARGE_INTEGER* due, LONG period, PTIMERAPCROUTINE routine,
                                  LPVOID argument, BOOL resume) {
    LARGE_INTEGER scaled = *due;
    scaled.QuadPart = due->QuadPart < 0 ? std::min<LONGLONG>(due->QuadPart / kTimeFactor, -1) : due->QuadPart;
    return SetWaitableTimer(timer, &scaled, period, routine, argument, resume);
}

void WINAPI ShortSleep(DWORD milliseconds) {
    Sleep(Shortened(milliseconds));
}

// ---- what is taken and given back ----

void* Counted(void* block, std::size_t bytes) {
    if (block != nullptr) {
        g_moduleHeap.Add(block, bytes, LastHeapSite());
    }
    return block;
}

void* WatchedMalloc(std::size_t bytes) {
    return Counted(std::malloc(bytes), bytes);
}
void* WatchedCalloc(std::size_t count, std::size_t size) {
    return Counted(std::calloc(count, size), count * size);
}
void* WatchedRealloc(void* block, std::size_t bytes) {
    const bool known = block != nullptr && g_moduleHeap.Remove(block);
    void* const moved = std::realloc(block, bytes);
    if (moved == nullptr && known && bytes != 0) {
        g_moduleHeap.Add(block, bytes, LastHeapSite());
    }
    return Counted(moved, bytes);
}
char* WatchedStrdup(const char* text) {
    return static_cast<char*>(Counted(_strdup(text), std::strlen(text) + 1));
}
void WatchedFree(void* block) {
    if (block != nullptr) {
        g_moduleHeap.Remove(block);
    }
    std::free(block);
}

BOOL WINAPI WatchedSidFromText(LPCWSTR text, PSID* sid) {
    const BOOL result = ConvertStringSidToSidW(text, sid);
    g_localBlocks.fetch_add(result ? 1 : 0);
    return result;
}
BOOL WINAPI WatchedTextFromSid(PSID sid, LPWSTR* text) {
    const BOOL result = ConvertSidToStringSidW(sid, text);
    g_localBlocks.fetch_add(result ? 1 : 0);
    return result;
}
DWORD WINAPI WatchedGetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE type, SECURITY_INFORMATION what, PSID* owner,
                                    PSID* group, PACL* dacl, PACL* sacl, PSECURITY_DESCRIPTOR* descriptor) {
    const DWORD result = GetSecurityInfo(handle, type, what, owner, group, dacl, sacl, descriptor);
    g_localBlocks.fetch_add(result == ERROR_SUCCESS && descriptor != nullptr ? 1 : 0);
    return result;
}
HLOCAL WINAPI WatchedLocalAlloc(UINT flags, SIZE_T bytes) {
    const HLOCAL block = LocalAlloc(flags, bytes);
    g_localBlocks.fetch_add(block != nullptr ? 1 : 0);
    return block;
}
HLOCAL WINAPI WatchedLocalFree(HLOCAL block) {
    g_localBlocks.fetch_sub(block != nullptr ? 1 : 0);
    return LocalFree(block);
}

BOOL WINAPI WatchedCloseHandle(HANDLE handle) {
    const BOOL result = CloseHandle(handle);
    g_failedCloses.fetch_add(result ? 0 : 1);
    return result;
}
LSTATUS WINAPI WatchedRegCloseKey(HKEY key) {
    const LSTATUS result = RegCloseKey(key);
    g_failedCloses.fetch_add(result == ERROR_SUCCESS ? 0 : 1);
    return result;
}

// ---- threads ----

struct ThreadStart {
    LPTHREAD_START_ROUTINE routine;
    void* parameter;
    Role role;
    std::atomic<bool> used;
};
ThreadStart g_starts[64];
std::atomic<std::uint32_t> g_routines[2];

/// The reader's routine is the first that a stream starts, the gate's the second; the first play, in which nothing
/// fails, shows which is which.
Role RoleOfRoutine(LPTHREAD_START_ROUTINE routine) {
    const std::uint32_t address = ModuleOffset(reinterpret_cast<void*>(routine));
    constexpr Role kRoles[] = {Role::Reader, Role::Gate};
    for (std::size_t i = 0; i < std::size(kRoles); ++i) {
        std::uint32_t expected = 0;
        if (g_routines[i].compare_exchange_strong(expected, address) || expected == address) {
            return kRoles[i];
        }
    }
    return Role::Other;
}

std::atomic<long>& RunningAs(Role role) {
    return g_running[static_cast<std::size_t>(role)];
}

DWORD WINAPI RunThread(void* parameter) {
    auto& start = *static_cast<ThreadStart*>(parameter);
    const LPTHREAD_START_ROUTINE routine = start.routine;
    void* const argument = start.parameter;
    SetCurrentRole(start.role);
    start.used = false;
    const DWORD result = routine(argument);
    g_runningThreads.fetch_sub(1);
    RunningAs(CurrentRole()).fetch_sub(1);
    return result;
}

HANDLE WINAPI WatchedCreateThread(LPSECURITY_ATTRIBUTES security, SIZE_T stack, LPTHREAD_START_ROUTINE routine,
                                  LPVOID parameter, DWORD flags, LPDWORD number) {
    for (ThreadStart& start : g_starts) {
        if (start.used.exchange(true)) {
            continue;
        }
        start.routine = routine;
        start.parameter = parameter;
        start.role = RoleOfRoutine(routine);
        g_runningThreads.fetch_add(1);
        RunningAs(start.role).fetch_add(1);
        g_threadsStarted.fetch_add(1);
        const HANDLE thread = CreateThread(security, stack, &RunThread, &start, flags, number);
        if (thread == nullptr) {
            g_runningThreads.fetch_sub(1);
            RunningAs(start.role).fetch_sub(1);
            start.used = false;
        }
        return thread;
    }
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

// ---- the rest ----

/// What the module resolves at run time leads through a gate as well.
FARPROC WINAPI WatchedGetProcAddress(HMODULE module, LPCSTR name) {
    const FARPROC function = GetProcAddress(module, name);
    if (function == nullptr) {
        return nullptr;
    }
    // The runtime looks functions up as well that the module also imports; these keep their gates and stand-ins.
    Hook* const hook = FindResolvedRule(name) != nullptr ? HookByName(name) : nullptr;
    if (hook == nullptr) {
        return function;
    }
    hook->target = reinterpret_cast<void*>(function);
    return reinterpret_cast<FARPROC>(GateOf(*hook));
}

void WINAPI QuietDebugString(LPCWSTR) {
}

void WatchedAbort() {
    EndAsCrash("the module called abort");
}

struct StandIn {
    const char* name;
    void* function;
};
template <class F>
void* Address(F* function) {
    return reinterpret_cast<void*>(function);
}

}  // namespace

void* StandInFor(const char* name) {
    static const StandIn standIns[] = {
        {"GetTickCount64", Address(&FastTickCount64)},
        {"MFGetSystemTime", Address(&FastSystemTime)},
        {"WaitForSingleObject", Address(&ShortWaitForSingleObject)},
        {"WaitForMultipleObjects", Address(&ShortWaitForMultipleObjects)},
        {"SetWaitableTimer", Address(&ShortSetWaitableTimer)},
        {"Sleep", Address(&ShortSleep)},
        {"WriteFile", Address(&StagedWriteFile)},
        {"CreateFileW", Address(&StagedCreateFileW)},
        {"CreateNamedPipeW", Address(&StagedCreateNamedPipeW)},
        {"malloc", Address(&WatchedMalloc)},
        {"calloc", Address(&WatchedCalloc)},
        {"realloc", Address(&WatchedRealloc)},
        {"_strdup", Address(&WatchedStrdup)},
        {"free", Address(&WatchedFree)},
        {"ConvertStringSidToSidW", Address(&WatchedSidFromText)},
        {"ConvertSidToStringSidW", Address(&WatchedTextFromSid)},
        {"GetSecurityInfo", Address(&WatchedGetSecurityInfo)},
        {"LocalAlloc", Address(&WatchedLocalAlloc)},
        {"LocalFree", Address(&WatchedLocalFree)},
        {"CloseHandle", Address(&WatchedCloseHandle)},
        {"RegCloseKey", Address(&WatchedRegCloseKey)},
        {"CreateThread", Address(&WatchedCreateThread)},
        {"GetProcAddress", Address(&WatchedGetProcAddress)},
        {"OutputDebugStringW", Address(&QuietDebugString)},
        {"abort", Address(&WatchedAbort)},
    };
    for (const StandIn& standIn : standIns) {
        if (std::strcmp(standIn.name, name) == 0) {
            return standIn.function;
        }
    }
    return nullptr;
}

void AdvanceClock(DWORD milliseconds) {
    g_advanced.fetch_add(LONGLONG{milliseconds} * 10'000);
}

Accounts CurrentAccounts() {
    return {g_localBlocks,
            g_failedCloses,
            g_runningThreads,
            g_threadsStarted,
            RunningAs(Role::Reader) > 0,
            RunningAs(Role::Gate) > 0};
}

void ResetAccounts() {
    for (std::atomic<long>* account : {&g_localBlocks, &g_failedCloses, &g_threadsStarted}) {
        *account = 0;
    }
    ResetStaging();
    ForgetLog();
}

}  // namespace ravlo::faults
