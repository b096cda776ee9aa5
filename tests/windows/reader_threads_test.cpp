// The start of a stream's two threads, each way in which it can fail, and the guards that end their loops.
#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pattern.h"
#include "support/pipe_client.h"

namespace ravlo::test {
namespace {

using WaitHook = RAVLO_HOOK(WaitForSingleObject);

constexpr char kReaderExit[] = "PIPE reader thread exiting";

class ReaderThreads : public ModuleTest {
protected:
    /// The camera works on its pattern, and there is nobody to connect to.
    void ExpectPatternAndNoPipe(Camera& camera) {
        camera.Start();
        EXPECT_EQ(TestPattern(0, 320, 180), camera.Pull().bytes);
        EXPECT_EQ(TestPattern(1, 320, 180), camera.Pull().bytes);
        PipeClient client;
        EXPECT_FALSE(client.Connect(camera.PipeName(), 30));
        EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), client.LastError());
    }
};

TEST_F(ReaderThreads, BothStartAndSaySo) {
    RAVLO_HOOK(CreateThread) threads(m_module.Handle());
    {
        Camera camera(m_module);
        EXPECT_TRUE(m_log.HasMessage("PIPE reader thread started - RequestSample performs NO pipe I/O"))
            << m_log.Text();
        EXPECT_TRUE(
            m_log.HasMessage("GATE thread started - the demand lease is now re-asserted every 500 ms on its own "
                             "clock, not once per frame received"));
        EXPECT_LT(m_log.Find("PIPE reader thread started"), m_log.Find("GATE thread started"));
    }
    ASSERT_EQ(2u, threads.Count());
    for (const auto& call : threads.Calls()) {
        EXPECT_EQ(nullptr, std::get<0>(call));
        EXPECT_EQ(0u, std::get<1>(call)) << "the default stack";
        EXPECT_EQ(0u, std::get<4>(call)) << "no flags";
    }
}

TEST_F(ReaderThreads, WithoutAStopEventNoThreadRuns) {
    RAVLO_HOOK(CreateEventW) events(m_module.Handle());
    RAVLO_HOOK(CreateThread) threads(m_module.Handle());
    std::atomic<bool> failed{false};
    // The stream's own events are auto-reset, or signalled from the beginning.
    events.FailWhen([&failed](LPSECURITY_ATTRIBUTES, BOOL manual, BOOL signalled,
                              LPCWSTR) { return manual && !signalled && !failed.exchange(true); },
                    nullptr, ERROR_NO_SYSTEM_RESOURCES);
    Camera camera(m_module);
    EXPECT_TRUE(
        m_log.HasMessage("FAIL PIPE reader stop event could not be created, GetLastError=1450 - NO reader thread will "
                         "run and the camera will serve the test pattern for the life of this stream"))
        << m_log.Text();
    EXPECT_EQ(0u, threads.Count());
    EXPECT_FALSE(m_log.Contains("thread started"));
    ExpectPatternAndNoPipe(camera);
    EXPECT_EQ(S_OK, camera.Shutdown());
    EXPECT_FALSE(m_log.Contains("did not exit"));
}

TEST_F(ReaderThreads, AReaderThatCannotStartTakesTheStopEventWithIt) {
    {
        const Camera warmUp(m_module);
        ASSERT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    }
    m_log.Restart();
    RAVLO_HOOK(CreateThread) threads(m_module.Handle());
    threads.FailCall(1, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    const std::size_t handles = SettledHandles();
    {
        Camera camera(m_module);
        EXPECT_TRUE(
            m_log.HasMessage("FAIL PIPE reader thread could not be started, GetLastError=8 - the camera will serve the "
                             "test pattern for the life of this stream"))
            << m_log.Text();
        EXPECT_EQ(1u, threads.Count()) << "no gate without a reader";
        EXPECT_FALSE(m_log.Contains("thread started"));
        ExpectPatternAndNoPipe(camera);
    }
    EXPECT_FALSE(m_log.Contains("did not exit"));
    EXPECT_TRUE(HandlesSettleAt(handles)) << handles << " before, " << CountHandles() << " now";
}

TEST_F(ReaderThreads, AGateThatCannotStartLeavesTheCameraUnaffected) {
    RAVLO_HOOK(CreateThread) threads(m_module.Handle());
    threads.FailCall(2, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    const std::wstring name = UniquePipeName();
    {
        Camera camera(m_module, {.pipeName = name});
        EXPECT_TRUE(m_log.HasMessage("PIPE reader thread started - RequestSample performs NO pipe I/O"));
        EXPECT_TRUE(
            m_log.HasMessage("FAIL GATE thread could not be started, GetLastError=8 - NO demand record will ever be "
                             "published for this stream, so the bridge sees no gate and decodes every frame. The "
                             "camera itself is unaffected"))
            << m_log.Text();
        PipeClient producer;
        ASSERT_TRUE(producer.Connect(name));
        ASSERT_TRUE(producer.SendFrame(320, 180, 6));
        EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=6")) << m_log.Text();
        GateClient gate;
        EXPECT_FALSE(gate.Connect(name, 30));
    }
    EXPECT_TRUE(m_log.HasMessage(kReaderExit));
    EXPECT_FALSE(m_log.Contains("GATE thread exiting"));
    EXPECT_FALSE(m_log.Contains("FAIL PIPE")) << m_log.Text();
}

TEST_F(ReaderThreads, AWaitOnTheStopEventThatFailsEndsBothLoops) {
    WaitHook waits(m_module.Handle());
    const DWORD mainThread = GetCurrentThreadId();
    waits.FailWhen([mainThread](HANDLE, DWORD) { return GetCurrentThreadId() != mainThread; }, WAIT_FAILED,
                   ERROR_INVALID_HANDLE);
    Camera camera(m_module);
    EXPECT_TRUE(m_log.WaitForLine(kReaderExit)) << m_log.Text();
    EXPECT_TRUE(m_log.WaitForLine("GATE thread exiting - ")) << m_log.Text();
    EXPECT_LE(waits.Count(), 4u) << "one wait ends a loop";
}

TEST_F(ReaderThreads, AFailingWaitEndsTheReaderInEveryOneOfItsPauses) {
    // A pause for a name, for an anchor, for a pipe, for a listen: the wait that fails is that of the pause.
    WaitHook waits(m_module.Handle());
    std::atomic<DWORD> failing{0};
    waits.FailWhen([&failing](HANDLE, DWORD timeout) { return timeout == failing; }, WAIT_FAILED, ERROR_INVALID_HANDLE);
    const auto expectExit = [&](DWORD timeout, const CameraOptions& options) {
        m_log.Restart();
        failing = timeout;
        Camera camera(m_module, options);
        EXPECT_TRUE(m_log.WaitForLine(kReaderExit)) << timeout << "\n" << m_log.Text();
    };
    expectExit(20, {.pipeName = L""});
    {
        RAVLO_HOOK(CreateNamedPipeW) pipes(m_module.Handle());
        pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_PIPE_BUSY);
        expectExit(1000, {});
    }
    {
        RAVLO_HOOK(ConnectNamedPipe) listens(m_module.Handle());
        listens.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
        expectExit(1000, {});
    }
    m_anchor.Delete();
    expectExit(1000, {});
}

class ReaderGuards : public AnchoredTest {};

TEST_F(ReaderGuards, WithoutAStopEventTheReaderRefusesToReadAndEnds) {
    const std::wstring name = UniquePipeName();
    FixedName names(name);
    CountingSink sink;
    FrameReader reader(names, sink, {64, 36, 3456});
    // A wait on no event fails and would end the loop earlier; let it look like an event that is never signalled.
    WaitHook waits(ThisProgram());
    waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
        return handle == nullptr ? WAIT_TIMEOUT : WaitHook::CallOriginal(handle, timeout);
    });
    std::thread thread([&] { reader.Run(nullptr); });
    PipeClient producer;
    EXPECT_TRUE(producer.Connect(name));
    EXPECT_TRUE(producer.SendFrame(64, 36, 1));
    thread.join();
    EXPECT_TRUE(
        m_log.HasMessage("FAIL PIPE reader has no cancel event - RecvFrame refused to issue any I/O. The reader thread "
                         "is exiting; the camera will serve the test pattern"))
        << m_log.Text();
    EXPECT_EQ(0, sink.published.load());
}

TEST_F(ReaderGuards, ANullStopEventEndsTheLoopAtOnce) {
    FixedName names(UniquePipeName());
    CountingSink sink;
    FrameReader reader(names, sink, {64, 36, 3456});
    reader.Run(nullptr);
    EXPECT_EQ(0, names.reads.load());
}

TEST_F(ReaderGuards, APayloadShorterThanTheAdvertisedFrameCostsTheConnection) {
    // Cannot follow from a frame that was received whole: here the advertised size is made to disagree with itself.
    const std::wstring name = UniquePipeName();
    RunningReader running(name, {64, 36, 9999});
    running.Start();
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(name)) << m_log.Text();
    ASSERT_TRUE(producer.SendFrame(64, 36, 1));
    EXPECT_TRUE(m_log.WaitForLine("PIPE client dropped")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("PIPE client dropped (payload shorter than the header promised) - pattern"));
    EXPECT_TRUE(producer.WaitForDisconnect());
    EXPECT_EQ(0, running.sink.published.load());
    producer.Close();
    EXPECT_TRUE(producer.Connect(name)) << "the next one is listened for";
    EXPECT_TRUE(m_log.WaitForCount("PIPE client connected", 2)) << m_log.Text();
    running.Stop();
}

TEST_F(ReaderGuards, TheLiveAnnouncementIsRearmedByConnectionDropAndMismatch) {
    const std::wstring name = UniquePipeName();
    RunningReader running(name);
    running.Start();
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(name)) << m_log.Text();
    EXPECT_TRUE(WaitUntil([&] { return running.sink.rearmed == 1; }));
    ASSERT_TRUE(producer.SendFrame(64, 36, 1));
    EXPECT_TRUE(WaitUntil([&] { return running.sink.published == 1; }));
    EXPECT_EQ(1, running.sink.rearmed.load());
    ASSERT_TRUE(producer.SendFrame(16, 8, 2));
    ASSERT_TRUE(producer.SendFrame(16, 8, 3));
    ASSERT_TRUE(producer.SendFrame(64, 36, 4));
    EXPECT_TRUE(WaitUntil([&] { return running.sink.published == 2; }));
    EXPECT_EQ(2, running.sink.rearmed.load()) << "once for the run of wrong frames";
    producer.Close();
    EXPECT_TRUE(WaitUntil([&] { return running.sink.rearmed == 3; }));
    running.Stop();
}

}  // namespace
}  // namespace ravlo::test
