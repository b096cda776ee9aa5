#include "rvsetup/doctor/access_check.h"

#include <algorithm>

namespace ravlo {
namespace {

constexpr std::uint32_t kAllRights = 0x001F01FF;

/// A generic right and what it means for a file.
struct GenericRight {
    std::uint32_t generic;
    std::uint32_t meaning;
};

constexpr GenericRight kGenericRights[] = {
    {0x80000000, 0x00120089},  // read
    {0x40000000, 0x00120116},  // write
    {0x20000000, 0x001200A0},  // execute
    {0x10000000, kAllRights},
};

std::uint32_t Mapped(std::uint32_t rights) noexcept {
    for (const GenericRight& right : kGenericRights) {
        if ((rights & right.generic) != 0) {
            rights |= right.meaning;
        }
    }
    return rights & kAllRights;
}

}  // namespace

const TokenSids& LocalServiceSids() {
    static const TokenSids sids = {
        "S-1-5-19",      // LOCAL SERVICE itself
        "S-1-1-0",       // Everyone
        "S-1-5-11",      // Authenticated Users
        "S-1-5-32-545",  // BUILTIN\Users
        "S-1-5-6",       // SERVICE
        "S-1-2-0",       // LOCAL
    };
    return sids;
}

std::uint32_t GrantedRights(const AccessList& list, const TokenSids& token, Conditions conditions) {
    if (!list) {
        return kAllRights;
    }
    std::uint32_t granted = 0;
    std::uint32_t denied = 0;
    for (const AccessEntry& entry : *list) {
        if (entry.inheritOnly || std::find(token.begin(), token.end(), entry.sid) == token.end()) {
            continue;
        }
        if (entry.hasCondition && entry.allows != (conditions == Conditions::Met)) {
            continue;
        }
        const std::uint32_t rights = Mapped(entry.rights);
        if (entry.allows) {
            granted |= rights & ~denied;
        } else {
            denied |= rights & ~granted;
        }
    }
    return granted;
}

}  // namespace ravlo
