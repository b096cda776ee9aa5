#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rvsetup/doctor/failure_table.h"
#include "rvsetup/trace/log_clock.h"
#include "rvsetup/trace/trace_line.h"

namespace ravlo {

/// What the log tells about one stream of a camera: its reader thread is one, and writes all of these lines.
struct StreamStory {
    std::uint32_t processId = 0;
    std::string process;
    std::string pipeName;  ///< empty until a name was chosen
    bool pipeExists = false;
    bool gateServed = false;
    bool clientConnected = false;
    bool geometryMismatch = false;
    std::string owner;               ///< SID
    std::string admitted;            ///< SID of the user whom the pipe lets in
    std::string live;                ///< such as "1280x720" once frames arrive; empty while there are none
    std::int64_t lastRequestMs = 0;  ///< Unix time when the process was last seen to be asked for samples; 0 for never
};

/// The newest line of one kind of failure.
struct Trouble {
    const KnownFailure* known = nullptr;  ///< nullptr for a failure that the table does not have
    std::string message;
    std::string process;
    std::uint32_t processId = 0;
    std::int64_t whenMs = 0;  ///< Unix time; 0 when unknown
    std::uint64_t count = 0;
};

/// All that the doctor takes from a log.
struct LogStory {
    std::string tracePath;  ///< the last TRACEPATH message
    std::vector<StreamStory> streams;
    std::vector<Trouble> troubles;  ///< newest first; those that were taken back since are left out
    std::uint64_t lines = 0;
};

/// The pipes that streams of the story serve, each once and 64 at most. Names that no camera has are left out: to look for
/// such a one might reach another machine.
std::vector<std::string> ServedPipes(const LogStory& story);

/// Reads a log line by line. Of a log that somebody filled on purpose it keeps a bounded part: the first 1024 streams, and the last
/// 64 kinds of failure that it does not know. Lines of `ownProgram` are passed over.
class LogReader {
public:
    explicit LogReader(std::string ownProgram) : m_ownProgram(std::move(ownProgram)) {}

    void Add(std::string_view line);

    /// `lastWriteMs` is the Unix time at which the file was last written.
    LogStory Finish(std::int64_t lastWriteMs);

private:
    struct Seen {
        Trouble trouble;
        std::int64_t place = -1;
        std::uint64_t line = 0;  ///< its number among the lines
    };

    void AddLine(const LogLine& line);
    void TellStream(const LogLine& line);
    void TellTrouble(const LogLine& line, std::int64_t place);
    void TakeBack(std::string_view message);
    StreamStory* FindOrAddStream(const LogLine& line);
    void MakeRoomForUnknownKind();

    std::string m_ownProgram;
    LogClock m_clock;
    std::int64_t m_place = -1;
    std::uint64_t m_lines = 0;
    std::string m_tracePath;
    std::map<std::pair<std::uint32_t, std::uint32_t>, StreamStory> m_streams;  ///< by process and thread
    std::map<std::uint32_t, std::int64_t> m_requests;                          ///< place of the last one, by process
    std::map<std::string, Seen> m_troubles;                                    ///< by pattern, or by the message
};

}  // namespace ravlo
