#include "rvhost/y4m_recorder.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

namespace ravlo::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr FrameGeometry kSmall{4, 2, 30, 1};

/// Collects what is written, where the test can still see it when the recorder has taken the stream.
class Collector : public std::streambuf {
public:
    explicit Collector(std::string& text) : m_text(text) {}

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        m_text.append(bytes, static_cast<std::size_t>(count));
        return count;
    }
    int_type overflow(int_type byte) override {
        m_text.push_back(static_cast<char>(byte));
        return byte;
    }

private:
    std::string& m_text;
};

/// A disk that takes nothing until it is let go.
class SlowDisk : public std::streambuf {
public:
    void LetGo() {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

    std::string Text() {
        const std::lock_guard lock(m_mutex);
        return m_text;
    }

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_open; });
        m_text.append(bytes, static_cast<std::size_t>(count));
        return count;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_text;
    bool m_open = false;
};

/// A disk with no room at all.
class FullDisk : public std::streambuf {};

Bytes Frame(std::uint8_t first) {
    Bytes bytes;
    for (std::uint8_t i = 0; i < 12; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(first + i));
    }
    return bytes;
}

TEST(Y4m, TheHeaderSaysSizeRateAndLimitedRange) {
    EXPECT_EQ(Y4mFileHeader({1280, 720, 30000, 1001}),
              "YUV4MPEG2 W1280 H720 F30000:1001 Ip A1:1 C420mpeg2 XCOLORRANGE=LIMITED\n");
}

TEST(Y4m, ChromaIsTakenApartIntoTwoPlanes) {
    Bytes planar{99};
    AppendPlanar420(Frame(0), kSmall, planar);
    EXPECT_EQ(planar, (Bytes{99, 0, 1, 2, 3, 4, 5, 6, 7, 8, 10, 9, 11}));
}

TEST(Y4mRecorder, EveryFrameIsInTheFileInOrder) {
    std::string text;
    Collector collector(text);
    Y4mRecorder recorder(std::make_unique<std::ostream>(&collector), "x.y4m", kSmall, 1'000'000);
    EXPECT_TRUE(recorder.Offer(Frame('A')));
    EXPECT_TRUE(recorder.Offer(Frame('a')));
    recorder.Finish();
    EXPECT_EQ(text,
              "YUV4MPEG2 W4 H2 F30:1 Ip A1:1 C420mpeg2 XCOLORRANGE=LIMITED\n"
              "FRAME\nABCDEFGHIKJL"
              "FRAME\nabcdefghikjl");
    EXPECT_EQ(recorder.Frames(), 2U);
    EXPECT_EQ(recorder.Dropped(), 0U);
    EXPECT_EQ(recorder.Problem(), "");
}

TEST(Y4mRecorder, WhatASlowDiskCannotTakeIsDroppedCountedAndSaid) {
    SlowDisk disk;
    Y4mRecorder recorder(std::make_unique<std::ostream>(&disk), "x.y4m", kSmall, 4 * 12);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(recorder.Offer(Frame(0))) << i;
    }
    EXPECT_FALSE(recorder.Offer(Frame(0)));
    EXPECT_FALSE(recorder.Offer(Frame(0)));
    disk.LetGo();
    recorder.Finish();
    EXPECT_EQ(recorder.Frames(), 4U);
    EXPECT_EQ(recorder.Dropped(), 2U);
    EXPECT_EQ(recorder.Problem(),
              "x.y4m lacks 2 of 6 frames: they came faster than they could be written; choose a faster disk or a "
              "smaller picture");
}

TEST(Y4mRecorder, WithoutTimeTheFileEndsAfterAWholeFrame) {
    SlowDisk disk;
    Y4mRecorder recorder(std::make_unique<std::ostream>(&disk), "x.y4m", kSmall, 3 * 12);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(recorder.Offer(Frame('A'))) << i;
    }
    recorder.DropWaiting();  // all of them: the disk does not even take the header yet
    EXPECT_FALSE(recorder.Offer(Frame('a'))) << "there would be a gap before it";
    disk.LetGo();
    recorder.Finish();
    EXPECT_EQ(disk.Text(), "YUV4MPEG2 W4 H2 F30:1 Ip A1:1 C420mpeg2 XCOLORRANGE=LIMITED\n");
    EXPECT_EQ(recorder.Frames(), 0U);
    EXPECT_EQ(recorder.Dropped(), 4U);
    EXPECT_EQ(recorder.Problem(), "x.y4m lacks the last 4 frames: there was no time to write them");
}

TEST(Y4mRecorder, WantOfSpeedAndWantOfTimeAreToldApart) {
    SlowDisk disk;
    Y4mRecorder recorder(std::make_unique<std::ostream>(&disk), "x.y4m", kSmall, 2 * 12);
    recorder.Offer(Frame(0));
    recorder.Offer(Frame(0));
    EXPECT_FALSE(recorder.Offer(Frame(0)));
    recorder.DropWaiting();
    disk.LetGo();
    recorder.Finish();
    EXPECT_EQ(recorder.Problem(),
              "x.y4m lacks 1 of 3 frames: they came faster than they could be written; choose a faster disk or a "
              "smaller picture; it lacks the last 2 frames: there was no time to write them");
}

TEST(Y4mRecorder, ThereIsAlwaysRoomForTwo) {
    SlowDisk disk;
    Y4mRecorder recorder(std::make_unique<std::ostream>(&disk), "x.y4m", kSmall, 0);
    EXPECT_TRUE(recorder.Offer(Frame(0)));
    EXPECT_TRUE(recorder.Offer(Frame(0)));
    EXPECT_FALSE(recorder.Offer(Frame(0)));
    disk.LetGo();
}

TEST(Y4mRecorder, AFullDiskIsSaid) {
    FullDisk disk;
    Y4mRecorder recorder(std::make_unique<std::ostream>(&disk), "x.y4m", kSmall, 1'000);
    recorder.Offer(Frame(0));
    recorder.Finish();
    EXPECT_EQ(recorder.Problem(), "cannot write x.y4m; is the disk full?");
}

}  // namespace
}  // namespace ravlo::test
