#pragma once

#include <windows.h>

namespace ravlo {

/// A Win32 code as a result: 0 and codes that are negative as signed numbers stay as they are.
constexpr HRESULT HresultFromWin32(DWORD code) noexcept {
    const auto value = static_cast<LONG>(code);
    return value <= 0 ? static_cast<HRESULT>(value) : static_cast<HRESULT>((code & 0xFFFFU) | 0x80070000U);
}

/// `error`, or `fallback` where the failing call left none.
constexpr DWORD ErrorOr(DWORD error, DWORD fallback) noexcept {
    return error != ERROR_SUCCESS ? error : fallback;
}

/// The calling thread's last error as a failure. A call that failed without leaving a code is still a failure:
/// reporting success here would let an object go on without the thing it could not create.
inline HRESULT HresultFromLastError() noexcept {
    const HRESULT hr = HresultFromWin32(GetLastError());
    return FAILED(hr) ? hr : E_FAIL;
}

}  // namespace ravlo
