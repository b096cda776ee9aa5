// What a play brings about by stand-ins so that the module comes to ways that no fault of its own leads to: a directory
// that is missing or refused, a record that stays on its way, a client that comes and goes before it is listened for.
#pragma once

#include <windows.h>

namespace ravlo::faults {

HANDLE WINAPI StagedCreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                DWORD disposition, DWORD flags, HANDLE pattern);
HANDLE WINAPI StagedCreateNamedPipeW(LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD outBytes,
                                     DWORD inBytes, DWORD timeout, LPSECURITY_ATTRIBUTES security);
/// Also keeps what is written to the log.
BOOL WINAPI StagedWriteFile(HANDLE file, const void* data, DWORD length, DWORD* written, OVERLAPPED* overlapped);

/// From now on no demand record has arrived when its write returns, instead of every second one.
void LetRecordsLinger();
/// From now on a client opens and closes each new pipe before its creator can listen.
void LetClientsComeAndGo();
/// From now on the first directory that a load looks at for the log is refused.
void RefuseFirstDirectory();

/// Demand records that the module wrote in this play.
long RecordsWritten();
/// Nothing is staged any more but what every play begins with.
void ResetStaging();

}  // namespace ravlo::faults
