#pragma once

#include <optional>
#include <string>

#include "stream/geometry.h"

namespace ravlo {

/// Why no camera takes pictures of this size at this rate, as a sentence for the user; nothing when one may. `geometry`
/// must be valid.
std::optional<std::string> WhyBeyondCamera(const FrameGeometry& geometry);

}  // namespace ravlo
