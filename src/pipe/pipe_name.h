#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/wide_char.h"

namespace ravlo {

/// Characters of the base name \\.\pipe\Ravlo, without the terminator.
inline constexpr std::size_t kPipeBaseLength = 14;
/// Room for every frame-pipe name (base, dot, ten digits) and for everything an explicit name may be read into.
inline constexpr std::size_t kPipeNameCapacity = 34;

/// A frame-pipe name and its terminator.
struct PipeName {
    WideChar text[kPipeNameCapacity]{};

    bool IsEmpty() const noexcept { return text[0] == 0; }
    void Clear() noexcept { text[0] = 0; }
};

/// The one grammar of frame-pipe names: \\.\pipe\Ravlo, alone or followed by "." and a decimal number of at most ten
/// digits without a leading zero. Case-sensitive; null is refused. The number's value is not judged.
bool RvIsRavloPipeName(const WideChar* name) noexcept;

/// \\.\pipe\Ravlo.PID, or the base name alone for process id 0.
PipeName PipeNameForPid(std::uint32_t pid) noexcept;

/// What became of the pipe name that a camera's owner may publish.
enum class ExplicitName { Accepted = 0, Absent = 1, Refused = 2 };

/// Judges a name as it came out of an attribute store: `text` holds kPipeNameCapacity characters, the last of which is
/// forced to a terminator, and `reportedLength` is the length that the store claims. An accepted name lands in `name`.
ExplicitName JudgeExplicitName(WideChar (&text)[kPipeNameCapacity], std::uint32_t reportedLength,
                               PipeName& name) noexcept;

/// How long the two weaker routes to a name wait for the stronger ones, in ms.
inline constexpr std::uint64_t kHostPidGraceMs = 250;
inline constexpr std::uint64_t kSingletonGraceMs = 2000;

/// The way in which a pipe name was found.
enum class PipeNameRoute { NotYet, Explicit, HostPid, Singleton };

/// Chooses the route to a pipe name, `waitedMs` after the first attempt. `hostPid` is 0 when none is known.
PipeNameRoute ChoosePipeNameRoute(ExplicitName explicitName, std::uint32_t hostPid, std::uint64_t waitedMs) noexcept;

}  // namespace ravlo
