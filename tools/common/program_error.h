#pragma once

#include <stdexcept>
#include <string>

#include "common/exit_codes.h"

namespace ravlo {

/// Why a program cannot go on: a sentence for the user and the code to end with.
class ProgramError : public std::runtime_error {
public:
    ProgramError(ExitCode code, const std::string& sentence) : std::runtime_error(sentence), m_code(code) {}
    ExitCode Code() const noexcept { return m_code; }

private:
    ExitCode m_code;
};

}  // namespace ravlo
