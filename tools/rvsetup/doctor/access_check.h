#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ravlo {

/// One entry of an access list.
struct AccessEntry {
    bool allows = true;        ///< false: it denies
    bool inheritOnly = false;  ///< meant for what lies below, without effect on the object itself
    std::uint32_t rights = 0;
    std::string sid;  ///< such as S-1-5-32-545
};

/// An access list; nothing stands for an object without one, which is open to everybody.
using AccessList = std::optional<std::vector<AccessEntry>>;

/// What it takes to read a file and to run it: read data, extended attributes and attributes, execute, read the
/// descriptor, synchronize.
inline constexpr std::uint32_t kReadAndExecute = 0x001200A9;

/// The groups of an account, as the platform puts them into its token.
using TokenSids = std::vector<std::string>;

/// LOCAL SERVICE, the account of the camera service of Windows.
const TokenSids& LocalServiceSids();

/// The rights that `list` gives a holder of `token`, as the platform counts them: entries in their order, a denied right
/// stays denied, generic rights stand for the rights of a file.
std::uint32_t GrantedRights(const AccessList& list, const TokenSids& token);

inline bool CanReadAndExecute(const AccessList& list, const TokenSids& token) {
    return (GrantedRights(list, token) & kReadAndExecute) == kReadAndExecute;
}

}  // namespace ravlo
