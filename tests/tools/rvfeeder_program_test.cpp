// rvfeeder.exe as a user runs it, with the serving end of a frame pipe in this process.
#include "tools/feeder_stage.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include <optional>
#include <utility>
#include <vector>

namespace ravlo::test {
namespace {

TEST_F(RvFeeder, EveryFrameArrivesWholeInOrderAndAtItsTime) {
    FrameServer server;
    ChildProcess feeder = StartProgram(L"rvfeeder", {m_folder.Write(L"film.y4m", Film(10)), L"--pipe", server.Name()});
    ASSERT_TRUE(server.WaitForClient()) << feeder.Output();
    const std::vector<ReceivedFrame> frames = server.Receive(11);
    ASSERT_EQ(frames.size(), 10U) << feeder.Output();
    for (std::size_t k = 0; k < frames.size(); ++k) {
        const FrameHeader& header = frames[k].header;
        EXPECT_EQ(header.width, 4U);
        EXPECT_EQ(header.height, 2U);
        EXPECT_EQ(header.bytes, 12U);
        EXPECT_EQ(header.seq, k + 1);
        EXPECT_EQ(frames[k].payload, std::string(8, static_cast<char>('a' + k)) + "UXVY");
    }
    // Nine periods of 50 ms lie between the first frame and the last; only the way through the pipe may shorten that.
    EXPECT_GT(frames.back().arrived - frames.front().arrived, 4'000'000);
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.output.find("rvfeeder: input 4x2 at 20/1 frames a second\n"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("rvfeeder: connected to \\\\.\\pipe\\Ravlo."), std::string::npos);
    EXPECT_NE(result.output.find("rvfeeder: the input has ended\n"
                                 "rvfeeder: 10 frames sent, 0 dropped (0 late, 0 while no camera took them, 0 while "
                                 "nobody watched), 0 reconnects, 0 clock restarts, longest write "),
              std::string::npos)
        << result.output;
}

TEST_F(RvFeeder, AfterTheCameraDroppedItTheFilmGoesOnAtTheRightPlace) {
    FrameServer server;
    ChildProcess feeder = StartProgram(L"rvfeeder", {m_folder.Write(L"film.y4m", Film(26)), L"--pipe", server.Name()});
    ASSERT_TRUE(server.WaitForClient()) << feeder.Output();
    ASSERT_EQ(server.Receive(2).size(), 2U);
    server.DropClient();
    ASSERT_TRUE(server.WaitForClient()) << feeder.Output();
    const std::vector<ReceivedFrame> frames = server.Receive(26);
    ASSERT_FALSE(frames.empty());
    EXPECT_GE(frames.front().payload[0], 'd') << "the frame that broke the connection is lost";
    EXPECT_EQ(frames.back().payload, "zzzzzzzzUXVY");
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.output.find("rvfeeder: lost the camera: it has closed the connection; connecting again\n"),
              std::string::npos);
    EXPECT_NE(result.output.find(", 1 reconnects, "), std::string::npos) << result.output;
}

TEST_F(RvFeeder, AFilmThatEndsInsideAPictureSendsOnlyWholeOnes) {
    FrameServer server;
    std::string film = Film(3);
    film.pop_back();
    ChildProcess feeder = StartProgram(L"rvfeeder", {m_folder.Write(L"film.y4m", film), L"--pipe", server.Name()});
    ASSERT_TRUE(server.WaitForClient()) << feeder.Output();
    EXPECT_EQ(server.Receive(3).size(), 2U);
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.output.find("rvfeeder: the Y4M stream ends inside picture 3\n"), std::string::npos);
}

TEST_F(RvFeeder, ALoopShowsTheFilmAgainUntilItIsKilled) {
    FrameServer server;
    ChildProcess feeder = StartProgram(L"rvfeeder", {L"--loop", m_folder.Write(L"film.nv12", "abcdefABCDEF"), L"--size",
                                                     L"2x2", L"--rate", L"100", L"--pipe", server.Name()});
    ASSERT_TRUE(server.WaitForClient()) << feeder.Output();
    const std::vector<ReceivedFrame> frames = server.Receive(6);
    feeder.Kill();
    ASSERT_EQ(frames.size(), 6U);
    for (const ReceivedFrame& frame : frames) {
        EXPECT_EQ(frame.payload, frame.header.seq % 2 == 1 ? "abcdef" : "ABCDEF");
    }
}

TEST_F(RvFeeder, APipeOfAStrangerGetsNoFrame) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"O:BAD:(A;;FA;;;WD)", SDDL_REVISION_1,
                                                                     &descriptor, nullptr));
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
    const std::wstring name = UniquePipeName();
    const UniqueFile pipe(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND, 0, 1, 4096, 4096, 0, &attributes));
    LocalFree(descriptor);
    ASSERT_TRUE(pipe);
    const ProgramResult result =
        RunProgram(L"rvfeeder", {m_folder.Write(L"film.y4m", Film(1)), L"--pipe", name, L"--timeout", L"1"});
    EXPECT_EQ(result.code, 4);
    EXPECT_NE(result.output.find(" is owned by an account that is neither the camera service nor the authorized user; "
                                 "no frame is sent to it. \"rvsetup doctor\" tells more. Trying again until the "
                                 "camera serves it\n"
                                 "rvfeeder: giving up: the camera's pipe belongs to an account that is not trusted\n"),
              std::string::npos)
        << result.output;
    DWORD waiting = 0;
    PeekNamedPipe(pipe.Get(), nullptr, 0, nullptr, &waiting, nullptr);
    EXPECT_EQ(waiting, 0U);
}

TEST_F(RvFeeder, WithoutACameraItGivesUpAfterTheTimeAllowed) {
    const ProgramResult result = RunProgram(
        L"rvfeeder", {m_folder.Write(L"film.y4m", Film(1)), L"--pipe", UniquePipeName(), L"--timeout", L"0.7"});
    EXPECT_EQ(result.code, 5);
    EXPECT_NE(result.output.find("rvfeeder: waiting for the camera: nothing serves "), std::string::npos);
    EXPECT_NE(result.output.find("rvfeeder: giving up: no camera took frames for the time that --timeout allows\n"),
              std::string::npos);
}

TEST_F(RvFeeder, TheTimeThatTheInputTakesToOpenIsNotCountedAgainstTheCamera) {
    FilmPipe film;
    ChildProcess feeder = StartProgram(L"rvfeeder", {film.Name(), L"--pipe", UniquePipeName(), L"--timeout", L"0.8"});
    ASSERT_TRUE(film.WaitForReader()) << feeder.Output();
    EXPECT_EQ(feeder.Wait(900), std::nullopt) << "an input that says nothing is waited for";
    const std::int64_t opened = SteadyTicks();
    ASSERT_TRUE(film.Write(Film(1)));
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 5) << result.output;
    EXPECT_GE(SteadyTicks() - opened, 7'640'000) << "0.8 s, less what a coarse clock may take off";
}

TEST_F(RvFeeder, WhileTheInputIsSilentALostCameraIsLookedForAndGivenUp) {
    std::optional<FrameServer> server(std::in_place);
    FilmPipe film;
    ChildProcess feeder = StartProgram(L"rvfeeder", {film.Name(), L"--pipe", server->Name(), L"--timeout", L"0.5"});
    ASSERT_TRUE(film.WaitForReader()) << feeder.Output();
    const std::string picture = "FRAME\nabcdefghUVXY";
    ASSERT_TRUE(film.Write("YUV4MPEG2 W4 H2 F20:1\n" + picture));
    ASSERT_TRUE(server->WaitForClient()) << feeder.Output();
    ASSERT_EQ(server->Receive(1).size(), 1U);
    server->DropClient();
    ASSERT_TRUE(film.Write(picture));  // only a write shows that the camera is gone
    ASSERT_TRUE(server->WaitForClient()) << feeder.Output();
    server.reset();
    ASSERT_TRUE(film.Write(picture));
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 5) << result.output;
    EXPECT_NE(result.output.find("rvfeeder: 1 frames sent, 2 dropped "), std::string::npos) << result.output;
}

}  // namespace
}  // namespace ravlo::test
