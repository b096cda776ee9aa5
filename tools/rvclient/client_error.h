#pragma once

#include <windows.h>

#include <string>

#include "common/program_error.h"
#include "rvclient/options.h"

namespace ravlo {

/// "`what`: the result in words" with the exit code that fits the result.
ProgramError FailedResult(const std::string& what, HRESULT hr);

/// The same for a call about a camera, "the camera "Ravlo Camera" `what`: ...", and what to do where that is known.
ProgramError CameraFailure(const char* what, const CameraIdentity& identity, HRESULT hr);

}  // namespace ravlo
