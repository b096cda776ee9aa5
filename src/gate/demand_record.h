#pragma once

#include <array>
#include <cstdint>

#include "ravlo/wire.h"

namespace ravlo {

/// What the camera tells a producer about the demand for its pictures.
struct DemandRecord {
    std::uint64_t sequence;      ///< 1 for the first record of a gate pipe, then +1 for each
    std::uint64_t idleMs;        ///< since the last sample request; kDemandIdleLimitMs when there was none
    std::uint64_t requestCount;  ///< sample requests since the stream was last started
};

using DemandRecordBytes = std::array<std::uint8_t, kDemandRecordBytes>;

/// Lays a record out as it goes over the wire. An idle time above the limit is cut to it.
void EncodeDemandRecord(const DemandRecord& record, DemandRecordBytes& bytes) noexcept;

/// Reads a record from the wire; false when magic or version are not ours.
bool DecodeDemandRecord(const DemandRecordBytes& bytes, DemandRecord& record) noexcept;

/// The idle time at tick `now` (ms) for a last request at tick `lastRequest`, 0 meaning that there was none.
std::uint64_t DemandIdleMs(std::uint64_t now, std::uint64_t lastRequest) noexcept;

}  // namespace ravlo
