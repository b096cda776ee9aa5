#pragma once

#include <cstdint>

namespace ravlo {

/// Why the authorization anchor can or cannot be used.
enum class AnchorReason : std::uint32_t {
    Ok = 0,
    Absent = 1,
    WrongType = 2,
    TooLarge = 3,
    Malformed = 4,
    ReadFailed = 5,
    NotAUser = 6,
};

/// Who a frame pipe's owner is, as seen by a producer that is about to write into it.
enum class OwnerTrust : std::uint32_t {
    Untrusted = 0,
    LocalService = 1,
    LocalSystem = 2,
    AuthorizedUser = 3,
};

/// The word that the log prints for a reason: "OK", "ABSENT", ...; "UNKNOWN" for a value outside the enumeration.
const char* AnchorReasonWord(AnchorReason reason) noexcept;

/// The name of a SID_NAME_USE value, such as "SidTypeUser"; "SidType(unrecognised)" for any other number.
const char* SidUseName(std::uint32_t use) noexcept;

/// The classification in words for a person, such as "LOCAL SYSTEM (S-1-5-18)"; "UNTRUSTED" for anything unknown.
const char* OwnerTrustWord(OwnerTrust trust) noexcept;

}  // namespace ravlo
