#include "faults/staging.h"

#include "faults/sites.h"
#include "faults/trace_capture.h"

#include <atomic>

namespace ravlo::faults {
namespace {

std::atomic<long> g_records{0};
std::atomic<bool> g_recordsLinger{false};
std::atomic<bool> g_clientsComeAndGo{false};
std::atomic<bool> g_directoryWasMissing{false};
std::atomic<bool> g_directoryIsRefused{false};

bool IsLogLine(const char* text, DWORD length) {
    // Lines of the log begin with a bracket and end with a line end; demand records do neither.
    return length > 2 && text[0] == '[' && text[length - 1] == '\n';
}

}  // namespace

BOOL WINAPI StagedWriteFile(HANDLE file, const void* data, DWORD length, DWORD* written, OVERLAPPED* overlapped) {
    const auto* const text = static_cast<const char*>(data);
    const BOOL result = WriteFile(file, data, length, written, overlapped);
    if (IsLogLine(text, length)) {
        if (result) {
            KeepLogLine(text, length);
        }
        return result;
    }
    const long number = g_records.fetch_add(1);
    if (result && overlapped != nullptr && (number % 2 == 0 || g_recordsLinger)) {
        // It has arrived, but a pipe may answer so all the same.
        SetLastError(ERROR_IO_PENDING);
        return FALSE;
    }
    return result;
}

HANDLE WINAPI StagedCreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                DWORD disposition, DWORD flags, HANDLE pattern) {
    if ((flags & FILE_FLAG_BACKUP_SEMANTICS) != 0 && CurrentRole() == Role::Loader) {
        if (g_directoryIsRefused.exchange(false)) {
            // No play fails a call with this code: a line about the one could be taken for a line about the other.
            SetLastError(ERROR_CANT_ACCESS_FILE);
            return INVALID_HANDLE_VALUE;
        }
        // Once in each play the log's directory seems to be missing, so that the module makes it and looks again.
        if (!g_directoryWasMissing.exchange(true)) {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
    }
    return CreateFileW(name, access, share, security, disposition, flags, pattern);
}

HANDLE WINAPI StagedCreateNamedPipeW(LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outBytes,
                                     DWORD inBytes, DWORD timeout, LPSECURITY_ATTRIBUTES security) {
    const HANDLE pipe = CreateNamedPipeW(name, openMode, pipeMode, instances, outBytes, inBytes, timeout, security);
    if (pipe != INVALID_HANDLE_VALUE && g_clientsComeAndGo) {
        const DWORD access = (openMode & PIPE_ACCESS_INBOUND) != 0 ? GENERIC_WRITE : GENERIC_READ;
        const HANDLE client = CreateFileW(name, access, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (client != INVALID_HANDLE_VALUE) {
            CloseHandle(client);
        }
    }
    return pipe;
}

void LetRecordsLinger() {
    g_recordsLinger = true;
}

void LetClientsComeAndGo() {
    g_clientsComeAndGo = true;
}

void RefuseFirstDirectory() {
    g_directoryIsRefused = true;
}

long RecordsWritten() {
    return g_records;
}

void ResetStaging() {
    g_records = 0;
    for (std::atomic<bool>* staged :
         {&g_recordsLinger, &g_clientsComeAndGo, &g_directoryWasMissing, &g_directoryIsRefused}) {
        *staged = false;
    }
}

}  // namespace ravlo::faults
