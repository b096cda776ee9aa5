#pragma once

#include <cstdint>

#include "trace/line_buffer.h"

namespace ravlo {

/// Bytes of the buffer that holds one line, its CR LF and its terminator.
inline constexpr std::uint32_t kLineCapacity = 1024;
/// Capacity while prefix and message are built: what is left over always has room for CR LF.
inline constexpr std::uint32_t kMessageCapacity = 1022;

/// A UTC time of day.
struct TimeOfDay {
    std::uint16_t hour;
    std::uint16_t minute;
    std::uint16_t second;
    std::uint16_t millisecond;
};

/// Appends "[pid:tid process] HH:MM:SS.mmm "; a null time reads "??:??:??.???".
void AppendLinePrefix(RvLineBuffer& line, std::uint32_t processId, std::uint32_t threadId, const char* processName,
                      const TimeOfDay* time) noexcept;

/// Raises the capacity from kMessageCapacity to kLineCapacity and appends CR LF.
void FinishLine(RvLineBuffer& line) noexcept;

}  // namespace ravlo
