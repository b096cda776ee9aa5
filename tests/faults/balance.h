// What a play took and did not give back: handles, blocks of the module and of the platform, threads.
#pragma once

#include "faults/scenario.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace ravlo::faults {

struct Site;

/// What is held at one moment.
struct Holdings {
    std::size_t handles = 0;
    std::size_t platformBlocks = 0;
    std::map<const Site*, std::size_t> moduleBlocks;  ///< by the place that allocated them

    std::size_t ModuleBlocks() const;
};

/// Compares the end of each play with that of the plays without a fault: once while the module is still loaded and
/// idle, and once when it is gone.
class Balance {
public:
    /// With `resident` the module stays loaded from play to play: its plays are compared once, at the end of each.
    explicit Balance(bool resident);
    ~Balance();
    Balance(const Balance&) = delete;
    Balance& operator=(const Balance&) = delete;

    /// Plays without a fault until two in a row end alike, and keeps what they hold. False when they do not settle.
    bool Learn();

    /// One play; what it holds too much, or too little, is added to the outcome's wrongs.
    Outcome Play();

    const Holdings& Loaded() const { return m_loaded; }
    const Holdings& Unloaded() const { return m_unloaded; }

private:
    void Compare(const Holdings& expected, const char* when, Outcome& outcome);

    Holdings m_loaded;
    Holdings m_unloaded;
    const bool m_resident;
    bool m_learning = false;
};

}  // namespace ravlo::faults
