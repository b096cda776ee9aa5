// Keeps the module loaded from play to play, warmed by a throw: what the C++ runtime allocates once for exceptions then
// belongs to the start and not to a play. And measures what a module with that runtime leaves behind when it is gone.
#pragma once

#include <windows.h>

#include <cstddef>

namespace ravlo::faults {

/// What stays when a module that threw is unloaded.
struct Remains {
    std::size_t handles = 0;
    std::size_t blocks = 0;
};

/// Loads, exercises and unloads the control module. Throws std::runtime_error when it is missing.
Remains MeasureControl();

/// The module under test, loaded and warmed, for the life of the object.
class Residence {
public:
    /// Throws std::runtime_error when the module does not load, or does not report the staged lack of memory.
    Residence();
    ~Residence();
    Residence(const Residence&) = delete;
    Residence& operator=(const Residence&) = delete;

    /// Unloads the module and tells what stays.
    Remains Leave();

private:
    HMODULE m_module = nullptr;
    std::size_t m_handlesBefore = 0;
};

}  // namespace ravlo::faults
