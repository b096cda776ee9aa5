#pragma once

#include <windows.h>

namespace ravlo {

/// True for the three errors with which a pipe says that the other end is gone.
constexpr bool IsPeerGone(DWORD error) noexcept {
    return error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED;
}

/// Cancels one overlapped operation and waits until it has ended, so that the kernel writes nothing into its OVERLAPPED
/// or buffer afterwards. Returns the bytes that were transferred all the same.
inline DWORD CancelAndWait(HANDLE file, OVERLAPPED& operation) noexcept {
    DWORD transferred = 0;
    CancelIoEx(file, &operation);
    GetOverlappedResult(file, &operation, &transferred, TRUE);
    return transferred;
}

}  // namespace ravlo
