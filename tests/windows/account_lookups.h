// An account database that answers as a test wants it: a registry of the test's own hides the real one.
#pragma once

#include "support/import_hooks.h"

#include <windows.h>

namespace ravlo::test {

using LookupHook = RAVLO_HOOK(LookupAccountSidW);

/// Every lookup finds CORP\Someone, an account of this use.
inline void AnswerLookups(LookupHook& lookups, SID_NAME_USE use) {
    lookups.Replace([use](LPCWSTR, PSID, LPWSTR name, LPDWORD, LPWSTR domain, LPDWORD, PSID_NAME_USE found) -> BOOL {
        lstrcpyW(name, L"Someone");
        lstrcpyW(domain, L"CORP");
        *found = use;
        return TRUE;
    });
}

}  // namespace ravlo::test
