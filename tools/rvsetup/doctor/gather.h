#pragma once

#include <windows.h>

#include <string>

#include "rvsetup/doctor/facts.h"

namespace ravlo {

struct GatherOptions {
    std::string pipe{};          ///< a frame-pipe name; empty: the default one and those in the log
    bool probe = false;          ///< open the pipes
    HANDLE interrupt = nullptr;  ///< an event that ends all reading and waiting; may be null
};

/// Gathers everything that the doctor judges. Creates nothing. Opens no pipe and runs nothing of the module unless it is
/// asked to probe; see WhyNotRun for the rest.
DoctorFacts GatherFacts(const GatherOptions& options);

/// The anchor, who it is, and who runs this program.
AnchorFacts ReadAnchorFacts();

}  // namespace ravlo
