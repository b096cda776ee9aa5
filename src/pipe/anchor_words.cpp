#include "pipe/anchor_words.h"

#include <cstddef>
#include <iterator>

namespace ravlo {

const char* AnchorReasonWord(AnchorReason reason) noexcept {
    static constexpr const char* kWords[] = {"OK",        "ABSENT",      "WRONG_TYPE", "TOO_LARGE",
                                             "MALFORMED", "READ_FAILED", "NOT_A_USER"};
    const auto index = static_cast<std::size_t>(reason);
    return index < std::size(kWords) ? kWords[index] : "UNKNOWN";
}

const char* SidUseName(std::uint32_t use) noexcept {
    // SID_NAME_USE counts from 1.
    static constexpr const char* kNames[] = {"SidTypeUser",    "SidTypeGroup",          "SidTypeDomain",
                                             "SidTypeAlias",   "SidTypeWellKnownGroup", "SidTypeDeletedAccount",
                                             "SidTypeInvalid", "SidTypeUnknown",        "SidTypeComputer",
                                             "SidTypeLabel",   "SidTypeLogonSession"};
    return use >= 1 && use <= std::size(kNames) ? kNames[use - 1] : "SidType(unrecognised)";
}

const char* OwnerTrustWord(OwnerTrust trust) noexcept {
    static constexpr const char* kWords[] = {"UNTRUSTED", "LOCAL SERVICE (S-1-5-19) - Frame Server hosted",
                                             "LOCAL SYSTEM (S-1-5-18)",
                                             "the authorized user from HKLM - in-process host"};
    const auto index = static_cast<std::size_t>(trust);
    return index < std::size(kWords) ? kWords[index] : kWords[0];
}

}  // namespace ravlo
