#include "delivery/cost_meter.h"

#include <windows.h>

#include <algorithm>
#include <stdexcept>

#include "delivery/role_talk.h"
#include "harness/performance_counter.h"

namespace ravlo::bench {
namespace {

/// Part of a block at its beginning that is not measured: the consumer's clock and the producer's find together.
constexpr std::uint32_t kSettleShare = 12;
/// The last frames are not waited for: where the two clocks meet, one of them may never be shown.
constexpr std::uint32_t kMarginFrames = 2;
/// At both ends of a rest, not counted as rest: what the last frame leaves behind, and the first one of the next block.
constexpr std::int64_t kRestEdgeMs = 100;
/// Samples without anything new after which the producer counts as lost.
constexpr std::uint64_t kLostSamples = 1200;

void SleepUntil(std::int64_t counter, std::int64_t frequency) {
    const std::int64_t left = counter - CounterNow();
    if (left > 0) {
        Sleep(static_cast<DWORD>(left * 1000 / frequency));
    }
}

}  // namespace

CostMeter::CostMeter(const BlockPlan& plan, const std::string& mark)
    : m_plan(plan),
      m_processor(mark, ProcessorTime::Threads::All),
      m_frequency(CounterFrequency()),
      m_period(m_frequency * plan.geometry.rateDenominator / plan.geometry.rateNumerator) {
}

std::uint64_t CostMeter::FirstNumber() const noexcept {
    return m_plan.firstOfBlocks + std::uint64_t{m_block} * 2 * m_plan.turn;
}

bool CostMeter::Delivered(const FrameStamp& stamp) {
    ++m_samples;
    if (stamp.number < FirstNumber() || stamp.number == m_last.number) {
        if (++m_samplesSinceFrame > kLostSamples) {
            throw std::runtime_error("the producer's frames do not come any more");
        }
        return true;
    }
    m_samplesSinceFrame = 0;
    ++m_frames;
    m_last = stamp;
    // A frame may be late, never early: the earliest tells the producer's grid.
    m_gridBegin = std::min(m_gridBegin, stamp.writtenAt - static_cast<std::int64_t>(stamp.number) * m_period);
    Measure(stamp.number);
    return stamp.number < LastNumber();
}

void CostMeter::Measure(std::uint64_t number) {
    if (!m_measuring && !m_measured && number >= FirstNumber() + m_plan.turn / kSettleShare) {
        m_measuring = true;
        m_framesAtBegin = m_frames;
        m_costAtBegin = m_processor.Microseconds();
    } else if (m_measuring && number + kMarginFrames >= LastNumber()) {
        m_measuring = false;
        m_measured = true;
        m_costs.push_back((m_processor.Microseconds() - m_costAtBegin) /
                          static_cast<double>(m_frames - m_framesAtBegin));
    }
}

bool CostMeter::AwaitNextBlock() {
    if (!m_measured) {
        throw std::runtime_error("too few frames of a block came");
    }
    m_measured = false;
    if (++m_block == m_plan.blocks) {
        return false;
    }
    const std::int64_t due = m_gridBegin + static_cast<std::int64_t>(FirstNumber()) * m_period;
    SleepUntil(CounterNow() + kRestEdgeMs * m_frequency / 1000, m_frequency);
    const std::int64_t begin = CounterNow();
    const double cost = m_processor.Microseconds();
    SleepUntil(due - kRestEdgeMs * m_frequency / 1000, m_frequency);
    m_idleCost += m_processor.Microseconds() - cost;
    m_idleSeconds += static_cast<double>(CounterNow() - begin) / static_cast<double>(m_frequency);
    SleepUntil(due, m_frequency);
    return true;
}

void CostMeter::TellAll() const {
    for (const double cost : m_costs) {
        Tell("cost", cost);
    }
    Tell("exact_clock", m_processor.IsExact() ? 1 : 0);
    Tell("idle_us_per_s", m_idleSeconds > 0 ? m_idleCost / m_idleSeconds : 0);
}

}  // namespace ravlo::bench
