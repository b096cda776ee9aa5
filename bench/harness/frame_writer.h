#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "stream/geometry.h"
#include "support/process.h"

namespace ravlo::bench {

/// A producer in a process of its own. It writes whole frames, header and payload each in one blocking write, and does
/// nothing else: no copy, no picture, no check of the other end.
struct WriterOrders {
    std::vector<std::wstring> pipes;  ///< written to in turns of `turn` frames each
    FrameGeometry geometry;
    bool paced = true;         ///< at the geometry's rate, on a grid; otherwise back to back
    std::uint32_t turn = 1;    ///< frames to one pipe before it is the next one's turn
    std::uint32_t frames = 0;  ///< frames in all; 0: until killed
};

/// Starts it. It waits for each pipe up to 20 s, prints "connected" when it has all of them, waits half a second and
/// begins. After the last frame it prints "late N of M" (paced frames begun more than a quarter of a period behind the
/// grid) and ends with code 0; code 1 when a pipe refuses.
///
/// Each frame carries its number twice, as the header's seq (from 1) and in its payload: see FrameStamp.
test::ChildProcess StartWriter(const WriterOrders& orders);

/// The frames that a writer began too late, from what it has printed. Throws before its last words.
double LateFrames(const std::string& output);

/// What the first bytes of each payload say. The number stands in the last eight bytes of the payload as well, and in
/// every luma row behind the room of the stamp: a picture put together from two frames shows both.
struct FrameStamp {
    std::int64_t writtenAt;  ///< performance counter just before the header's first byte was written
    std::uint64_t number;    ///< from 1 on
};
static_assert(sizeof(FrameStamp) == 16);

/// Puts the stamp's number into every row and the stamp at the beginning.
void StampFrame(std::uint8_t* payload, const FrameGeometry& geometry, const FrameStamp& stamp);

/// The stamp of a payload; number 0 when the picture is none of a writer's, or not one whole frame.
FrameStamp ReadStamp(const std::uint8_t* payload, const FrameGeometry& geometry);

}  // namespace ravlo::bench
