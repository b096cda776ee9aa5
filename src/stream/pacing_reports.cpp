#include "stream/pacing_reports.h"

#include <windows.h>

#include <objbase.h>

#include <bit>

#include "trace/trace.h"

namespace ravlo {

void TraceApartment(const char* label) noexcept {
    // What shows when the call leaves them alone, as it does on a thread without an apartment.
    auto type = std::bit_cast<APTTYPE>(-1);
    auto qualifier = std::bit_cast<APTTYPEQUALIFIER>(-1);
    const HRESULT hr = CoGetApartmentType(&type, &qualifier);
    RvTrace("%s tid=%lu hr=0x%08X apt=%d aptq=%d", label, GetCurrentThreadId(), hr, static_cast<int>(type),
            static_cast<int>(qualifier));
}

void TracePacingClamps(std::uint64_t clamps, std::uint64_t samples) noexcept {
    const std::uint64_t permille = clamps * 1000 / samples;
    RvTrace("TS pacing clamp fired %llu of %llu samples (%llu.%llu%%; expected 0)", clamps, samples, permille / 10,
            permille % 10);
}

void TraceStopClamps(std::uint64_t clamps, std::uint64_t samples) noexcept {
    const std::uint64_t permille = clamps * 1000 / samples;
    RvTrace("TS publish-tick clamp fired %llu of %llu samples (%llu.%llu%%; expected 0)", clamps, samples,
            permille / 10, permille % 10);
}

}  // namespace ravlo
