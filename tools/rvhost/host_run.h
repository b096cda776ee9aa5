#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/exit_codes.h"
#include "common/interrupt.h"
#include "rvhost/camera.h"

namespace ravlo {

/// What the user asked of the host. Paths are UTF-8; an empty one means "not wanted".
struct HostOptions {
    CameraOptions camera;
    std::optional<std::int64_t> lengthMs;  ///< end after this time
    std::optional<std::uint64_t> frames;   ///< end after this many samples
    std::string pictureDirectory;
    std::string contactSheet;
    std::int64_t pictureEveryMs;
    std::uint32_t pictureWidth;
    std::string samplesCsv;
};

/// Activates the camera, pulls samples until the wanted length, the user or a failure ends it, and prints a summary on
/// standard output. The samples are pulled on a thread of its own, so that a camera that delivers nothing holds up
/// nobody; such a thread is left behind, and the process must then end without waiting for it.
ExitCode RunHost(const HostOptions& options, const Interrupt& interrupt);

}  // namespace ravlo
