#pragma once

#include <cstdint>
#include <optional>

#include "rvhost/picture_kind.h"

namespace ravlo {

/// What the preview window says about the picture that it shows.
struct PreviewFacts {
    PictureKind kind = PictureKind::Pattern;
    double fps = 0;                       ///< samples a second, lately
    std::int64_t lateness = 0;            ///< of this sample against its grid time, in units of 100 ns
    std::uint64_t samples = 0;            ///< taken so far, this one included
    std::optional<std::int64_t> latency;  ///< from the producer to here, in units of 100 ns, where the picture tells it
};

}  // namespace ravlo
