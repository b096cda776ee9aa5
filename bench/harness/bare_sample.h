#pragma once

#include <mfidl.h>

#include <cstdint>

#include "stream/geometry.h"
#include "support/com.h"

namespace ravlo::bench {

/// The least that building a sample takes: the platform's sample and buffer, one memcpy of a frame of this geometry, the
/// time (100 ns), the duration and the one attribute. Throws on failure.
test::ComPtr<IMFSample> BuildBareSample(const FrameGeometry& geometry, const std::uint8_t* frame, std::int64_t time);

}  // namespace ravlo::bench
