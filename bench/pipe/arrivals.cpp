#include "pipe/arrivals.h"

#include <cstring>
#include <span>
#include <stdexcept>
#include <string>

#include "harness/median.h"
#include "harness/performance_counter.h"

namespace ravlo::bench {
namespace {

/// The frames of one turn, after a check that they are the ones that the plan gives to this pipe in that round.
std::span<const Arrival> TurnOf(const Arrivals& arrivals, const TurnPlan& plan, std::uint32_t pipe,
                                std::uint32_t round) {
    if (arrivals.Count() != plan.FramesPerPipe()) {
        throw std::runtime_error("pipe " + std::to_string(pipe) + " had " + std::to_string(arrivals.Count()) + " of " +
                                 std::to_string(plan.FramesPerPipe()) + " frames");
    }
    const std::span<const Arrival> turn =
        std::span(arrivals.Frames()).subspan(std::size_t{round} * plan.frames, plan.frames);
    std::uint64_t number = std::uint64_t{round * plan.pipes + pipe} * plan.frames;
    for (const Arrival& arrival : turn) {
        if (arrival.stamp.number != ++number) {
            throw std::runtime_error("frame " + std::to_string(arrival.stamp.number) + " arrived where frame " +
                                     std::to_string(number) + " was due");
        }
    }
    return turn;
}

}  // namespace

Arrivals::Arrivals(std::size_t capacity) {
    m_frames.reserve(capacity);
}

void Arrivals::Add(const std::uint8_t* payload) noexcept {
    const std::int64_t now = CounterNow();
    if (m_frames.size() < m_frames.capacity()) {
        Arrival arrival{.stamp = {}, .doneAt = now};
        std::memcpy(&arrival.stamp, payload, sizeof arrival.stamp);
        m_frames.push_back(arrival);
    }
    m_count.fetch_add(1);
}

std::vector<double> FrameTimes(const Arrivals& arrivals, const TurnPlan& plan, std::uint32_t pipe) {
    std::vector<double> times;
    for (std::uint32_t round = 1; round < plan.rounds; ++round) {
        const std::span<const Arrival> turn = TurnOf(arrivals, plan, pipe, round);
        times.push_back(CounterMicroseconds(turn.back().doneAt - turn.front().doneAt) /
                        static_cast<double>(turn.size() - 1));
    }
    return times;
}

std::vector<double> TurnLatencies(const Arrivals& arrivals, const TurnPlan& plan, std::uint32_t pipe) {
    std::vector<double> medians;
    for (std::uint32_t round = 1; round < plan.rounds; ++round) {
        std::vector<double> latencies;
        for (const Arrival& arrival : TurnOf(arrivals, plan, pipe, round)) {
            latencies.push_back(CounterMicroseconds(arrival.doneAt - arrival.stamp.writtenAt));
        }
        medians.push_back(Median(std::move(latencies)));
    }
    return medians;
}

}  // namespace ravlo::bench
