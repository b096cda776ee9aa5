#include "source/identity_lines.h"

#include <windows.h>

#include "platform/sid.h"
#include "platform/unique_handle.h"
#include "trace/trace.h"

namespace ravlo {
namespace {

void TraceProcessUser() noexcept {
    if (const LocalWideString user = ProcessUserText()) {
        RvTrace("WHOAMI process_user=%ls", user.Get());
    }
}

void TraceSession() noexcept {
    DWORD session = 0;
    if (ProcessIdToSessionId(GetCurrentProcessId(), &session)) {
        RvTrace("WHOAMI session_id=%lu", session);
    }
}

void TraceImpersonatedUser() noexcept {
    HANDLE opened = nullptr;
    // Succeeds only while the thread impersonates somebody.
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, &opened)) {
        return;
    }
    const UniqueObject token(opened);
    if (const LocalWideString user = TokenUserText(token.Get())) {
        RvTrace("WHOAMI impersonating_user=%ls", user.Get());
    }
}

}  // namespace

void TraceIdentity() noexcept {
    RvTrace("WHOAMI pid=%lu tid=%lu", GetCurrentProcessId(), GetCurrentThreadId());
    TraceProcessUser();
    TraceSession();
    TraceImpersonatedUser();
}

}  // namespace ravlo
