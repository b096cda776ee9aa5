// rvfeeder.exe as a user runs it, with a gate that says whether anybody watches.
#include "tools/feeder_stage.h"

#include <gtest/gtest.h>

#include <optional>

namespace ravlo::test {
namespace {

constexpr std::int64_t kMs = 10'000;

class RvFeederDemand : public RvFeeder {};

TEST_F(RvFeederDemand, AFilmWaitsWhileNobodyWatchesAndGoesOnAtTheNextPicture) {
    FrameTaker camera;
    Gate gate(camera.Name(), 12);
    ChildProcess feeder =
        StartProgram(L"rvfeeder", {m_folder.Write(L"film.y4m", Film(26, 5)), L"--pipe", camera.Name()});
    ASSERT_TRUE(camera.WaitForCount(2)) << feeder.Output();
    gate.Leave(Gate::kNever);
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: nobody watches the camera: the input waits\n")) << feeder.Output();
    const std::size_t before = camera.Count();
    EXPECT_FALSE(camera.WaitForCount(before + 1, 700)) << "three periods of the film have gone by";
    gate.Watch();
    const std::int64_t back = SteadyTicks();
    ASSERT_TRUE(camera.WaitForCount(before + 2)) << feeder.Output();
    const std::vector<ReceivedFrame> frames = camera.Frames();
    EXPECT_EQ(frames[before].payload[0], frames[before - 1].payload[0] + 1);
    EXPECT_LT(frames[before].arrived - back, 1000 * kMs) << "one record, ten times over for a busy machine";
    EXPECT_GT(frames[before + 1].arrived - frames[before].arrived, 100 * kMs) << "no burst: the period is 200 ms";
    EXPECT_TRUE(feeder.WaitForOutput("rvfeeder: pictures are wanted again: sending\n")) << feeder.Output();
}

TEST_F(RvFeederDemand, ALiveInputIsReadOnAndItsWriterIsNotHeldUp) {
    FrameTaker camera;
    Gate gate(camera.Name(), Gate::kNever);
    FilmPipe film;
    ChildProcess feeder =
        StartProgram(L"rvfeeder", {film.Name(), L"--pipe", camera.Name(), L"--json", L"--seconds", L"30"});
    ASSERT_TRUE(film.WaitForReader()) << feeder.Output();
    ASSERT_TRUE(film.Write("YUV4MPEG2 W64 H64 F50:1\n"));
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: nobody watches the camera: the input is read on and thrown away\n"));
    // A picture is longer than the pipe's buffer: each write ends only when rvfeeder has read.
    const auto picture = [](char fill) { return "FRAME\n" + std::string(6144, fill); };
    for (int k = 0; k < 40; ++k) {
        ASSERT_TRUE(film.Write(picture('a'))) << k;
    }
    EXPECT_EQ(camera.Count(), 0U) << "nothing is sent to a camera that nobody watches";
    gate.Watch();
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: pictures are wanted again: sending\n")) << feeder.Output();
    for (int k = 0; k < 10 && camera.Count() == 0; ++k) {
        ASSERT_TRUE(film.Write(picture('b'))) << k;
    }
    ASSERT_TRUE(camera.WaitForCount(1)) << feeder.Output();
    EXPECT_EQ(camera.Frames().front().payload, std::string(6144, 'b')) << "the picture of now, not one from before";
    EXPECT_EQ(camera.Frames().front().header.seq, 1U);
}

TEST_F(RvFeederDemand, WhenTheRecordsStopEveryPictureIsSentAgain) {
    FrameTaker camera;
    Gate gate(camera.Name(), Gate::kNever);
    ChildProcess feeder =
        StartProgram(L"rvfeeder", {m_folder.Write(L"film.y4m", Film(26, 5)), L"--pipe", camera.Name()});
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: nobody watches the camera: the input waits\n")) << feeder.Output();
    const std::size_t before = camera.Count();
    gate.FallSilent();
    ASSERT_TRUE(camera.WaitForCount(before + 1)) << feeder.Output();
    const std::int64_t lapse = camera.Frames()[before].arrived - gate.LastRecord();
    EXPECT_GT(lapse, 1900 * kMs) << "a lease lasts two seconds";
    EXPECT_LT(lapse, 4000 * kMs);
    EXPECT_TRUE(feeder.WaitForOutput("rvfeeder: the camera no longer tells whether anybody watches: sending\n"));
}

TEST_F(RvFeederDemand, WhenTheRecordsBreakOffDuringARestTheCameraIsConnectedAnew) {
    FrameTaker camera;
    std::optional<Gate> gate(std::in_place, camera.Name(), Gate::kNever);
    ChildProcess feeder =
        StartProgram(L"rvfeeder", {m_folder.Write(L"film.y4m", Film(26, 5)), L"--pipe", camera.Name()});
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: nobody watches the camera: the input waits\n")) << feeder.Output();
    gate.reset();
    EXPECT_TRUE(WaitUntil([&] {
        const std::string output = feeder.Output();
        const std::size_t first = output.find("rvfeeder: connected to ");
        return output.find("rvfeeder: connected to ", first + 1) != std::string::npos;
    })) << feeder.Output();
}

TEST_F(RvFeederDemand, ACameraThatGoesAwayDuringARestIsWaitedForAndNothingElseIsSaid) {
    std::optional<FrameServer> camera(std::in_place);
    std::optional<Gate> gate(std::in_place, camera->Name(), Gate::kNever);
    ChildProcess feeder =
        StartProgram(L"rvfeeder", {m_folder.Write(L"film.y4m", Film(26, 5)), L"--pipe", camera->Name()});
    ASSERT_TRUE(camera->WaitForClient()) << feeder.Output();
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: nobody watches the camera: the input waits\n")) << feeder.Output();
    camera.reset();
    gate.reset();
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: waiting for the camera: nothing serves ")) << feeder.Output();
    EXPECT_EQ(feeder.Output().find("no longer tells"), std::string::npos) << feeder.Output();
}

}  // namespace
}  // namespace ravlo::test
