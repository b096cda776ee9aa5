#pragma once

#include <vector>

#include "rvclient/camera_list.h"

namespace ravlo {

/// The cameras that applications of this user see, in the system's order. COM and Media Foundation must be up. Throws
/// ProgramError when the system does not give the list.
std::vector<ListedCamera> EnumerateCameras();

}  // namespace ravlo
