// One run of rvhost without a camera: what becomes of samples, in numbers and in files.
#include "rvhost/output_paths.h"
#include "rvhost/sample_recorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "common/program_error.h"
#include "stream/test_pattern.h"

namespace ravlo::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int64_t kPeriod = 333'333;
constexpr Moment kStart{134'000'000'000'000'000, 5'000'000};

class SampleRecorderTest : public ::testing::Test {
protected:
    SampleRecorderTest() { std::filesystem::create_directories(m_folder); }
    ~SampleRecorderTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    std::string Path(const char* name) const { return (m_folder / name).string(); }

    std::string Content(const char* name) const {
        std::ifstream file(m_folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    Bytes Pattern() const {
        Bytes bytes(FrameBytes(m_geometry));
        EXPECT_EQ(
            PaintTestPattern(0, bytes.data(), bytes.size(), static_cast<std::int32_t>(m_geometry.width), m_geometry),
            PatternResult::Painted);
        return bytes;
    }

    /// Sample number `index`, `late` after its time.
    static ArrivedSample At(const Bytes& bytes, std::int64_t index, std::int64_t late) {
        const std::int64_t time = kStart.sampleClock + index * kPeriod;
        return {bytes, time, {time + late, kStart.steady + index * kPeriod + late}};
    }

    const FrameGeometry m_geometry{16, 2, 30, 1};
    const Bytes m_live = Bytes(48, 77);
    HostOptions m_options;

private:
    std::filesystem::path m_folder = std::filesystem::temp_directory_path() / "ravlo-sample-recorder-test";
};

TEST_F(SampleRecorderTest, CountsAndTimesWhatComes) {
    SampleRecorder recorder(m_options, m_geometry, kStart, 0);
    const Bytes pattern = Pattern();
    EXPECT_EQ(recorder.Take(At(pattern, 0, 100)).kind, PictureKind::Pattern);
    recorder.Take(At(m_live, 1, 100));
    const PreviewFacts facts = recorder.Take(At(m_live, 3, 20'100));
    EXPECT_EQ(facts.kind, PictureKind::Live);
    EXPECT_EQ(facts.lateness, 20'000);
    EXPECT_EQ(facts.samples, 3U);
    EXPECT_EQ(facts.latency, std::nullopt);
    EXPECT_NEAR(facts.fps, 19.6, 0.05);
    const HostReport report = recorder.Report(kStart.steady + 3 * kPeriod + 20'100);
    EXPECT_EQ(report.geometry, m_geometry);
    EXPECT_EQ(report.elapsed, 1'020'099);
    EXPECT_EQ(report.samples, 3U);
    EXPECT_EQ(report.live, 2U);
    EXPECT_EQ(report.pattern, 1U);
    EXPECT_EQ(report.gridErrors, 0U);
    EXPECT_EQ(report.skippedPeriods, 1U);
    EXPECT_EQ(report.lateness.p50, 0);
    EXPECT_EQ(report.lateness.max, 20'000);
    EXPECT_EQ(report.latenessBuckets.front().count, 2U);
    EXPECT_EQ(report.stamps.stamped, 0U);
    EXPECT_FALSE(report.y4m);
    EXPECT_TRUE(recorder.FinishFiles().empty());
}

TEST_F(SampleRecorderTest, StampsOfTheTestCardTellHowLongPicturesWereUnderWay) {
    const FrameGeometry geometry{64, 8, 30, 1};
    SampleRecorder recorder(m_options, geometry, kStart, 0);
    for (std::int64_t i = 0; i < 10; ++i) {
        Bytes picture(FrameBytes(geometry), 100);
        const ArrivedSample sample = At(picture, i, 0);
        const std::int64_t underWay = 150'000 + i * 10'000;
        ASSERT_TRUE(DrawTestCardStamp(picture, geometry,
                                      {static_cast<std::uint32_t>(i + 1), sample.arrival.steady - underWay}));
        EXPECT_EQ(recorder.Take(sample).latency, underWay);
    }
    const HostReport report = recorder.Report(kStart.steady);
    EXPECT_EQ(report.stamps.stamped, 10U);
    EXPECT_EQ(report.stamps.timed, 10U);
    EXPECT_EQ(report.stamps.skipped, 0U);
    EXPECT_EQ(report.stamps.latency.p50, 190'000);
    EXPECT_EQ(report.stamps.latency.max, 240'000);
}

TEST_F(SampleRecorderTest, FilesHoldWhatCame) {
    m_options.y4m = Path("v.y4m");
    m_options.samplesCsv = Path("t.csv");
    m_options.snapshot = Path("last.png");
    m_options.pictureDirectory = Path("shots");
    m_options.pictureEverySamples = 2;
    m_options.pictureWidth = 16;
    SampleRecorder recorder(m_options, m_geometry, kStart, 1'234);
    const Bytes pattern = Pattern();
    for (std::int64_t i = 0; i < 3; ++i) {
        recorder.Take(At(i == 0 ? pattern : m_live, i, 0));
    }
    EXPECT_EQ(recorder.FinishFiles(), std::vector<std::string>());
    EXPECT_EQ(Content("t.csv"),
              "# start_unix_ms=1234\n"
              "seconds,arrival,sample_time,kind,on_grid\n"
              "0.0000,134000000000000000,134000000000000000,pattern,1\n"
              "0.0333,134000000000333333,134000000000333333,live,1\n"
              "0.0667,134000000000666666,134000000000666666,live,1\n");
    const std::string video = Content("v.y4m");
    const std::string live(48, 'M');
    EXPECT_EQ(video.size(), 61U + 3 * 54);
    EXPECT_TRUE(video.ends_with("FRAME\n" + live + "FRAME\n" + live));
    EXPECT_EQ(Content("last.png").substr(1, 3), "PNG");
    EXPECT_EQ(Content("shots/000001-pattern.png").substr(1, 3), "PNG");
    EXPECT_EQ(Content("shots/000003-live.png").substr(1, 3), "PNG");
    EXPECT_FALSE(std::filesystem::exists(Path("shots/000002-live.png")));
    const auto y4m = recorder.Report(0).y4m;
    ASSERT_TRUE(y4m);
    EXPECT_EQ(y4m->frames, 3U);
}

TEST_F(SampleRecorderTest, WhatComesAfterTheEndIsInNoFile) {
    m_options.samplesCsv = Path("t.csv");
    m_options.snapshot = Path("last.png");
    m_options.y4m = Path("v.y4m");
    SampleRecorder recorder(m_options, m_geometry, kStart, 0);
    recorder.Take(At(m_live, 0, 0));
    EXPECT_EQ(recorder.FinishFiles(), std::vector<std::string>());
    const std::string csv = Content("t.csv");
    const std::string video = Content("v.y4m");
    EXPECT_EQ(video.size(), 61U + 54);
    recorder.Take(At(m_live, 1, 0));
    EXPECT_EQ(recorder.FinishFiles(), std::vector<std::string>());
    EXPECT_EQ(Content("t.csv"), csv);
    EXPECT_EQ(Content("v.y4m"), video);
    EXPECT_EQ(recorder.Report(0).samples, 1U);
}

TEST_F(SampleRecorderTest, TheFilesMayBeCompletedWhileSamplesCome) {
    m_options.samplesCsv = Path("t.csv");
    m_options.y4m = Path("v.y4m");
    SampleRecorder recorder(m_options, m_geometry, kStart, 0);
    recorder.Take(At(m_live, 0, 0));
    std::atomic<bool> isOver{false};
    std::thread pulling([&] {
        for (std::int64_t i = 1; !isOver.load(); ++i) {
            recorder.Take(At(m_live, i, 0));
        }
    });
    recorder.Hurry(Haste::Now);
    recorder.FinishFiles();
    isOver.store(true);
    pulling.join();
    const std::string csv = Content("t.csv");
    const auto lines = static_cast<std::uint64_t>(std::count(csv.begin(), csv.end(), '\n'));
    EXPECT_EQ(lines, recorder.Samples() + 2);
    EXPECT_EQ((Content("v.y4m").size() - 61) % 54, 0U);
}

TEST_F(SampleRecorderTest, InHasteASnapshotIsNotCompressed) {
    m_options.snapshot = Path("last.png");
    SampleRecorder recorder(m_options, {320, 180, 30, 1}, kStart, 0);
    recorder.Take(At(Bytes(86'400, 77), 0, 0));
    recorder.Hurry(Haste::Soon);
    EXPECT_TRUE(recorder.FinishFiles().empty());
    EXPECT_GT(Content("last.png").size(), 320U * 180 * 3);
}

TEST_F(SampleRecorderTest, WithEveryTheSnapshotIsASeries) {
    m_options.snapshot = Path("last.png");
    m_options.pictureEverySamples = 2;
    SampleRecorder recorder(m_options, m_geometry, kStart, 0);
    for (std::int64_t i = 0; i < 4; ++i) {
        recorder.Take(At(m_live, i, 0));
    }
    EXPECT_EQ(recorder.FinishFiles(), std::vector<std::string>());
    for (const char* name : {"last.png", "last-000001.png", "last-000003.png"}) {
        EXPECT_EQ(Content(name).substr(1, 3), "PNG") << name;
    }
    EXPECT_FALSE(std::filesystem::exists(Path("last-000002.png")));
}

TEST_F(SampleRecorderTest, ASampleOfAnotherSizeIsRefused) {
    SampleRecorder recorder(m_options, m_geometry, kStart, 0);
    try {
        recorder.Take(At(Bytes(47), 0, 0));
        FAIL() << "nothing was thrown";
    } catch (const ProgramError& error) {
        EXPECT_STREQ(error.what(), "a sample holds 47 bytes instead of 48");
        EXPECT_EQ(error.Code(), ExitCode::Failure);
    }
    EXPECT_EQ(recorder.Samples(), 0U);
}

TEST_F(SampleRecorderTest, ASnapshotThatCannotBeWrittenIsAProblem) {
    m_options.snapshot = Path("gone") + "/last.png";
    EXPECT_TRUE(SampleRecorder(m_options, m_geometry, kStart, 0).FinishFiles().empty()) << "nothing came";
    SampleRecorder recorder(m_options, m_geometry, kStart, 0);
    recorder.Take(At(m_live, 0, 0));
    EXPECT_EQ(recorder.FinishFiles(), std::vector<std::string>{"cannot write " + m_options.snapshot});
}

TEST_F(SampleRecorderTest, FilesAreTriedBeforehandAndNotMade) {
    std::ofstream(Path("old.png")) << "as it was";
    EXPECT_EQ(WhyNotWritable({{"--snapshot", Path("new.png")}, {"--y4m", ""}, {"--contact-sheet", Path("old.png")}}),
              "");
    EXPECT_FALSE(std::filesystem::exists(Path("new.png")));
    EXPECT_EQ(Content("old.png"), "as it was");
    EXPECT_EQ(WhyNotWritable({{"--y4m", Path("gone") + "/v.y4m"}}),
              "cannot write " + Path("gone") + "/v.y4m (--y4m): its folder does not exist; make it first");
    EXPECT_EQ(WhyNotWritable({{"--snapshot", Path("")}}),
              "cannot write " + Path("") + " (--snapshot): it is a folder; name a file in it");
    EXPECT_EQ(WhyNotWritable({{"--snapshot", Path("old.png") + "/x.png"}}),
              "cannot write " + Path("old.png") + "/x.png (--snapshot): its folder does not exist; make it first");
}

TEST_F(SampleRecorderTest, FilesOfTheUserThatEndInPartStay) {
    std::ofstream(Path("new.png.part")) << "mine";
    EXPECT_EQ(WhyNotWritable({{"--snapshot", Path("new.png")}}), "");
    EXPECT_EQ(WhyNoOutputFolder(Path("")), "");
    m_options.snapshot = Path("new.png");
    SampleRecorder recorder(m_options, m_geometry, kStart, 0);
    recorder.Take(At(m_live, 0, 0));
    EXPECT_TRUE(recorder.FinishFiles().empty());
    EXPECT_EQ(Content("new.png").substr(1, 3), "PNG");
    EXPECT_EQ(Content("new.png.part"), "mine");
    EXPECT_FALSE(std::filesystem::exists(Path("new.png.part2")));
}

TEST_F(SampleRecorderTest, NamesOfDevicesAreNoNamesOfFiles) {
    for (const char* name : {"NUL", "con", "Aux.png", "COM1", "lpt9.tar.gz", "nul ", "CONOUT$"}) {
        EXPECT_EQ(WhyNotWritable({{"--y4m", Path(name)}}),
                  "cannot write " + Path(name) + " (--y4m): that name belongs to a device; choose another one");
        EXPECT_EQ(WhyNoOutputFolder(Path(name)),
                  "cannot create the folder " + Path(name) + ": that name belongs to a device; choose another one");
    }
    for (const char* name : {"null", "COM", "COM10", "x.NUL", "communication.png"}) {
        EXPECT_EQ(WhyNotWritable({{"--y4m", Path(name)}}), "") << name;
    }
}

TEST_F(SampleRecorderTest, AFolderIsMadeWithThoseAboveIt) {
    EXPECT_EQ(WhyNoOutputFolder(Path("a") + "/b"), "");
    EXPECT_TRUE(std::filesystem::is_empty(Path("a/b")));
    std::ofstream(Path("file")) << "x";
    const std::string below = Path("file") + "/shots";
    EXPECT_EQ(WhyNoOutputFolder(below),
              "cannot create the folder " + below + ": a part of its path is a file, or its drive takes no folders");
}

}  // namespace
}  // namespace ravlo::test
