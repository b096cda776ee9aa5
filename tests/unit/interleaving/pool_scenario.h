#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "unit/interleaving/reader_stepper.h"
#include "unit/interleaving/steps.h"

namespace ravlo::interleaving {

/// What the writer does, one after the other.
struct Action {
    enum class Kind : std::uint8_t { Publish, Refused, Reset } kind = Kind::Publish;
    std::uint64_t stamp = 0;
    int words = kFrameWords;
};

/// What the reader does: Serve is what a request for a sample does, a Peek and, if it found something, a Consume of
/// nothing older.
enum class Call : std::uint8_t { Peek, Consume, Serve };

struct Scenario {
    std::vector<Action> writer;
    std::vector<Call> reader;
    /// Whether the writer publishes so little that three attempts always suffice.
    bool attemptsSuffice = true;
};

/// A promise of the pool that was broken.
enum class Broken : std::uint8_t {
    Torn,        ///< a consumed frame was not, byte for byte, a published one of the required length
    Older,       ///< older than what was promised, or than what was published when the call began
    Unfinished,  ///< not yet written in full when the call ended, or not yet published though the writer stood still
    Forged,      ///< a stamp that no frame has
    Stale,       ///< older than the freshness bound
    Missed,      ///< nothing, though a frame was there and the writer did not get in the way
    Miscounted,  ///< a counter, or an answer to a publish, that does not tell what happened
    Meddled,     ///< a reader changed what the writer uses
    Count
};

inline const char* NameOf(Broken kind) {
    static constexpr const char* kNames[] = {"torn",  "older",  "unfinished", "forged",
                                             "stale", "missed", "miscounted", "meddled"};
    return kNames[static_cast<int>(kind)];
}

/// A step that the writer takes too late, behind the next `past`, or too early, before the last `past`.
struct Move {
    Step step;
    bool later;
    Step past;
};

/// What is broken on purpose.
struct Fault {
    std::vector<Step> lost;            ///< of the writer: no effect
    int lostInFrame = 0;               ///< 0: in every publish
    std::optional<Move> moved;         ///< of the writer, in every publish
    std::optional<Step> unordered;     ///< of the writer, in every publish: releases nothing
    std::optional<FaultyRead> ofRead;  ///< in every attempt
};

struct Outcome {
    std::uint64_t schedules = 0;  ///< walked
    std::uint64_t orders = 0;     ///< of single steps, that those stand for
    std::array<std::uint64_t, static_cast<std::size_t>(Broken::Count)> broken{};
    std::string firstBroken;  ///< the schedule
    std::vector<Step> publishSteps;
    std::vector<Step> readSteps;
    std::int32_t mostTorn = 0;  ///< torn attempts in one schedule
    std::uint64_t empty = 0;    ///< calls that came back without a frame
    std::uint64_t full = 0;     ///< calls that came back with one

    std::uint64_t Of(Broken kind) const { return broken[static_cast<std::size_t>(kind)]; }
};

}  // namespace ravlo::interleaving
