#pragma once

#include <windows.h>

#include "common/exit_codes.h"
#include "rvclient/options.h"

namespace ravlo {

// What the commands do. Each may block in the system, says on standard error what it has done, and throws ProgramError
// when it cannot. None needs COM to be up.

/// A session camera is kept until `interrupted` is signalled, and is gone on return; the result is
/// ExitCode::Interrupted then.
ExitCode StartCamera(const StartRequest& request, HANDLE interrupted);

ExitCode StopCamera(const CameraIdentity& identity);

ExitCode RemoveCamera(const CameraIdentity& identity);

/// Writes the list to standard output.
ExitCode ListCameras(const ListRequest& request);

}  // namespace ravlo
