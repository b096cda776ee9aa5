#include "rvsetup/doctor/log_story.h"

#include <algorithm>
#include <cstddef>

#include "common/parse_text.h"
#include "rvsetup/doctor/glob.h"

namespace ravlo {
namespace {

constexpr std::size_t kMostStreams = 1024;
constexpr std::size_t kMostUnknownKinds = 64;
constexpr std::size_t kMostPipes = 64;

/// The text between `before` and `after`; empty when it is not there.
std::string Between(std::string_view text, std::string_view before, std::string_view after) {
    const std::size_t begin = text.find(before);
    if (begin == std::string_view::npos) {
        return {};
    }
    const std::string_view rest = text.substr(begin + before.size());
    return std::string(rest.substr(0, rest.find(after)));
}

/// A failure of no known kind is the same as another when both fail in the same place with the same result.
std::string KindOf(const LogLine& line, const KnownFailure* known) {
    return known != nullptr ? std::string(known->pattern) : line.message;
}

/// "RET label" for a failure "FAIL label hr=...": the answer that takes it back.
bool Answers(std::string_view success, std::string_view failure) {
    const std::size_t end = failure.rfind(" hr=");
    return end != std::string_view::npos && success.starts_with("RET ") && failure.starts_with("FAIL ") &&
           success.substr(4).starts_with(failure.substr(5, end - 4));
}

}  // namespace

std::vector<std::string> ServedPipes(const LogStory& story) {
    std::vector<std::string> names;
    for (const StreamStory& stream : story.streams) {
        if (stream.pipeExists && names.size() < kMostPipes && ParsePipeName(stream.pipeName) &&
            !stream.pipeName.empty() && std::find(names.begin(), names.end(), stream.pipeName) == names.end()) {
            names.push_back(stream.pipeName);
        }
    }
    return names;
}

void LogReader::Add(std::string_view line) {
    for (const LogLine& parsed : ParseLogLines(line)) {
        AddLine(parsed);
    }
}

void LogReader::AddLine(const LogLine& line) {
    ++m_lines;
    if (line.msOfDay) {
        m_place = m_clock.Place(*line.msOfDay);
    }
    if (line.process == m_ownProgram) {
        return;
    }
    const std::string_view tag = TagOfMessage(line.message);
    if (tag == "CALL" || tag == "ATTR") {
        return;  // most of a log, and of no interest here
    }
    if (tag == "TRACEPATH") {
        m_tracePath = line.message;
    } else if (tag == "STM.RequestSample") {
        if (m_requests.size() < kMostStreams || m_requests.contains(line.processId)) {
            m_requests[line.processId] = m_place;
        }
    } else if (tag == "PIPE" || tag == "GATE") {
        TellStream(line);
    }
    TakeBack(line.message);
    TellTrouble(line, m_place);
}

void LogReader::TellStream(const LogLine& line) {
    const std::string_view message = line.message;
    if (message.starts_with("GATE serving ")) {
        const std::string name = Between(message, "GATE serving ", ".gate");
        for (auto at = m_streams.lower_bound({line.processId, 0});
             at != m_streams.end() && at->first.first == line.processId; ++at) {
            at->second.gateServed |= at->second.pipeName == name;
        }
        return;
    }
    if (message.starts_with("PIPE name ")) {
        StreamStory begun;
        begun.processId = line.processId;
        begun.process = line.process;
        begun.pipeName = Between(message, "PIPE name ", " - route");
        if (StreamStory* const stream = FindOrAddStream(line)) {
            *stream = begun;
        }
        m_requests.erase(line.processId);  // those of an earlier stream say nothing about this one
        return;
    }
    const auto found = m_streams.find({line.processId, line.threadId});
    if (found == m_streams.end() && !message.starts_with("PIPE created ")) {
        return;
    }
    StreamStory* const known = FindOrAddStream(line);
    if (known == nullptr) {
        return;
    }
    StreamStory& stream = *known;
    if (message.starts_with("PIPE created ")) {
        stream.processId = line.processId;
        stream.process = line.process;
        stream.pipeName = Between(message, "PIPE created ", " - ");
        stream.admitted = Between(message, "DACL grants ", " and ");
        stream.pipeExists = true;
    } else if (message.starts_with("PIPE owner set to ")) {
        stream.owner = Between(message, "PIPE owner set to ", " - ");
    } else if (message.starts_with("PIPE client connected")) {
        stream.clientConnected = true;
        stream.geometryMismatch = false;
        stream.live.clear();
    } else if (message.starts_with("PIPE delivering live frames ")) {
        stream.live = Between(message, "live frames ", " ");
        stream.geometryMismatch = false;
    } else if (message.starts_with("PIPE geometry mismatch")) {
        stream.geometryMismatch = true;
        stream.live.clear();
    } else if (message.starts_with("PIPE the writer closed") || message.starts_with("PIPE client dropped")) {
        stream.clientConnected = false;
        stream.live.clear();
    } else if (message.starts_with("PIPE reader thread exiting")) {
        m_streams.erase({line.processId, line.threadId});
    }
}

void LogReader::TellTrouble(const LogLine& line, std::int64_t place) {
    const KnownFailure* const known = FindFailure(line.message);
    const bool announced = known != nullptr || line.message.starts_with("FAIL ") || line.message.starts_with("WARN ");
    if (!announced || (known != nullptr && known->isOrdinary)) {
        return;
    }
    if (line.message.starts_with("FAIL PIPE oversized") || line.message.starts_with("FAIL PIPE header rejected")) {
        const auto stream = m_streams.find({line.processId, line.threadId});
        if (stream != m_streams.end()) {
            stream->second.clientConnected = false;
            stream->second.live.clear();
        }
    }
    const std::string kind = KindOf(line, known);
    if (known == nullptr && !m_troubles.contains(kind)) {
        MakeRoomForUnknownKind();
    }
    Seen& seen = m_troubles[kind];
    seen.trouble = {known, line.message, line.process, line.processId, 0, seen.trouble.count + 1};
    seen.place = place;
    seen.line = m_lines;
}

void LogReader::MakeRoomForUnknownKind() {
    std::size_t count = 0;
    auto oldest = m_troubles.end();
    for (auto at = m_troubles.begin(); at != m_troubles.end(); ++at) {
        if (at->second.trouble.known == nullptr) {
            ++count;
            oldest = oldest == m_troubles.end() || at->second.line < oldest->second.line ? at : oldest;
        }
    }
    if (count >= kMostUnknownKinds) {
        m_troubles.erase(oldest);
    }
}

StreamStory* LogReader::FindOrAddStream(const LogLine& line) {
    const std::pair key(line.processId, line.threadId);
    const auto found = m_streams.find(key);
    if (found != m_streams.end()) {
        return &found->second;
    }
    return m_streams.size() < kMostStreams ? &m_streams[key] : nullptr;
}

void LogReader::TakeBack(std::string_view message) {
    if (m_troubles.empty()) {
        return;
    }
    std::erase_if(m_troubles, [message](const auto& entry) {
        const Trouble& trouble = entry.second.trouble;
        return Answers(message, trouble.message) || (trouble.known != nullptr && !trouble.known->recovery.empty() &&
                                                     FitsPattern(message, trouble.known->recovery));
    });
}

LogStory LogReader::Finish(std::int64_t lastWriteMs) {
    LogStory story;
    story.tracePath = m_tracePath;
    story.lines = m_lines;
    for (auto& [key, stream] : m_streams) {
        const auto request = m_requests.find(key.first);
        if (request != m_requests.end() && request->second >= 0) {
            stream.lastRequestMs = m_clock.UnixMs(request->second, lastWriteMs);
        }
        story.streams.push_back(stream);
    }
    std::vector<Seen> troubles;
    for (const auto& [kind, seen] : m_troubles) {
        troubles.push_back(seen);
    }
    std::stable_sort(troubles.begin(), troubles.end(),
                     [](const Seen& left, const Seen& right) { return left.place > right.place; });
    for (Seen& seen : troubles) {
        seen.trouble.whenMs = seen.place < 0 ? 0 : m_clock.UnixMs(seen.place, lastWriteMs);
        story.troubles.push_back(std::move(seen.trouble));
    }
    return story;
}

}  // namespace ravlo
