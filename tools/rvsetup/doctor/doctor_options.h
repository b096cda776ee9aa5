#pragma once

#include <string>

#include "common/command_line.h"

namespace ravlo {

/// What the user asks of "rvsetup doctor".
struct DoctorOptions {
    bool probe = false;
    bool json = false;
    std::string pipe;
};

void DeclareDoctorOptions(OptionSet& set, DoctorOptions& options);

/// What is wrong with the options, as a sentence; empty when nothing is.
std::string WhatIsWrongWith(const DoctorOptions& options);

}  // namespace ravlo
