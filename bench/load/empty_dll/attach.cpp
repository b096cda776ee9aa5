// A DLL with nothing in it that makes the file calls which the module makes when it is loaded and unloaded: those that
// find out whether the log's directory can be trusted, the log opened once to try it, and one open, write and close for
// each line. The lines are ready-made and go to a file of their own, so nothing here is formatted or judged.
#include <windows.h>

#include <aclapi.h>

namespace {

constexpr wchar_t kDirectory[] = L"C:\\ProgramData\\Ravlo";
constexpr wchar_t kFile[] = L"C:\\ProgramData\\Ravlo\\bench-load.log";
constexpr wchar_t kAnchorKey[] = L"SOFTWARE\\Ravlo";
constexpr wchar_t kAnchorValue[] = L"AuthorizedUserSid";

constexpr char kReportLine[] =
    "[00000:00000 bench_load.exe] 00:00:00.000 TRACEPATH candidate=1 path=C:\\ProgramData\\Ravlo\\trace.log "
    "cand1=C:\\ProgramData\\Ravlo gate=OK/gateerr=0/openerr=0 cand2=<dll-directory> gate=NOT-RUN/gateerr=0/openerr=21 "
    "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=21\r\n";
constexpr char kAttachLine[] =
    "[00000:00000 bench_load.exe] 00:00:00.000 ATTACH DLL_PROCESS_ATTACH hInstance=0000000000000000\r\n";
constexpr char kDetachLine[] =
    "[00000:00000 bench_load.exe] 00:00:00.000 ATTACH DLL_PROCESS_DETACH hInstance=0000000000000000\r\n";

HANDLE OpenLog() noexcept {
    return CreateFileW(kFile, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
}

template <DWORD kSize>
void WriteLine(const char (&line)[kSize]) noexcept {
    const HANDLE file = OpenLog();
    DWORD written = 0;
    WriteFile(file, line, kSize - 1, &written, nullptr);
    CloseHandle(file);
}

void LookAtDirectory() noexcept {
    const HANDLE directory =
        CreateFileW(kDirectory, READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    FILE_ATTRIBUTE_TAG_INFO info{};
    GetFileInformationByHandleEx(directory, FileAttributeTagInfo, &info, sizeof info);
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    GetSecurityInfo(directory, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                    &descriptor);
    CloseHandle(directory);
    LocalFree(descriptor);
    wchar_t text[128]{};
    DWORD size = sizeof text;
    RegGetValueW(HKEY_LOCAL_MACHINE, kAnchorKey, kAnchorValue, RRF_RT_REG_SZ, nullptr, text, &size);
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        LookAtDirectory();
        CloseHandle(OpenLog());
        WriteLine(kReportLine);
        WriteLine(kAttachLine);
    } else if (reason == DLL_PROCESS_DETACH) {
        WriteLine(kDetachLine);
    }
    return TRUE;
}
