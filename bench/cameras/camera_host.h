#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ravlo::bench {

/// Frames a second that each camera is asked for.
constexpr unsigned kAskedRate = 30;

/// How long one process with cameras is watched.
struct HostOrders {
    unsigned cameras = 1;
    unsigned blocks = 1;  ///< measured one after the other
    unsigned blockMs = 1000;
};

/// What one block of a host process cost and delivered.
struct HostBlock {
    double hostUs = 0;             ///< processor time of the host process
    double serverUs = 0;           ///< processor time of the Wine server meanwhile; 0 where there is none
    double machineUs = 0;          ///< processor time of everything on the machine meanwhile
    double machineCapacityUs = 0;  ///< what all processors together could have given
    double seconds = 0;
    double samples = 0;   ///< delivered by all cameras together
    double patterns = 0;  ///< of these, how many held no producer's frame
    double frames = 0;    ///< samples that showed a frame for the first time
};

/// One run of a host process.
struct HostResult {
    std::vector<HostBlock> blocks;
    std::vector<double> latenessMs;  ///< of every sample delivered in the blocks
    bool exact = false;              ///< processor time by the kernel's account, not in clock ticks
};

/// Runs a host process with so many cameras of 640x360 at 30 Hz, a producer process for each and a thread in the host
/// for each that pulls. Throws when anything of it does not come up.
HostResult RunCameraHost(const HostOrders& orders);

}  // namespace ravlo::bench
