#pragma once

#include <cstdint>

namespace ravlo {

/// Writes the calling thread's COM apartment: "`label` tid=... hr=... apt=... aptq=...". The label is "APARTMENT Start"
/// or "APARTMENT RequestSample".
void TraceApartment(const char* label) noexcept;

/// Writes how often the sample-time guard fired, as it stands after `samples` samples.
void TracePacingClamps(std::uint64_t clamps, std::uint64_t samples) noexcept;

/// The same counters in the words of Stop.
void TraceStopClamps(std::uint64_t clamps, std::uint64_t samples) noexcept;

}  // namespace ravlo
