#include "trace/line_buffer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

namespace ravlo {
namespace {

TEST(LineBuffer, StartsEmptyAndTerminated) {
    char storage[4] = {'x', 'x', 'x', 'x'};
    const RvLineBuffer line(storage, 4);
    EXPECT_EQ(line.length, 0);
    EXPECT_EQ(line.capacity, 4U);
    EXPECT_EQ(line.text, storage);
    EXPECT_STREQ(storage, "");
}

TEST(LineBuffer, IsTerminatedAfterEveryAppend) {
    char storage[8];
    std::memset(storage, 'x', sizeof(storage));
    RvLineBuffer line(storage, 8);
    line.Append('a');
    EXPECT_STREQ(storage, "a");
    line.Append('b');
    EXPECT_STREQ(storage, "ab");
    line.Append("cd");
    EXPECT_STREQ(storage, "abcd");
    EXPECT_EQ(line.length, 4);
    EXPECT_EQ(storage[5], 'x') << "nothing behind the terminator is touched";
}

TEST(LineBuffer, HoldsOneCharacterLessThanItsCapacity) {
    char storage[4];
    RvLineBuffer line(storage, 4);
    line.Append("abc");
    EXPECT_STREQ(storage, "abc");
    EXPECT_EQ(line.length, 3);
}

TEST(LineBuffer, DropsWhatDoesNotFitAndEverythingAfterIt) {
    char storage[6];
    std::memset(storage, 'x', sizeof(storage));
    RvLineBuffer line(storage, 4);
    line.Append("abcdef");
    line.Append('g');
    line.Append("h");
    EXPECT_STREQ(storage, "abc");
    EXPECT_EQ(line.length, 3);
    EXPECT_EQ(storage[4], 'x') << "nothing behind the capacity is touched";
    EXPECT_EQ(storage[5], 'x');
}

TEST(LineBuffer, AcceptsMoreOnceItsCapacityIsRaised) {
    char storage[8];
    RvLineBuffer line(storage, 4);
    line.Append("abcd");
    line.capacity = 6;
    line.Append("efg");
    EXPECT_STREQ(storage, "abcef");
    EXPECT_EQ(line.length, 5);
}

TEST(LineBuffer, OfOneByteHoldsTheTerminatorOnly) {
    char storage[2] = {'x', 'x'};
    RvLineBuffer line(storage, 1);
    line.Append('a');
    EXPECT_EQ(storage[0], '\0');
    EXPECT_EQ(storage[1], 'x');
    EXPECT_EQ(line.length, 0);
}

TEST(LineBuffer, OfNoBytesTouchesNothing) {
    char storage[1] = {'x'};
    RvLineBuffer line(storage, 0);
    line.Append('a');
    line.Append("bc");
    EXPECT_EQ(storage[0], 'x');
    EXPECT_EQ(line.length, 0);
}

TEST(LineBuffer, AppendingTheEmptyStringChangesNothing) {
    char storage[4];
    RvLineBuffer line(storage, 4);
    line.Append('a');
    line.Append("");
    EXPECT_STREQ(storage, "a");
    EXPECT_EQ(line.length, 1);
}

}  // namespace
}  // namespace ravlo
