#include "rvsetup/trace/trace_print.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <nlohmann/json.hpp>

#include "rvsetup/system/text.h"
#include "rvsetup/trace/trace_line.h"

namespace ravlo {
namespace {

/// "HH:MM:SS.mmm".
std::string TimeText(std::uint32_t msOfDay) {
    const auto two = [](std::uint32_t number) { return std::string(number < 10 ? "0" : "") + std::to_string(number); };
    const std::string fraction = std::to_string(1000 + msOfDay % 1000).substr(1);
    return two(msOfDay / 3'600'000) + ":" + two(msOfDay / 60'000 % 60) + ":" + two(msOfDay / 1000 % 60) + "." +
           fraction;
}

std::string Dump(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string JsonOf(const LogLine& line) {
    nlohmann::ordered_json json;
    json["time"] = line.msOfDay ? nlohmann::ordered_json(TimeText(*line.msOfDay)) : nlohmann::ordered_json();
    json["pid"] = line.processId;
    json["tid"] = line.threadId;
    json["process"] = line.process;
    json["tag"] = TagOfMessage(line.message);
    json["message"] = line.message;
    return Dump(json);
}

const char* ColourOf(LineKind kind) noexcept {
    switch (kind) {
        case LineKind::Failure:
            return "\x1B[91m";
        case LineKind::Warning:
            return "\x1B[93m";
        case LineKind::Pipe:
            return "\x1B[96m";
        case LineKind::Gate:
            return "\x1B[94m";
        case LineKind::Identity:
            return "\x1B[90m";
        default:
            return "";
    }
}

std::string Coloured(const std::string& text, LineKind kind) {
    const std::string colour = ColourOf(kind);
    return colour.empty() ? text : colour + text + "\x1B[0m";
}

}  // namespace

LineKind KindOfMessage(std::string_view message) noexcept {
    static constexpr std::array<std::string_view, 8> kRefusals = {"REFUSED",        "refused",
                                                                  "mismatch",       "dropped by",
                                                                  "client dropped", "ms passed between frames",
                                                                  "GATE could not", "the writer closed the pipe"};
    static constexpr std::array<std::string_view, 5> kIdentity = {"WHOAMI", "ATTACH", "APARTMENT", "TRACEPATH", "ATTR"};
    const std::string_view tag = TagOfMessage(message);
    if (tag == "FAIL") {
        return LineKind::Failure;
    }
    const auto isIn = [message](std::string_view part) { return message.find(part) != std::string_view::npos; };
    if (tag == "WARN" || std::any_of(kRefusals.begin(), kRefusals.end(), isIn)) {
        return LineKind::Warning;
    }
    if (tag == "PIPE") {
        return LineKind::Pipe;
    }
    if (tag == "GATE") {
        return LineKind::Gate;
    }
    return std::find(kIdentity.begin(), kIdentity.end(), tag) != kIdentity.end() ? LineKind::Identity : LineKind::Plain;
}

const std::vector<std::string>& KnownTags() {
    static const std::vector<std::string> tags = {"CALL",      "INITATTR", "RET",    "FAIL",   "WARN",      "PIPE",
                                                  "GATE",      "TS",       "SRC",    "STM",    "APARTMENT", "ATTR",
                                                  "WHOAMI",    "ACTATTR",  "QI-SRC", "QI-STM", "FACTORY",   "DLLGCO",
                                                  "TRACEPATH", "ATTACH",   "PACING"};
    return tags;
}

TagFilter::TagFilter(const std::vector<std::string>& tags) {
    for (const std::string& tag : tags) {
        m_tags.push_back(Uppered(tag));
    }
}

bool TagFilter::Accepts(std::string_view message) const {
    if (m_tags.empty()) {
        return true;
    }
    const std::string tag = Uppered(TagOfMessage(message));
    return std::any_of(m_tags.begin(), m_tags.end(),
                       [&tag](const std::string& wanted) { return tag == wanted || tag.starts_with(wanted + "."); });
}

bool PassesFilter(std::string_view line, const TagFilter& filter) {
    const std::vector<LogLine> parsed = ParseLogLines(line);
    return filter.AcceptsAll() || std::any_of(parsed.begin(), parsed.end(),
                                              [&filter](const LogLine& part) { return filter.Accepts(part.message); });
}

std::string ShownLine(std::string_view line, const TagFilter& filter, const PrintStyle& style) {
    const std::vector<LogLine> parsed = ParseLogLines(line);
    if (parsed.empty()) {
        if (!filter.AcceptsAll() || line.empty()) {
            return {};
        }
        const std::string fragment = Printable(line);
        return style.json ? Dump({{"fragment", fragment}}) : fragment + "\n";
    }
    std::string shown;
    for (const LogLine& part : parsed) {
        if (!filter.Accepts(part.message)) {
            continue;
        }
        if (style.json) {
            shown += JsonOf(part);
            continue;
        }
        const std::string text = "[" + std::to_string(part.processId) + ":" + std::to_string(part.threadId) + " " +
                                 part.process + "] " + (part.msOfDay ? TimeText(*part.msOfDay) : "??:??:??.???") + " " +
                                 part.message;
        shown += (style.colour ? Coloured(text, KindOfMessage(part.message)) : text) + "\n";
    }
    return shown;
}

}  // namespace ravlo
