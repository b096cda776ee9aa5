#include "platform/sid.h"

#include <sddl.h>

#include "platform/hresult.h"
#include "platform/sid_text.h"
#include "platform/unique_handle.h"

namespace ravlo {

WellKnownSid::WellKnownSid(WELL_KNOWN_SID_TYPE type) noexcept {
    DWORD size = sizeof m_bytes;
    m_built = CreateWellKnownSid(type, nullptr, m_bytes, &size) != FALSE;
}

bool SidsAreEqual(PSID left, PSID right) noexcept {
    return left != nullptr && right != nullptr && IsValidSid(left) && IsValidSid(right) && EqualSid(left, right);
}

DWORD SidFromText(const wchar_t* text, LocalSid& sid) noexcept {
    sid.Reset();
    if (!IsStrictSidText(text)) {
        return ERROR_INVALID_SID;
    }
    SetLastError(ERROR_SUCCESS);
    if (!ConvertStringSidToSidW(text, sid.Put())) {
        return ErrorOr(GetLastError(), ERROR_INVALID_SID);
    }
    if (!IsValidSid(sid.Get())) {
        sid.Reset();
        return ERROR_INVALID_SID;
    }
    return ERROR_SUCCESS;
}

LocalWideString TokenUserText(HANDLE token) noexcept {
    LocalWideString text;
    DWORD size = 0;
    GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    if (size < sizeof(TOKEN_USER)) {
        return text;
    }
    // The size query has failed as it must; what it left is no reason for a later failure.
    SetLastError(ERROR_SUCCESS);
    const LocalMemory<void*> buffer(LocalAlloc(LMEM_FIXED, size));
    if (!buffer || !GetTokenInformation(token, TokenUser, buffer.Get(), size, &size)) {
        return text;
    }
    const auto* user = static_cast<const TOKEN_USER*>(buffer.Get());
    ConvertSidToStringSidW(user->User.Sid, text.Put());
    return text;
}

LocalWideString ProcessUserText() noexcept {
    HANDLE opened = nullptr;
    SetLastError(ERROR_SUCCESS);
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) {
        return {};
    }
    const UniqueObject token(opened);
    return TokenUserText(token.Get());
}

}  // namespace ravlo
