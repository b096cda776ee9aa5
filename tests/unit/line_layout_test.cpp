#include "trace/line_layout.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace ravlo {
namespace {

/// A line in the making, over storage whose last byte tells whether anything ran over.
struct Line {
    char storage[kLineCapacity + 1];
    RvLineBuffer buffer;

    Line() : buffer((std::memset(storage, '~', sizeof(storage)), storage), kMessageCapacity) {}

    std::string Text() const { return {storage, static_cast<std::size_t>(buffer.length)}; }
};

TEST(LineLayout, PrefixNamesProcessThreadAndTime) {
    Line line;
    const TimeOfDay time{14, 3, 7, 45};
    AppendLinePrefix(line.buffer, 4120, 7784, "svchost.exe", &time);
    EXPECT_EQ(line.Text(), "[4120:7784 svchost.exe] 14:03:07.045 ");
}

TEST(LineLayout, AWholeLineEndsWithCarriageReturnAndLineFeed) {
    Line line;
    const TimeOfDay time{14, 3, 7, 45};
    AppendLinePrefix(line.buffer, 4120, 7784, "svchost.exe", &time);
    line.buffer.Append("GATE serving");
    FinishLine(line.buffer);
    EXPECT_EQ(line.Text(), "[4120:7784 svchost.exe] 14:03:07.045 GATE serving\r\n");
}

TEST(LineLayout, TimeFieldsArePaddedWithZeros) {
    Line midnight;
    const TimeOfDay first{0, 0, 0, 0};
    AppendLinePrefix(midnight.buffer, 1, 2, "a.exe", &first);
    EXPECT_EQ(midnight.Text(), "[1:2 a.exe] 00:00:00.000 ");
    Line evening;
    const TimeOfDay last{23, 59, 59, 999};
    AppendLinePrefix(evening.buffer, 1, 2, "a.exe", &last);
    EXPECT_EQ(evening.Text(), "[1:2 a.exe] 23:59:59.999 ");
}

TEST(LineLayout, AnUnknownTimeReadsAsQuestionMarks) {
    Line line;
    AppendLinePrefix(line.buffer, 4120, 7784, "unknown.exe", nullptr);
    EXPECT_EQ(line.Text(), "[4120:7784 unknown.exe] ??:??:??.??? ");
}

TEST(LineLayout, IdentifiersAreUnsignedAndUnpadded) {
    Line line;
    AppendLinePrefix(line.buffer, 4294967295, 0, "a.exe", nullptr);
    EXPECT_EQ(line.Text(), "[4294967295:0 a.exe] ??:??:??.??? ");
}

TEST(LineLayout, AMessageThatFills1021CharactersIsWholeAndTerminated) {
    Line line;
    AppendLinePrefix(line.buffer, 1, 2, "a.exe", nullptr);
    const std::string prefix = "[1:2 a.exe] ??:??:??.??? ";
    const std::string message = std::string(1021 - prefix.size() - 1, 'm') + "e";
    line.buffer.Append(message.c_str());
    FinishLine(line.buffer);
    EXPECT_EQ(line.Text(), prefix + message + "\r\n");
    EXPECT_EQ(line.buffer.length, 1023);
    EXPECT_EQ(line.storage[1023], '\0');
    EXPECT_EQ(line.storage[1024], '~') << "nothing behind the line's buffer is touched";
}

TEST(LineLayout, AMessageOneCharacterShorterLeavesTheLineOneShorter) {
    Line line;
    line.buffer.Append(std::string(1020, 'm').c_str());
    FinishLine(line.buffer);
    EXPECT_EQ(line.Text(), std::string(1020, 'm') + "\r\n");
    EXPECT_EQ(line.buffer.length, 1022);
}

TEST(LineLayout, ALongerMessageIsCutAt1021CharactersWithoutAMark) {
    for (const std::size_t length : {1022U, 1023U, 1024U, 5000U}) {
        Line line;
        line.buffer.Append((std::string(1021, 'm') + std::string(length - 1021, 'X')).c_str());
        FinishLine(line.buffer);
        EXPECT_EQ(line.Text(), std::string(1021, 'm') + "\r\n") << length;
        EXPECT_EQ(line.buffer.length, 1023) << length;
        EXPECT_EQ(line.storage[1024], '~') << length;
    }
}

TEST(LineLayout, APrefixThatFillsTheLineIsCutAndTerminatedToo) {
    Line line;
    const TimeOfDay time{1, 2, 3, 4};
    AppendLinePrefix(line.buffer, 1, 2, std::string(2000, 'p').c_str(), &time);
    line.buffer.Append("message");
    FinishLine(line.buffer);
    EXPECT_EQ(line.Text(), "[1:2 " + std::string(1016, 'p') + "\r\n");
}

TEST(LineLayout, AnEmptyMessageStillMakesALine) {
    Line line;
    FinishLine(line.buffer);
    EXPECT_EQ(line.Text(), "\r\n");
}

}  // namespace
}  // namespace ravlo
