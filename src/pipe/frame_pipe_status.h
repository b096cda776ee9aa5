#pragma once

#include <atomic>
#include <string>

#include "pipe/pipe_name.h"

namespace ravlo {

/// What the demand gate may know of the frame pipe. The reader thread alone writes it; name and user are complete
/// before `created` is set and do not change until the teardown, which runs after both threads have ended.
struct FramePipeStatus {
    std::atomic<bool> created{false};
    PipeName name;
    std::wstring authorizedUserSid;  ///< the admitted user, from the anchor
};

}  // namespace ravlo
