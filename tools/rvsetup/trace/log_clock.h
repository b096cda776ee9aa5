#pragma once

#include <cstdint>
#include <string_view>

namespace ravlo {

/// Dates the lines of a log, which carry a time of day only. Lines are shown to it in the order of the file; a time that
/// lies before the one in front of it begins another day. A pause of whole days in the log cannot be seen: lines in
/// front of such a pause come out too young. Times are milliseconds.
class LogClock {
public:
    /// Where a line stands, counted from the midnight in front of the first line.
    std::int64_t Place(std::uint32_t msOfDay) noexcept;

    /// The Unix time of a line that Place gave `place`, for a file that was last written at Unix time `lastWriteMs`.
    std::int64_t UnixMs(std::int64_t place, std::int64_t lastWriteMs) const noexcept;

private:
    std::int64_t m_dayBegin = 0;
    std::int64_t m_last = 0;
    bool m_hasLines = false;
};

/// Unix time of the youngest line in the end of a log that another program than `ownProgram` wrote; 0 when there is none.
/// A program that looks into the camera leaves lines of its own, and these must not make a log look alive.
std::int64_t YoungestLineOfOthers(std::string_view tail, std::string_view ownProgram, std::int64_t lastWriteMs);

}  // namespace ravlo
