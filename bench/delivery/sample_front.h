#pragma once

#include <mfidl.h>

#include <cstring>

#include "harness/live_camera.h"

namespace ravlo::bench {

/// What the first bytes of a sample say, with no look at the rest: as good as free, where the cost of everything else
/// is measured. The test pattern, which begins with sixteen equal bytes, counts as number 0.
inline FrameStamp StampInFront(IMFSample* sample) {
    const FrameStamp stamp = LookAtSample(sample, [](const BYTE* bytes, DWORD length) {
        FrameStamp front{};
        if (length >= sizeof front) {
            std::memcpy(&front, bytes, sizeof front);
        }
        return front;
    });
    return static_cast<std::uint64_t>(stamp.writtenAt) == stamp.number ? FrameStamp{} : stamp;
}

}  // namespace ravlo::bench
