#pragma once

#include <cstdint>
#include <optional>

namespace ravlo {

/// One record of what a camera says about the demand for its pictures.
struct CameraDemand {
    std::uint64_t sequence;  ///< 1 for the first record of a camera, then one more for each
    std::uint64_t idleMs;    ///< since the last sample was asked for
    std::uint64_t requests;  ///< samples asked for since the camera was last started

    friend constexpr bool operator==(const CameraDemand&, const CameraDemand&) = default;
};

/// Decides from the camera's records whether its pictures are wanted. A record counts as a lease: only while one is
/// known may pictures be held back, and whatever looks like new demand ends that at once.
class DemandPolicy {
public:
    enum class Verdict : std::uint8_t {
        Wanted,  ///< somebody looks, or nobody can tell
        Idle,    ///< the camera says that no sample has been asked for in a long time
    };

    /// A camera is idle when its last sample was asked for more than `idleAfterMs` ago; with `always` never.
    DemandPolicy(std::uint64_t idleAfterMs, bool always) noexcept : m_idleAfterMs(idleAfterMs), m_always(always) {}

    /// `record` is the newest one of the lease, nothing when there is none or it has lapsed. The same record may be
    /// given any number of times.
    Verdict Judge(const std::optional<CameraDemand>& record) noexcept;

private:
    Verdict JudgeNew(const CameraDemand& record) const noexcept;

    std::uint64_t m_idleAfterMs;
    bool m_always;
    std::optional<CameraDemand> m_last;
    Verdict m_verdict = Verdict::Wanted;
};

}  // namespace ravlo
