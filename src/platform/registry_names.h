#pragma once

namespace ravlo {

/// The authorization anchor: the one user, besides LOCAL SYSTEM, that may write into the frame pipe. Under
/// HKEY_LOCAL_MACHINE, so that only an administrator can name that user.
inline constexpr wchar_t kAnchorKeyName[] = L"SOFTWARE\\Ravlo";
inline constexpr wchar_t kAnchorValueName[] = L"AuthorizedUserSid";

/// What the camera is called, in the class store and towards the pipeline.
inline constexpr wchar_t kFriendlyName[] = L"Ravlo Source";

}  // namespace ravlo
