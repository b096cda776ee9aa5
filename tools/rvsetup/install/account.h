#pragma once

#include <optional>
#include <string>

namespace ravlo {

/// The user whose programs may send frames.
struct FrameUser {
    std::string sid;   ///< in the spelling that the anchor holds
    std::string name;  ///< domain\name; empty when the system cannot resolve the SID
};

/// Whether this process may change the machine: a member of BUILTIN\Administrators, and that membership is enabled.
bool IsAdministrator() noexcept;

/// The user that `text` names, a SID or an account name. Nothing when it is neither, or names something that is not one
/// user; `problem` then is the sentence for it.
std::optional<FrameUser> FindFrameUser(const std::string& text, std::string& problem);

/// The account of this process.
std::optional<FrameUser> FindOwnUser(std::string& problem);

/// The user whom the anchor names now. Nothing, and a sentence, when it cannot be used; the sentence is empty when there
/// is no anchor at all.
std::optional<FrameUser> FindAnchoredUser(std::string& problem);

}  // namespace ravlo
