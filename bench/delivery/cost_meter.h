#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "harness/frame_writer.h"
#include "harness/processor_time.h"

namespace ravlo::bench {

/// How the one producer shares its frames out: blocks of `turn` frames, in turns to the product's pipe and the floor's.
struct BlockPlan {
    FrameGeometry geometry;
    std::uint32_t turn;           ///< frames a block
    std::uint32_t blocks;         ///< blocks for each of the two
    std::uint32_t firstOfBlocks;  ///< number of the first frame of the first block: 1, or turn + 1
};

/// Processor time of this process for each frame that it delivers for the first time, block by block. Both roles'
/// consumers hand over the stamp of every sample that they take; the meter says when to rest until the next block. What
/// a block costs at its edges (the consumer comes back from its rest) is left out.
class CostMeter {
public:
    /// `mark` is a word that only this process has in its command line.
    CostMeter(const BlockPlan& plan, const std::string& mark);

    /// One sample was delivered, with this stamp (number 0: no frame). False when the block's last frame was among
    /// them.
    bool Delivered(const FrameStamp& stamp);

    /// Rests until the next block's first frame is due, and then is ready for it. False when there is no block left.
    bool AwaitNextBlock();

    /// Tells "cost" (us a frame) of each block, "exact_clock" (0 where processor times come in steps of a clock tick)
    /// and "idle_us_per_s", the processor time of this process at rest.
    void TellAll() const;

    /// Samples delivered so far, in and out of the measured parts.
    std::uint64_t Samples() const noexcept { return m_samples; }

private:
    std::uint64_t FirstNumber() const noexcept;
    std::uint64_t LastNumber() const noexcept { return FirstNumber() + m_plan.turn - 1; }
    void Measure(std::uint64_t number);

    const BlockPlan m_plan;
    const ProcessorTime m_processor;
    const std::int64_t m_frequency;
    const std::int64_t m_period;  ///< of the producer, in steps of the performance counter
    std::int64_t m_gridBegin = std::numeric_limits<std::int64_t>::max();  ///< when frame 0 would have been due
    std::uint32_t m_block = 0;
    std::uint64_t m_samples = 0;
    std::uint64_t m_samplesSinceFrame = 0;
    FrameStamp m_last{};
    bool m_measuring = false;
    bool m_measured = false;
    std::uint64_t m_frames = 0;  ///< samples that showed a new frame
    std::uint64_t m_framesAtBegin = 0;
    double m_costAtBegin = 0;     ///< us
    std::vector<double> m_costs;  ///< us a frame
    double m_idleCost = 0;        ///< us
    double m_idleSeconds = 0;
};

}  // namespace ravlo::bench
