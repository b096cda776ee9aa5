#pragma once

#include <windows.h>

#include <mfobjects.h>

#include "stream/frame_pool.h"
#include "stream/geometry.h"
#include "stream/pacer.h"

namespace ravlo {

/// A frame repeats as live until it is this old, in ms of GetTickCount64.
inline constexpr std::uint64_t kFreshnessMs = 1000;

/// Builds the sample of a live or pattern decision: one system-memory buffer with the newest frame of `pool`, or with
/// the test pattern when the decision says so or the frame cannot be had whole. The caller owns the sample.
HRESULT BuildSample(const PacingDecision& decision, const FrameGeometry& geometry, FramePool& pool,
                    IMFSample** sample) noexcept;

}  // namespace ravlo
