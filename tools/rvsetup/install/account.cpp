#include "rvsetup/install/account.h"

#include <windows.h>

#include <sddl.h>

#include <array>
#include <vector>

#include "common/wide_text.h"
#include "pipe/anchor_words.h"
#include "pipe/authorized_user.h"
#include "platform/sid.h"

namespace ravlo {
namespace {

constexpr char kHowToFindSid[] = "; \"whoami /user\" shows the SID of an account";

/// The SID in the system's own spelling; empty when it cannot be written.
std::wstring Canonical(PSID sid) {
    LocalWideString text;
    return ConvertSidToStringSidW(sid, text.Put()) ? std::wstring(text.Get()) : std::wstring();
}

std::string NameOrNothing(const std::wstring& account) {
    return account.empty() ? std::string() : " (" + ToUtf8(account) + ")";
}

/// Vets a SID as the camera will: one user, or a SID that the system cannot resolve just now.
std::optional<FrameUser> Vet(const std::wstring& sid, std::string& problem) {
    std::wstring account;
    DWORD use = 0;
    const SidLookup lookup = LookupSidUse(sid, account, use);
    if (IsGroupOrBuiltinSid(sid)) {
        problem = ToUtf8(sid) + NameOrNothing(account) +
                  " is a group: all its members could send frames. Name one user" + kHowToFindSid;
        return std::nullopt;
    }
    if (lookup == SidLookup::NotAUser) {
        problem = ToUtf8(sid) + NameOrNothing(account) + " is no user account but " + SidUseName(use) +
                  ", which the camera refuses. Name one user" + kHowToFindSid;
        return std::nullopt;
    }
    return FrameUser{ToUtf8(sid), ToUtf8(account)};
}

std::optional<FrameUser> FindByName(const std::string& name, std::string& problem) {
    constexpr DWORD kCapacity = 256;
    alignas(DWORD) std::array<BYTE, SECURITY_MAX_SID_SIZE> sid{};
    std::array<wchar_t, kCapacity> domain{};
    auto sidSize = static_cast<DWORD>(sid.size());
    DWORD domainSize = kCapacity;
    SID_NAME_USE use = SidTypeUnknown;
    if (!LookupAccountNameW(nullptr, ToWide(name).c_str(), sid.data(), &sidSize, domain.data(), &domainSize, &use)) {
        const DWORD error = GetLastError();
        problem = "no account \"" + name + "\" was found" +
                  (error == ERROR_NONE_MAPPED ? std::string() : ": " + SystemErrorText(error)) + kHowToFindSid;
        return std::nullopt;
    }
    return Vet(Canonical(sid.data()), problem);
}

}  // namespace

bool IsAdministrator() noexcept {
    const WellKnownSid administrators(WinBuiltinAdministratorsSid);
    BOOL isMember = FALSE;
    return administrators.Get() != nullptr && CheckTokenMembership(nullptr, administrators.Get(), &isMember) &&
           isMember != FALSE;
}

std::optional<FrameUser> FindFrameUser(const std::string& text, std::string& problem) {
    if (text.empty()) {
        problem = std::string("the name of the user is empty") + kHowToFindSid;
        return std::nullopt;
    }
    const std::wstring wide = ToWide(text);
    if (!LooksLikeSidString(wide)) {
        const bool wantsToBeSid =
            (text[0] == 'S' || text[0] == 's') && text.size() > 2 && text[1] == '-' && text[2] >= '0' && text[2] <= '9';
        if (wantsToBeSid) {
            problem = "\"" + text + "\" is no SID: one looks like S-1-5-21-397955417-626881126-188441444-1001" +
                      kHowToFindSid;
            return std::nullopt;
        }
        return FindByName(text, problem);
    }
    LocalSid sid;
    SidFromText(wide.c_str(), sid);
    return Vet(Canonical(sid.Get()), problem);
}

std::optional<FrameUser> FindOwnUser(std::string& problem) {
    std::wstring sid;
    DWORD error = ERROR_SUCCESS;
    if (!GetOwnTokenUserSid(sid, error)) {
        problem = "the user of this console cannot be told: " + SystemErrorText(error) + "; name a user with --user";
        return std::nullopt;
    }
    return Vet(sid, problem);
}

std::optional<FrameUser> FindAnchoredUser(std::string& problem) {
    std::wstring sid;
    const AnchorReason reason = ReadAuthorizedUserAnchor(sid);
    if (reason == AnchorReason::Absent) {
        problem.clear();
        return std::nullopt;
    }
    if (reason != AnchorReason::Ok) {
        problem = std::string("the anchor that is there cannot be used (") + AnchorReasonWord(reason) +
                  "); name the user with --user SID or --me";
        return std::nullopt;
    }
    return Vet(sid, problem);
}

}  // namespace ravlo
