#include "trace/line_layout.h"

#include <iterator>

#include "trace/format_string.h"

namespace ravlo {

void AppendLinePrefix(RvLineBuffer& line, std::uint32_t processId, std::uint32_t threadId, const char* processName,
                      const TimeOfDay* time) noexcept {
    const TraceSlot identity[] = {processId, threadId, ToTraceSlot(processName)};
    RvFormat(line, "[%u:%u %s] ", identity, std::size(identity));
    if (time == nullptr) {
        line.Append("??:??:??.??? ");
        return;
    }
    const TraceSlot fields[] = {time->hour, time->minute, time->second, time->millisecond};
    RvFormat(line, "%02u:%02u:%02u.%03u ", fields, std::size(fields));
}

void FinishLine(RvLineBuffer& line) noexcept {
    line.capacity = kLineCapacity;
    line.Append("\r\n");
}

}  // namespace ravlo
