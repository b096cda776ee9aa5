#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/exit_codes.h"
#include "rvhost/output_paths.h"
#include "stream/geometry.h"

namespace ravlo {

/// What the user asked of the host. All text is UTF-8; an empty path means "not wanted".
struct HostOptions {
    std::optional<FrameGeometry> geometry;  ///< the camera's own default without it
    std::string pipeName;                   ///< empty: the camera finds its own name
    std::string dll;                        ///< empty: the registered camera
    std::optional<std::int64_t> lengthMs;   ///< end after this time
    std::optional<std::uint64_t> frames;    ///< end after this many samples
    bool preview = false;
    std::string snapshot;
    std::string pictureDirectory;
    std::string contactSheet;
    std::optional<std::uint64_t> pictureEverySamples;  ///< wins over the time
    std::int64_t pictureEveryMs = 1000;
    std::uint32_t pictureWidth = 320;
    std::string y4m;
    std::string samplesCsv;
    bool json = false;
    bool printUserSid = false;

    bool WantsPictures() const noexcept { return !pictureDirectory.empty() || !contactSheet.empty(); }

    /// Whether every so many samples one is kept in full size, beside the snapshot.
    bool WantsSeries() const noexcept { return !snapshot.empty() && pictureEverySamples.has_value(); }

    /// The files that will be written, wanted or not; the folder of the pictures is not among them.
    std::vector<OutputFile> OutputFiles() const;
};

/// Reads the command line: UTF-8 `arguments`, the program's name first. Nothing when `options` holds what the user
/// wants; otherwise the user has been answered and the program ends with the code returned.
std::optional<ExitCode> ReadOptions(std::vector<std::string> arguments, HostOptions& options);

}  // namespace ravlo
