#pragma once

#include <windows.h>

#include <string>

#include "rvsetup/doctor/facts.h"

namespace ravlo {

/// Whether a frame pipe and its gate are there, without opening them: each takes one client only.
PipeFacts LookForPipe(const std::wstring& name);

/// Opens the gate of the frame pipe `name`, reads one record from it within 2 s, and, unless a producer is on it, opens
/// the frame pipe to learn whose it is. Nothing is written. A signalled `interrupt` (may be null) ends the waiting.
ProbeFacts ProbePipe(const std::wstring& name, HANDLE interrupt);

}  // namespace ravlo
