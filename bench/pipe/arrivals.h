#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "harness/frame_writer.h"

namespace ravlo::bench {

/// One frame that has come through a pipe.
struct Arrival {
    FrameStamp stamp;     ///< as its writer wrote it
    std::int64_t doneAt;  ///< performance counter when the frame lay where it belongs
};

/// The frames of one pipe in the order of their arrival. One thread adds; any may count; the frames may be looked at
/// once that thread has added the last of them.
class Arrivals {
public:
    /// Room for `capacity` frames, so that no addition allocates. A frame beyond it is counted and not kept.
    explicit Arrivals(std::size_t capacity);

    /// Takes down the payload's stamp and the present time.
    void Add(const std::uint8_t* payload) noexcept;

    std::size_t Count() const noexcept { return m_count.load(); }
    const std::vector<Arrival>& Frames() const noexcept { return m_frames; }

private:
    std::vector<Arrival> m_frames;
    std::atomic<std::size_t> m_count{0};
};

/// How a writer divides its frames among pipes: `frames` to the first, as many to the second, and so on, `rounds` times
/// around.
struct TurnPlan {
    std::uint32_t pipes;
    std::uint32_t frames;
    std::uint32_t rounds;

    std::uint32_t FramesPerPipe() const noexcept { return frames * rounds; }
    std::uint32_t FramesInAll() const noexcept { return FramesPerPipe() * pipes; }
};

/// For each round but the first, which warms up: microseconds from the arrival of the turn's first frame to that of its
/// last, for one frame. `pipe` counts from 0. Throws when the arrivals are not the plan's frames in their order.
std::vector<double> FrameTimes(const Arrivals& arrivals, const TurnPlan& plan, std::uint32_t pipe);

/// For each round but the first: the median of the microseconds from the first byte written to the frame's arrival.
/// Throws as FrameTimes does.
std::vector<double> TurnLatencies(const Arrivals& arrivals, const TurnPlan& plan, std::uint32_t pipe);

}  // namespace ravlo::bench
