// rvfeeder.exe as a user runs it, with the serving end of a frame pipe in this process.
#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "common/clock.h"
#include "pipe/pipe_endpoint.h"
#include "platform/unique_handle.h"
#include "support/camera.h"
#include "support/registry.h"
#include "tools/program.h"

namespace ravlo::test {
namespace {

struct ReceivedFrame {
    FrameHeader header;
    std::string payload;
    std::int64_t arrived;  ///< steady, 100 ns
};

/// The camera's side of a frame pipe, without a camera.
class FrameServer {
public:
    FrameServer() : m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
        if (!m_endpoint.Create(m_name.c_str(), CurrentUserSid())) {
            throw std::runtime_error("the frame pipe cannot be created");
        }
    }

    const std::wstring& Name() const { return m_name; }
    bool WaitForClient() { return m_endpoint.WaitForClient(kPatienceMs); }
    void DropClient() { m_endpoint.DisconnectClient(); }

    /// Takes frames until `count` have come or the client is gone.
    std::vector<ReceivedFrame> Receive(std::size_t count) {
        std::vector<ReceivedFrame> frames;
        while (frames.size() < count) {
            FrameHeader header{};
            if (!RecvFrame(m_endpoint, header, m_buffer, 1'000'000, m_stop.Get())) {
                break;
            }
            frames.push_back({header, std::string(m_buffer.Data(), m_buffer.Data() + m_buffer.Size()), SteadyTicks()});
        }
        return frames;
    }

private:
    std::wstring m_name = UniquePipeName();
    UniqueObject m_stop;
    PipeEndpoint m_endpoint;
    ReceiveBuffer m_buffer;
};

/// A film that the test hands out bit by bit.
class FilmPipe {
public:
    FilmPipe()
        : m_written(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          m_pipe(CreateNamedPipeW(m_name.c_str(), PIPE_ACCESS_OUTBOUND | FILE_FLAG_OVERLAPPED, 0, 1, 4096, 4096, 0,
                                  nullptr)) {
        if (!m_written || !m_pipe) {
            throw std::runtime_error("the film's pipe cannot be created");
        }
    }

    const std::wstring& Name() const { return m_name; }

    bool WaitForReader() {
        OVERLAPPED operation = Operation();
        return ConnectNamedPipe(m_pipe.Get(), &operation) || GetLastError() == ERROR_PIPE_CONNECTED ||
               IsCompleted(operation);
    }

    bool Write(const std::string& bytes) {
        OVERLAPPED operation = Operation();
        return WriteFile(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &operation) ||
               IsCompleted(operation);
    }

private:
    OVERLAPPED Operation() const {
        OVERLAPPED operation{};
        operation.hEvent = m_written.Get();
        return operation;
    }

    bool IsCompleted(OVERLAPPED& operation) {
        DWORD bytes = 0;
        if (GetLastError() != ERROR_IO_PENDING) {
            return false;
        }
        if (WaitForSingleObject(m_written.Get(), kPatienceMs) != WAIT_OBJECT_0) {
            CancelIoEx(m_pipe.Get(), &operation);
        }
        return GetOverlappedResult(m_pipe.Get(), &operation, &bytes, TRUE) != FALSE;
    }

    std::wstring m_name = UniquePipeName() + L"-film";
    UniqueObject m_written;
    UniqueFile m_pipe;
};

/// `count` pictures of 4x2 at 20 a second; picture k repeats the k-th letter of the alphabet.
std::string Film(int count) {
    std::string film = "YUV4MPEG2 W4 H2 F20:1 Ip C420\n";
    for (int k = 0; k < count; ++k) {
        film += "FRAME\n" + std::string(8, static_cast<char>('a' + k)) + "UVXY";
    }
    return film;
}

class RvFeeder : public ::testing::Test {
protected:
    AnchorGuard m_anchor{CurrentUserSid()};
    TemporaryFolder m_folder;
};

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
        EXPECT_EQ(header.seq, k);
        EXPECT_EQ(frames[k].payload, std::string(8, static_cast<char>('a' + k)) + "UXVY");
    }
    // Nine periods of 50 ms lie between the first frame and the last; only the way through the pipe may shorten that.
    EXPECT_GT(frames.back().arrived - frames.front().arrived, 4'000'000);
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.output.find("rvfeeder: input 4x2 at 20/1 frames a second\n"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find(", owner: the authorized user from HKLM - in-process host\n"), std::string::npos);
    EXPECT_NE(result.output.find("rvfeeder: 10 frames sent, 0 dropped (0 late, 0 while no camera took them), "
                                 "0 reconnects, 0 clock restarts, longest write "),
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
    EXPECT_GE(frames.front().header.seq, 3U) << "the frame that broke the connection is lost";
    EXPECT_EQ(frames.back().header.seq, 25U);
    EXPECT_EQ(frames.back().payload, "zzzzzzzzUXVY");
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.output.find("rvfeeder: lost the camera: the peer closed the pipe, "), std::string::npos);
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
        EXPECT_EQ(frame.payload, frame.header.seq % 2 == 0 ? "abcdef" : "ABCDEF");
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
                                 "no frame is sent to it\n"
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

TEST_F(RvFeeder, WrongUsageEndsWithTwoAndOneClearSentence) {
    const struct {
        Arguments arguments;
        const char* sentence;
    } cases[] = {
        {{}, "rvfeeder: input is required\n"},
        {{L"a.y4m", L"--lop"}, "rvfeeder: unknown option --lop; did you mean --loop?\n"},
        {{L"a.y4m", L"b.y4m"}, "rvfeeder: what is \"b.y4m\" for? Nothing more was expected here\n"},
        {{L"-", L"--loop"}, "rvfeeder: --loop needs a file: standard input cannot begin again\n"},
        {{L"a", L"--size", L"4x2"},
         "rvfeeder: raw NV12 input needs both --size and --rate; a Y4M input needs neither\n"},
        {{L"a", L"--size", L"5x2", L"--rate", L"30"},
         "rvfeeder: --size 5x2 --rate 30 describes no NV12 stream: an even WIDTHxHEIGHT up to 16384 and a rate such as 30 "
         "or 30000/1001\n"},
        {{L"a", L"--pipe", L"\\\\.\\pipe\\Other"},
         "rvfeeder: \"\\\\.\\pipe\\Other\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number\n"},
        {{L"a", L"--size", L"16384x16384", L"--rate", L"30"},
         "rvfeeder: the camera takes pictures of up to 12441600 bytes (3840x2160), but this input is 16384x16384\n"},
        {{L"a", L"--size", L"4x2", L"--rate", L"30001/30"},
         "rvfeeder: the camera takes up to 1000 frames a second, but this input has 30001/30\n"},
        {{L"a", L"--write-timeout-ms", L"1001"}, "rvfeeder: "},
        {{L"a", L"--timeout", L"soon"}, "rvfeeder: "},
    };
    for (const auto& wrong : cases) {
        const ProgramResult result = RunProgram(L"rvfeeder", wrong.arguments);
        EXPECT_EQ(result.code, 2) << wrong.sentence;
        EXPECT_EQ(result.output.substr(0, std::string(wrong.sentence).size()), wrong.sentence);
    }
}

TEST_F(RvFeeder, AnInputThatIsNoFilmEndsWithOne) {
    const ProgramResult missing = RunProgram(L"rvfeeder", {m_folder.File(L"missing.y4m")});
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.output.find("rvfeeder: cannot open "), std::string::npos) << missing.output;
    const ProgramResult foreign = RunProgram(L"rvfeeder", {m_folder.File(L"\u00E4\u20AC.y4m")});
    EXPECT_NE(foreign.output.find("\xC3\xA4\xE2\x82\xAC.y4m: "), std::string::npos) << foreign.output;
    const ProgramResult other = RunProgram(L"rvfeeder", {m_folder.Write(L"a.y4m", "GIF89a")});
    EXPECT_EQ(other.code, 1);
    EXPECT_EQ(other.output,
              "rvfeeder: the input is no Y4M stream: it does not begin with YUV4MPEG2 (for raw NV12 give "
              "--size and --rate)\n");
}

}  // namespace
}  // namespace ravlo::test
