#pragma once

#include <cstddef>

#include "pipe/pipe_name.h"
#include "platform/wide_char.h"

namespace ravlo {

/// Room for a frame-pipe name, ".gate" and the terminator.
inline constexpr std::size_t kGateNameCapacity = kPipeNameCapacity + 5;

/// A gate-pipe name and its terminator.
struct GateName {
    WideChar text[kGateNameCapacity]{};
};

/// True for a frame-pipe name followed by ".gate" (case-sensitive). Null is refused.
bool RvIsGatePipeName(const WideChar* name) noexcept;

/// The gate that belongs to a frame pipe.
GateName GateNameFor(const PipeName& framePipe) noexcept;

}  // namespace ravlo
