#include "rvsetup/trace/trace_line.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "common/command_line.h"
#include "rvsetup/trace/log_clock.h"
#include "rvsetup/trace/trace_options.h"
#include "rvsetup/trace/trace_print.h"
#include "trace/formatter.h"
#include "trace/format_string.h"
#include "trace/line_layout.h"

namespace ravlo::test {
namespace {

/// A line as the module writes it, by its own formatter and layout.
std::string WrittenLine(std::uint32_t pid, std::uint32_t tid, const char* process, const TimeOfDay* time,
                        const char* format, const TraceSlot* slots = nullptr, std::size_t count = 0) {
    char storage[kLineCapacity];
    RvLineBuffer line(storage, kMessageCapacity);
    AppendLinePrefix(line, pid, tid, process, time);
    RvFormat(line, format, slots, count);
    FinishLine(line);
    return {line.text, static_cast<std::size_t>(line.length)};
}

std::string WithoutEnd(const std::string& line) {
    EXPECT_TRUE(line.ends_with("\r\n"));
    return line.substr(0, line.size() - 2);
}

TEST(TraceLine, WhatTheModuleWritesComesApartAgain) {
    const TimeOfDay time{13, 5, 9, 42};
    const TraceSlot slots[] = {640, 360, 1280, 720};
    const auto lines = ParseLogLines(WithoutEnd(WrittenLine(
        1234, 5678, "svchost.exe", &time, "PIPE geometry mismatch: wire %ux%u, advertised %ux%u - pattern", slots, 4)));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].processId, 1234U);
    EXPECT_EQ(lines[0].threadId, 5678U);
    EXPECT_EQ(lines[0].process, "svchost.exe");
    EXPECT_EQ(lines[0].msOfDay, 47'109'042U);
    EXPECT_EQ(lines[0].message, "PIPE geometry mismatch: wire 640x360, advertised 1280x720 - pattern");
}

TEST(TraceLine, ALineWithoutAClockHasNoTime) {
    const auto lines = ParseLogLines(WithoutEnd(WrittenLine(1, 2, "a.exe", nullptr, "CALL SRC.Stop")));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].msOfDay, std::nullopt);
    EXPECT_EQ(lines[0].message, "CALL SRC.Stop");
}

TEST(TraceLine, TheLongestLineKeepsItsWholeMessage) {
    const TimeOfDay time{0, 0, 0, 0};
    const std::string longMessage(2000, 'x');
    const TraceSlot slots[] = {ToTraceSlot(longMessage.c_str())};
    const std::string written = WrittenLine(7, 8, "host.exe", &time, "PIPE %s", slots, 1);
    EXPECT_EQ(written.size(), 1023U);
    const auto lines = ParseLogLines(WithoutEnd(written));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].message, "PIPE " + std::string(988, 'x'));
}

TEST(TraceLine, ProgramNamesMayHoldBracketsAndBlanks) {
    const TimeOfDay time{1, 2, 3, 4};
    const auto lines =
        ParseLogLines(WithoutEnd(WrittenLine(9, 10, "my [beta] cam.exe", &time, "RET STM.Stop hr=0x00000000")));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].process, "my [beta] cam.exe");
}

TEST(TraceLine, OfTornLinesEachBeginningGivesOne) {
    const auto first =
        ParseLogLines("[1:2 a.exe] 10:00:00.000 PIPE cre[3:4 b.exe] 10:00:00.001 PIPE the listen recovered");
    ASSERT_EQ(first.size(), 2U);
    EXPECT_EQ(first[0].message, "PIPE cre");
    EXPECT_EQ(first[1].processId, 3U);
    EXPECT_EQ(first[1].message, "PIPE the listen recovered");
    // Torn within the prefix: only the second line is there.
    const auto second = ParseLogLines("[1:2 a.exe] 10:0[3:4 b.exe] 10:00:00.001 RET X");
    ASSERT_EQ(second.size(), 1U);
    EXPECT_EQ(second[0].process, "b.exe");
    const auto third = ParseLogLines("t created \\\\.\\pipe\\Ravlo[3:4 b.exe] 10:00:00.001 RET X");
    ASSERT_EQ(third.size(), 1U);
    EXPECT_EQ(third[0].message, "RET X");
}

TEST(TraceLine, WhatIsNoLineGivesNothing) {
    for (const char* text :
         {"", "[", "[]", "hello", "[1:2 a.exe]", "[1:2 a.exe] 10:00:00.000", "[1:2 a.exe] 24:00:00.000 X",
          "[1:2 a.exe] 10:60:00.000 X", "[1:2 a.exe] 10:00:00,000 X", "[-1:2 a.exe] 10:00:00.000 X",
          "[1 2 a.exe] 10:00:00.000 X", "[99999999999:2 a.exe] 10:00:00.000 X", "[[[[[["}) {
        EXPECT_TRUE(ParseLogLines(text).empty()) << text;
    }
}

TEST(TraceLine, WhatWouldSteerATerminalIsMadeHarmless) {
    const auto lines = ParseLogLines(
        "[1:2 a\x1B[2J.exe] 10:00:00.001 PIPE \x07\x7F\xC2\x9B"
        "2J \xC3\xA4 \xC2\xA0 end\xC2");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].process, "a?[2J.exe");
    EXPECT_EQ(lines[0].message, "PIPE ???2J \xC3\xA4 \xC2\xA0 end\xC2");
    const auto torn = ParseLogLines("[1:2 a.exe] 10:00:00.001 \xC2\x9B\xC2\x9B torn[3:4 b.exe] 10:00:00.002 RET");
    ASSERT_EQ(torn.size(), 2U);
    EXPECT_EQ(torn[0].message, "?? torn");
}

TEST(TraceLine, AProgramsNameHasTheLengthOfAFileName) {
    const std::string longest(251, 'n');
    EXPECT_EQ(ParseLogLines("[1:2 " + longest + ".exe] 10:00:00.000 X").size(), 1U);
    EXPECT_TRUE(ParseLogLines("[1:2 " + longest + "n.exe] 10:00:00.000 X").empty());
}

TEST(TraceLine, ALineThatLooksLikeManyBeginningsEndsSoon) {
    std::string line;
    while (line.size() < 416'000) {
        line += "[1:2 ";
    }
    EXPECT_TRUE(ParseLogLines(line + "] 10:00:00.000").empty());
}

TEST(TraceLine, TheTagIsTheFirstWord) {
    EXPECT_EQ(TagOfMessage("PIPE created x"), "PIPE");
    EXPECT_EQ(TagOfMessage("STM.RequestSample observed 5 total calls"), "STM.RequestSample");
    EXPECT_EQ(TagOfMessage("ALONE"), "ALONE");
    EXPECT_EQ(TagOfMessage(""), "");
}

TEST(LineSplitter, LinesArriveInAnyPieces) {
    LineSplitter splitter;
    EXPECT_TRUE(splitter.Add("on").empty());
    EXPECT_EQ(splitter.Add("e\r\ntwo\nthr"), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(splitter.Add("ee\r"), std::vector<std::string>{});
    EXPECT_EQ(splitter.Add("\n\r\n"), (std::vector<std::string>{"three", ""}));
    EXPECT_TRUE(splitter.Add("rest").empty());
    EXPECT_EQ(splitter.TakeRest(), "rest");
    EXPECT_EQ(splitter.TakeRest(), "");
}

TEST(LineSplitter, OfAnEndlessLineTheBeginningIsKept) {
    constexpr std::size_t kLongest = 16 * 1024;
    LineSplitter splitter;
    EXPECT_TRUE(splitter.Add(std::string(kLongest - 1, 'a')).empty());
    EXPECT_TRUE(splitter.Add(std::string(500'000, 'b')).empty());
    const auto lines = splitter.Add("c\r\nnext\r\n");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], std::string(kLongest - 1, 'a') + "b");
    EXPECT_EQ(lines[1], "next");
    EXPECT_EQ(splitter.Add(std::string(kLongest, 'd') + "\r\n"), std::vector<std::string>{std::string(kLongest, 'd')});
    splitter.Add(std::string(kLongest + 5, 'e'));
    EXPECT_EQ(splitter.TakeRest(), std::string(kLongest, 'e'));
}

constexpr std::int64_t kDay = 86'400'000;
constexpr std::uint32_t kHour = 3'600'000;

TEST(LogClock, TheLastLineIsAsOldAsTheFile) {
    LogClock clock;
    const std::int64_t first = clock.Place(10 * kHour);
    const std::int64_t second = clock.Place(11 * kHour);
    const std::int64_t lastWrite = 100 * kDay + 11 * kHour + 5;
    EXPECT_EQ(clock.UnixMs(first, lastWrite), 100 * kDay + 10 * kHour);
    EXPECT_EQ(clock.UnixMs(second, lastWrite), 100 * kDay + 11 * kHour);
}

TEST(LogClock, AnEarlierTimeBeginsAnotherDayButSlightDisorderDoesNot) {
    LogClock clock;
    const std::int64_t late = clock.Place(23 * kHour);
    const std::int64_t early = clock.Place(1 * kHour);
    const std::int64_t disordered = clock.Place(1 * kHour - 500);
    const std::int64_t lastWrite = 200 * kDay + 1 * kHour;
    EXPECT_EQ(clock.UnixMs(late, lastWrite), 199 * kDay + 23 * kHour);
    EXPECT_EQ(clock.UnixMs(early, lastWrite), 200 * kDay + 1 * kHour);
    EXPECT_EQ(clock.UnixMs(disordered, lastWrite), 200 * kDay + 1 * kHour - 500);
}

TEST(LogClock, ALineWrittenBeforeMidnightBelongsToTheDayBefore) {
    LogClock clock;
    const std::int64_t place = clock.Place(24 * kHour - 10);
    EXPECT_EQ(clock.UnixMs(place, 300 * kDay + 20), 300 * kDay - 10);
}

TEST(LogClock, OwnLinesDoNotMakeALogLookAlive) {
    const std::string tail =
        "[1:2 host.exe] 10:00:00.000 PIPE reader thread exiting\r\n"
        "[5:6 rvsetup.exe] 12:00:00.000 ATTACH DLL_PROCESS_ATTACH hInstance=0\r\n";
    EXPECT_EQ(YoungestLineOfOthers(tail, "rvsetup.exe", 50 * kDay + 12 * kHour), 50 * kDay + 10 * kHour);
    EXPECT_EQ(YoungestLineOfOthers("[5:6 rvsetup.exe] 12:00:00.000 X\r\n", "rvsetup.exe", 50 * kDay), 0);
    EXPECT_EQ(YoungestLineOfOthers("", "rvsetup.exe", 50 * kDay), 0);
}

TEST(TracePrint, TheKindOfAMessageDecidesItsColour) {
    EXPECT_EQ(KindOfMessage("FAIL PIPE no usable authorization anchor"), LineKind::Failure);
    EXPECT_EQ(KindOfMessage("WARN PIPE could not resolve"), LineKind::Warning);
    EXPECT_EQ(KindOfMessage("PIPE geometry mismatch: wire 2x2"), LineKind::Warning);
    EXPECT_EQ(KindOfMessage("PIPE client connected - admitted"), LineKind::Pipe);
    EXPECT_EQ(KindOfMessage("GATE serving x"), LineKind::Gate);
    EXPECT_EQ(KindOfMessage("WHOAMI pid=1"), LineKind::Identity);
    EXPECT_EQ(KindOfMessage("CALL SRC.Start"), LineKind::Plain);
}

TEST(TracePrint, LinesKeepTheirLayoutAndGetColourOnlyWhereAsked) {
    const std::string line = "[1:2 a.exe] 10:00:00.007 FAIL PIPE x";
    const TagFilter all({});
    EXPECT_EQ(ShownLine(line, all, {}), line + "\n");
    EXPECT_EQ(ShownLine(line, all, {.colour = true}), "\x1B[91m" + line + "\x1B[0m\n");
    EXPECT_EQ(ShownLine("[1:2 a.exe] 10:00:00.007 CALL x", all, {.colour = true}), "[1:2 a.exe] 10:00:00.007 CALL x\n");
    EXPECT_EQ(ShownLine("torn rest of a line", all, {}), "torn rest of a line\n");
    EXPECT_EQ(ShownLine("torn \x1B[31m", all, {}), "torn ?[31m\n");
    EXPECT_EQ(ShownLine("", all, {}), "");
}

TEST(TracePrint, JsonHasOneObjectALine) {
    const TagFilter all({});
    EXPECT_EQ(ShownLine("[1:2 a \"b\".exe] 23:59:59.999 PIPE x\\y", all, {.json = true}),
              R"({"time":"23:59:59.999","pid":1,"tid":2,"process":"a \"b\".exe","tag":"PIPE","message":"PIPE x\\y"})"
              "\n");
    EXPECT_EQ(ShownLine("[1:2 a.exe] ??:\?\?:\?\?.\?\?\? RET", all, {.json = true}),
              R"({"time":null,"pid":1,"tid":2,"process":"a.exe","tag":"RET","message":"RET"})"
              "\n");
    EXPECT_EQ(ShownLine("torn \xFF", all, {.json = true}), "{\"fragment\":\"torn \xEF\xBF\xBD\"}\n");
}

TEST(TracePrint, TheFilterTakesTagsInAnyCaseAndTheirOperations) {
    const TagFilter filter({"pipe", "Stm"});
    EXPECT_TRUE(filter.Accepts("PIPE created"));
    EXPECT_TRUE(filter.Accepts("STM.RequestSample observed"));
    EXPECT_FALSE(filter.Accepts("FAIL PIPE x"));
    EXPECT_FALSE(filter.Accepts("PIPELINE x"));
    EXPECT_EQ(ShownLine("[1:2 a.exe] 10:00:00.007 GATE x", filter, {}), "");
    EXPECT_EQ(ShownLine("torn rest", filter, {}), "");
}

TEST(TraceOptions, PipesAndDevicesAreNoLogs) {
    for (const char* path :
         {"C:\\a.log", "\\\\server\\share\\a.log", "\\\\?\\C:\\a.log", "\\\\?\\UNC\\server\\share\\a.log"}) {
        EXPECT_EQ(WhyNoLog(path), "") << path;
    }
    for (const char* path : {"\\\\.\\pipe\\Ravlo", "\\\\.\\CON", "\\\\server\\pipe\\Ravlo", "\\\\SERVER\\PIPE",
                             "\\\\?\\UNC\\server\\Pipe\\a", "\\\\?\\pipe\\Ravlo",
                             "\\\\?\\GLOBALROOT\\Device\\NamedPipe\\Ravlo", "", "a.log"}) {
        EXPECT_EQ(WhyNoLog(path), "it is no file") << path;
    }
}

TEST(TraceOptions, OnlyTagsThatTheModuleWritesAreTaken) {
    EXPECT_EQ(WhatIsWrongWith(TraceOptions{.only = {"fail", "GATE", "STM.RequestSample"}}), "");
    EXPECT_EQ(WhatIsWrongWith(TraceOptions{.only = {"PIEP"}}),
              "no line of the log begins with \"PIEP\"; did you mean PIPE?");
    EXPECT_EQ(WhatIsWrongWith(TraceOptions{.only = {"something"}}),
              "no line of the log begins with \"something\"; try FAIL, WARN, PIPE or GATE");
    EXPECT_NE(WhatIsWrongWith(TraceOptions{.only = {""}}), "");
}

}  // namespace
}  // namespace ravlo::test
