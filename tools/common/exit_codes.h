#pragma once

namespace ravlo {

/// What the programs tell their caller when they end.
enum class ExitCode : int {
    Ok = 0,
    Failure = 1,
    Usage = 2,
    NotInstalled = 3,
    AccessDenied = 4,
    PeerAbsent = 5,
    UnsupportedSystem = 6,
    Interrupted = 130,
};

}  // namespace ravlo
