// One life of the camera that reaches everything: load, factory, create, activate, start, live frames, bad headers,
// pattern, demand records, stop, restart, shutdown, registration, unload. It goes on after a failed step as far as that
// makes sense, and says what happened.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ravlo::faults {

/// A call of the client whose result was another than without a fault.
struct Deviation {
    std::string step;
    HRESULT result = S_OK;
    bool duringFault = false;  ///< a staged failure was handed out on this thread while the step ran
    bool repeated = false;     ///< not the first try
};

/// What a play showed.
struct Outcome {
    std::vector<Deviation> deviations;
    std::vector<std::string> wrongs;  ///< what must never be, in words
    bool clientReached = false;       ///< the camera could be created, activated and started
    bool patternServed = false;       ///< the test pattern came, whole and on the grid
    bool liveServed = false;          ///< the picture of the producer came out of the camera
    bool headerRefused = false;
    bool mismatchSeen = false;
    bool gateServed = false;  ///< demand records were read
    bool unloaded = false;
};

/// Plays the life once. Nothing of the module is left afterwards unless something is wrong.
Outcome PlayScenario();

/// What runs while the module is still loaded and idle, at the end of each play; set by the caller of PlayScenario.
extern void (*g_beforeUnload)(Outcome& outcome);

}  // namespace ravlo::faults
