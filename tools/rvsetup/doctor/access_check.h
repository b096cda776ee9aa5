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
    bool hasCondition = false;
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

/// What cannot be judged here is whether an entry's condition is met: NotMet counts only the refusals among entries with
/// one, Met only the permissions. So each errs on the side of a warning, for who may read and for who may write.
enum class Conditions { NotMet, Met };

/// The rights that `list` gives a holder of `token`, as the platform counts them: entries in their order, a denied right
/// stays denied, generic rights stand for the rights of a file.
std::uint32_t GrantedRights(const AccessList& list, const TokenSids& token, Conditions conditions = Conditions::NotMet);

inline bool CanReadAndExecute(const AccessList& list, const TokenSids& token) {
    return (GrantedRights(list, token) & kReadAndExecute) == kReadAndExecute;
}

}  // namespace ravlo
