#pragma once

#include <windows.h>

#include <string>

#include "rvsetup/doctor/facts.h"

namespace ravlo {

struct GatherOptions {
    std::string pipe;            ///< a frame-pipe name; empty: the default one and those in the log
    bool probe = false;          ///< open the pipes
    HANDLE interrupt = nullptr;  ///< an event that ends the waiting for a pipe's answer; may be null
};

/// Gathers everything that the doctor judges. Opens no pipe unless it is asked to probe, and creates nothing; loading
/// the module makes the module write a few lines into its log.
DoctorFacts GatherFacts(const GatherOptions& options);

/// The anchor, who it is, and who runs this program.
AnchorFacts ReadAnchorFacts();

}  // namespace ravlo
