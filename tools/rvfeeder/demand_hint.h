#pragma once

#include <cstdint>
#include <optional>

#include "common/clock.h"
#include "rvfeeder/demand_policy.h"

namespace ravlo {

/// Notices a camera that takes the connection but is never asked for a picture: as likely as a user who has not opened
/// it yet is one who looks at another camera. Times are steady, in units of 100 ns.
class DemandHint {
public:
    /// A program that opens a camera asks for its first sample within a fraction of this.
    static constexpr std::int64_t kPatience = 5 * kTicksPerSecond;

    /// `connected` is about the frame pipe, `record` as for DemandPolicy. True once, when the camera has been connected
    /// and has told its demand for kPatience and no sample was asked for in all that time.
    bool Observe(std::int64_t now, bool connected, const std::optional<CameraDemand>& record) noexcept;

private:
    std::optional<std::int64_t> m_since;
    std::uint64_t m_requests = 0;  ///< of the record at m_since
    bool m_isSettled = false;      ///< demand has been seen, or the hint was given
};

}  // namespace ravlo
