#pragma once

#include "common/exit_codes.h"

namespace ravlo {

/// One command of a program: declares its options when it is made, and does its work when it was chosen.
class Command {
public:
    Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    /// What the user types.
    virtual const char* Name() const noexcept = 0;

    virtual ExitCode Run() = 0;
};

}  // namespace ravlo
