#pragma once

#include <windows.h>

#include <cstdint>

#include "pipe/pipe_name.h"

namespace ravlo {

/// What the activation attributes of the camera say about the frame pipe. Implemented by the stream; called on the
/// reader thread every 20 ms until a name is found, so it must not trace.
class ActivationNames {
public:
    /// Reads the published name and, when that is not accepted, the host's process id; `hostPid` is 0 when none is
    /// known.
    virtual ExplicitName ReadNames(PipeName& name, std::uint32_t& hostPid) noexcept = 0;

protected:
    ~ActivationNames() = default;
};

/// Finds the frame pipe's name by three routes in a fixed order with fixed waits.
class PipeNameResolver {
public:
    explicit PipeNameResolver(ActivationNames& names) noexcept : m_names(names) {}

    /// One attempt: true when `name` is set, which it may have been before. False means not yet.
    bool ResolvePipeName(PipeName& name) noexcept;

    /// Forgets when the wait began, so that the next attempt starts a fresh one.
    void Reset() noexcept { m_waitStart = 0; }

private:
    ActivationNames& m_names;
    std::uint64_t m_waitStart = 0;  ///< ms tick of the first attempt; 0 before it
};

}  // namespace ravlo
