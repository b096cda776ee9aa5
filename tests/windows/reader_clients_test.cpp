// The reader's life with its producers: who comes, goes, comes again, and sends pictures of another shape.
#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/import_hooks.h"
#include "support/pattern.h"
#include "support/pipe_client.h"
#include "support/process.h"

namespace ravlo::test {
namespace {

class ReaderClients : public ModuleTest {
protected:
    void Connect() {
        ASSERT_TRUE(m_producer.Connect(m_name)) << m_log.Text();
        ASSERT_TRUE(m_log.WaitForCount("PIPE client connected - ", ++m_connections)) << m_log.Text();
    }
    void Leave() {
        m_producer.Close();
        ASSERT_TRUE(m_log.WaitForCount("PIPE the writer closed the pipe", ++m_departures)) << m_log.Text();
    }
    void Send(std::uint32_t width, std::uint32_t height, std::uint32_t seq) {
        ASSERT_TRUE(m_producer.SendFrame(width, height, seq)) << m_log.Text();
    }
    bool WaitForLive(std::uint32_t seq) {
        return m_log.WaitForLine("PIPE delivering live frames 320x180 seq=" + std::to_string(seq)).has_value();
    }

    std::wstring m_name = UniquePipeName();
    PipeClient m_producer;
    std::size_t m_connections = 0;
    std::size_t m_departures = 0;
};

TEST_F(ReaderClients, TheWayToTheFirstFrameIsToldInThisOrder) {
    Camera camera(m_module, {.pipeName = m_name});
    Connect();
    Send(320, 180, 1);
    ASSERT_TRUE(WaitForLive(1)) << m_log.Text();
    const std::string name = Narrow(m_name);
    const std::string sid = Narrow(CurrentUserSid());
    std::size_t next = 0;
    for (
        const std::string& line :
        {std::string("PIPE reader thread started - RequestSample performs NO pipe I/O"),
         "PIPE created " + name + " - DACL grants " + sid + " and LOCAL SYSTEM, nobody else; waiting for a client",
         "PIPE owner set to " + sid +
             " - rvfeeder.exe accepts only S-1-5-19 (LOCAL SERVICE) or S-1-5-18 (SYSTEM); anything else here means the "
             "feeder will refuse this pipe and no frames will flow",
         "PIPE client connected - admitted by the DACL for " + sid,
         std::string("PIPE delivering live frames 320x180 seq=1")}) {
        EXPECT_TRUE(m_log.HasMessage(line)) << line << "\n" << m_log.Text();
        // The starting thread and the started one write side by side: its first line is only known to exist.
        if (line.starts_with("PIPE reader thread started")) {
            continue;
        }
        const auto at = m_log.Find(line, next);
        ASSERT_TRUE(at) << line << "\n" << m_log.Text();
        next = *at + 1;
    }
    EXPECT_TRUE(m_log.HasMessage("PIPE authorized user read from HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid: " + sid));
    EXPECT_LT(m_log.Find("PIPE name "), m_log.Find("PIPE authorized user read"));
    EXPECT_LT(m_log.Find("PIPE authorized user read"), m_log.Find("PIPE created "));
}

TEST_F(ReaderClients, AProducerThatComesBackIsServedOnTheSamePipe) {
    RAVLO_HOOK(CreateNamedPipeW) pipes(m_module.Handle());
    Camera camera(m_module, {.pipeName = m_name});
    for (std::uint32_t round = 1; round <= 3; ++round) {
        Connect();
        Send(320, 180, round);
        ASSERT_TRUE(WaitForLive(round)) << m_log.Text();
        Leave();
    }
    std::size_t created = 0;
    for (const auto& call : pipes.Calls()) {
        created += std::get<0>(call) == m_name ? 1 : 0;
    }
    EXPECT_EQ(1u, created);
    EXPECT_EQ(1u, m_log.CountLines("PIPE created "));
    EXPECT_EQ(1u, m_log.CountLines("PIPE authorized user read"));
}

TEST_F(ReaderClients, AProducerProcessThatIsKilledMidFrameMakesRoomForTheNext) {
    Camera camera(m_module, {.pipeName = m_name});
    ChildProcess child = StartHalfwayProducer(m_name, 320, 180, 1);
    ASSERT_TRUE(child.WaitForOutput("half")) << child.Output();
    child.Kill();
    ASSERT_TRUE(m_log.WaitForLine("PIPE the writer closed the pipe")) << m_log.Text();
    ++m_connections;
    Connect();
    Send(320, 180, 50);
    EXPECT_TRUE(WaitForLive(50)) << m_log.Text();
}

TEST_F(ReaderClients, ASecondProducerFindsThePipeBusy) {
    Camera camera(m_module, {.pipeName = m_name});
    Connect();
    PipeClient second;
    EXPECT_FALSE(second.Connect(m_name, 0));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PIPE_BUSY), second.LastError());
    Send(320, 180, 1);
    EXPECT_TRUE(WaitForLive(1)) << m_log.Text();
}

TEST_F(ReaderClients, TheCameraOnlyReads) {
    Camera camera(m_module, {.pipeName = m_name});
    ASSERT_TRUE(WaitForPipe(m_name));
    PipeEnd reader;
    EXPECT_FALSE(reader.Connect(m_name, GENERIC_READ, 0));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), reader.LastError());
}

TEST_F(ReaderClients, FramesOfAnotherSizeAreReportedOnceAndTheClientStays) {
    Camera camera(m_module, {.pipeName = m_name});
    Connect();
    Send(320, 180, 1);
    ASSERT_TRUE(WaitForLive(1)) << m_log.Text();
    for (std::uint32_t seq = 2; seq <= 6; ++seq) {
        Send(160, 90, seq);
    }
    Send(320, 180, 7);
    ASSERT_TRUE(WaitForLive(7)) << "a mismatch makes the live line due again\n" << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("PIPE geometry mismatch"));
    EXPECT_TRUE(m_log.HasMessage("PIPE geometry mismatch: wire 160x90, advertised 320x180 - pattern"));
    EXPECT_EQ(1u, m_log.CountLines("PIPE geometry recovered"));
    EXPECT_TRUE(m_log.HasMessage("PIPE geometry recovered"));
    EXPECT_LT(m_log.Find("PIPE geometry recovered"), m_log.Find("PIPE delivering live frames 320x180 seq=7"));
    EXPECT_EQ(1u, m_log.CountLines("PIPE client connected"));
    EXPECT_FALSE(m_producer.WaitForDisconnect(50));
}

TEST_F(ReaderClients, ASecondRunOfWrongFramesIsReportedAgain) {
    Camera camera(m_module, {.pipeName = m_name});
    Connect();
    for (std::uint32_t round = 0; round < 2; ++round) {
        Send(64, 36, 2 * round);
        Send(320, 180, 2 * round + 1);
    }
    ASSERT_TRUE(WaitForLive(3)) << m_log.Text();
    EXPECT_EQ(2u, m_log.CountLines("PIPE geometry mismatch: wire 64x36, advertised 320x180 - pattern"));
    EXPECT_EQ(2u, m_log.CountLines("PIPE geometry recovered"));
}

TEST_F(ReaderClients, AnotherShapeOfTheSameSizeIsAMismatchAndIsNotShown) {
    Camera camera(m_module, {.pipeName = m_name});
    camera.Start();
    Connect();
    Send(180, 320, 1);
    ASSERT_TRUE(m_log.WaitForLine("PIPE geometry mismatch: wire 180x320, advertised 320x180 - pattern"))
        << m_log.Text();
    EXPECT_EQ(TestPattern(0, 320, 180), camera.Pull().bytes);
    EXPECT_FALSE(m_log.Contains("PIPE delivering live frames"));
}

TEST_F(ReaderClients, ANewClientStartsWithNoMismatchOnRecord) {
    Camera camera(m_module, {.pipeName = m_name});
    Connect();
    Send(64, 36, 1);
    ASSERT_TRUE(m_log.WaitForCount("PIPE geometry mismatch", 1)) << m_log.Text();
    Leave();
    Connect();
    Send(320, 180, 2);
    ASSERT_TRUE(WaitForLive(2)) << m_log.Text();
    EXPECT_FALSE(m_log.Contains("geometry recovered"));
    Leave();
    Connect();
    Send(64, 36, 3);
    EXPECT_TRUE(m_log.WaitForCount("PIPE geometry mismatch", 2)) << m_log.Text();
}

TEST_F(ReaderClients, TheLiveLineComesOncePerConnection) {
    Camera camera(m_module, {.pipeName = m_name});
    Connect();
    for (std::uint32_t seq = 1; seq <= 5; ++seq) {
        Send(320, 180, seq);
    }
    Leave();
    EXPECT_EQ(1u, m_log.CountLines("PIPE delivering live frames"));
    Connect();
    Send(320, 180, 6);
    ASSERT_TRUE(WaitForLive(6)) << m_log.Text();
    EXPECT_EQ(2u, m_log.CountLines("PIPE delivering live frames"));
}

TEST_F(ReaderClients, AClientThatCameAndWentBeforeTheFirstListenDoesNotShutOutTheNext) {
    using ConnectHook = RAVLO_HOOK(ConnectNamedPipe);
    ConnectHook listens(m_module.Handle());
    RAVLO_HOOK(CreateThread) threads(m_module.Handle());
    threads.FailCall(2, nullptr, ERROR_NOT_ENOUGH_MEMORY);  // no gate: the first listen is the frame pipe's
    RAVLO_HOOK(DisconnectNamedPipe) disconnects(m_module.Handle());
    std::atomic<bool> visited{false};
    listens.Replace([&](HANDLE pipe, LPOVERLAPPED operation) -> BOOL {
        if (!visited.exchange(true)) {
            PipeClient visitor;
            EXPECT_TRUE(visitor.Connect(m_name, 0));
        }
        return ConnectHook::CallOriginal(pipe, operation);
    });
    {
        Camera camera(m_module, {.pipeName = m_name});
        ASSERT_TRUE(listens.WaitForCalls(2)) << "the second look at the listen issues it again";
        EXPECT_EQ(1u, disconnects.Count()) << "after the visitor was cleared away";
        Connect();
        Send(320, 180, 1);
        EXPECT_TRUE(WaitForLive(1)) << m_log.Text();
        EXPECT_EQ(2u, listens.Count());
        EXPECT_FALSE(m_log.Contains("FAIL PIPE")) << m_log.Text();
    }
}

TEST_F(ReaderClients, AProducerThatIsThereBeforeTheFirstListenIsTaken) {
    using ConnectHook = RAVLO_HOOK(ConnectNamedPipe);
    ConnectHook listens(m_module.Handle());
    RAVLO_HOOK(CreateThread) threads(m_module.Handle());
    threads.FailCall(2, nullptr, ERROR_NOT_ENOUGH_MEMORY);  // no gate: the first listen is the frame pipe's
    std::atomic<bool> connected{false};
    listens.Replace([&](HANDLE pipe, LPOVERLAPPED operation) -> BOOL {
        if (!connected.exchange(true)) {
            EXPECT_TRUE(m_producer.Connect(m_name, 0));
        }
        return ConnectHook::CallOriginal(pipe, operation);
    });
    {
        Camera camera(m_module, {.pipeName = m_name});
        ASSERT_TRUE(m_log.WaitForLine("PIPE client connected - ")) << m_log.Text();
        Send(320, 180, 1);
        EXPECT_TRUE(WaitForLive(1)) << m_log.Text();
        EXPECT_FALSE(m_log.Contains("listen could not be armed"));
    }
}

}  // namespace
}  // namespace ravlo::test
