// The end of a stream's threads: quick when they can be stopped, and without freeing anything when they cannot. What is
// abandoned stays for the life of the process, so those tests run in processes of their own.
#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"
#include "support/process.h"

namespace ravlo::test {
namespace {

using JoinHook = RAVLO_HOOK(WaitForMultipleObjects);
using ReadHook = RAVLO_HOOK(ReadFile);
using PipeHook = RAVLO_HOOK(CreateNamedPipeW);

constexpr DWORD kJoinMs = 2000;
constexpr char kReaderExit[] = "PIPE reader thread exiting";
constexpr char kGateExit[] =
    "GATE thread exiting - no further demand records are published, so the bridge's lease expires and it goes back to "
    "decoding every frame";
constexpr char kReentered[] =
    "FAIL PIPE teardown re-entered after the reader thread was ABANDONED - the pipe, the stop event, the critical sections "
    "and this object are left ALONE. This is the second call that used to free them all under a live thread";
constexpr char kNotDestroyed[] =
    "FAIL PIPE the last reference to this stream went away while the reader thread was still running (the join timed out). "
    "THE OBJECT IS NOT DESTROYED: no destructor runs, the frame slots and the pipe are not freed, and this DLL is not "
    "unloaded - the thread is still executing code inside it. Everything is reclaimed when the Frame Server restarts";

std::string Abandoned(const std::string& who, const std::string& waitResult) {
    return "FAIL PIPE " + who + " did not exit within 2000 ms (wait=" + waitResult +
           ") - the thread handles, the pipe handle, the stop event, both critical sections, the frame slots AND THIS WHOLE "
           "OBJECT are LEAKED ON PURPOSE rather than freed under a live thread. The pipe name stays held, so the next media "
           "source instance cannot create it and the camera will serve the test pattern until the Frame Server restarts";
}

class Teardown : public ModuleTest {};

TEST_F(Teardown, AReaderThatBlocksInAReadIsJoinedAtOnceAndEverythingIsReleased) {
    const std::wstring name = UniquePipeName();
    {
        const Camera warmUp(m_module);  // what the runtime keeps for ever is kept from here on
        ASSERT_TRUE(m_log.WaitForLine("GATE serving ")) << m_log.Text();
    }
    m_log.Restart();
    const std::size_t handles = SettledHandles();
    PipeClient producer;
    {
        Camera camera(m_module, {.pipeName = name});
        ASSERT_TRUE(producer.Connect(name));
        ASSERT_TRUE(m_log.WaitForLine("PIPE client connected - ")) << m_log.Text();
        ASSERT_TRUE(producer.SendHeader(HeaderFor(320, 180, 1)));
        ASSERT_TRUE(m_log.WaitForLine("GATE serving ")) << m_log.Text();
        const ULONGLONG start = GetTickCount64();
        EXPECT_EQ(S_OK, camera.Shutdown());
        EXPECT_LT(GetTickCount64() - start, 1000u);
        EXPECT_TRUE(m_log.HasMessage(kReaderExit));
        EXPECT_TRUE(m_log.HasMessage(kGateExit));
        EXPECT_TRUE(m_log.HasMessage("PIPE reader thread stopped by Shutdown"));
        EXPECT_TRUE(producer.WaitForDisconnect());
        EXPECT_FALSE(m_log.Contains("FAIL PIPE")) << m_log.Text();
        PipeClient late;
        EXPECT_FALSE(late.Connect(name, 0));
        EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), late.LastError());
        GateClient lateGate;
        EXPECT_FALSE(lateGate.Connect(name, 0));
        EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), lateGate.LastError());
    }
    producer.Close();
    EXPECT_TRUE(HandlesSettleAt(handles)) << handles << " before, " << CountHandles() << " now";
}

TEST_F(Teardown, BothThreadsAreJoinedByOneWaitOf2000Milliseconds) {
    JoinHook joins(m_module.Handle());
    {
        Camera camera(m_module);
        ASSERT_TRUE(m_log.WaitForLine("GATE serving ")) << m_log.Text();
    }
    std::size_t found = 0;
    for (const auto& call : joins.Calls()) {
        if (std::get<3>(call) == kJoinMs) {
            ++found;
            EXPECT_EQ(2u, std::get<0>(call));
            EXPECT_EQ(TRUE, std::get<2>(call));
        }
    }
    EXPECT_EQ(1u, found);
}

TEST_F(Teardown, WithoutAGateThreadTheReaderAloneIsJoined) {
    JoinHook joins(m_module.Handle());
    RAVLO_HOOK(CreateThread) threads(m_module.Handle());
    threads.FailCall(2, nullptr, ERROR_NOT_ENOUGH_MEMORY);
    {
        Camera camera(m_module);
        ASSERT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    }
    std::size_t found = 0;
    for (const auto& call : joins.Calls()) {
        if (std::get<3>(call) == kJoinMs) {
            ++found;
            EXPECT_EQ(1u, std::get<0>(call));
        }
    }
    EXPECT_EQ(1u, found);
    EXPECT_FALSE(m_log.Contains("did not exit")) << m_log.Text();
}

TEST_F(Teardown, ARetryWaitOfASecondEndsAtOnce) {
    m_anchor.Delete();
    Camera camera(m_module);
    ASSERT_TRUE(m_log.WaitForLine("FAIL PIPE no usable authorization anchor")) << m_log.Text();
    const ULONGLONG start = GetTickCount64();
    camera.Shutdown();
    EXPECT_LT(GetTickCount64() - start, 700u);
    EXPECT_TRUE(m_log.HasMessage(kReaderExit));
}

TEST_F(Teardown, ARepeatedShutdownFindsNothingLeftToDo) {
    Camera camera(m_module);
    camera.Start();
    ASSERT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    EXPECT_EQ(S_OK, camera.Shutdown());
    camera.Shutdown();
    EXPECT_EQ(1u, m_log.CountLines(kReaderExit));
    EXPECT_FALSE(m_log.Contains("FAIL PIPE")) << m_log.Text();
}

/// A camera one or both of whose threads stand still inside a call to the platform until they are let go.
class StuckCamera {
public:
    StuckCamera(bool reader, bool gate)
        : m_anchor(CurrentUserSid()),
          m_joins(m_module.Handle()),
          m_reads(m_module.Handle()),
          m_pipes(m_module.Handle()) {
        m_module.KeepLoaded();
        // Hooks and this object are still there when the role's process ends: nothing here is ever destroyed.
        const HANDLE release = m_release.Get();
        m_joins.Replace([](DWORD count, const HANDLE* handles, BOOL all, DWORD timeout) -> DWORD {
            // The bound is checked where it is asked for; nobody needs to sit it out.
            return JoinHook::CallOriginal(count, handles, all, timeout == kJoinMs ? 200 : timeout);
        });
        if (reader) {
            m_reads.Replace(
                [this, release](HANDLE pipe, LPVOID buffer, DWORD bytes, LPDWORD read, LPOVERLAPPED operation) -> BOOL {
                    ++m_stuck;
                    WaitForSingleObject(release, 30000);
                    return ReadHook::CallOriginal(pipe, buffer, bytes, read, operation);
                });
        }
        if (gate) {
            m_pipes.Replace([this, release](LPCWSTR pipe, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD out,
                                            DWORD in, DWORD timeout, LPSECURITY_ATTRIBUTES attributes) -> HANDLE {
                if (std::wstring_view(pipe).ends_with(L".gate")) {
                    ++m_stuck;
                    WaitForSingleObject(release, 30000);
                }
                return PipeHook::CallOriginal(pipe, openMode, pipeMode, instances, out, in, timeout, attributes);
            });
        }
        camera.emplace(m_module, CameraOptions{.pipeName = name});
        if (!producer.Connect(name) || !WaitUntil([&] { return m_stuck == (reader ? 1 : 0) + (gate ? 1 : 0); })) {
            throw std::runtime_error("the threads do not come to where they should stand still");
        }
        camera->Start();
    }

    void Release() { SetEvent(m_release.Get()); }
    bool NameIsHeld() const {
        PipeEndpoint other;
        return !other.Create(name.c_str(), CurrentUserSid()) && other.Stage() == CreateStage::Pipe;
    }

private:
    PrivateLocalMachine m_localMachine;
    AnchorGuard m_anchor;

public:
    TraceLog log;

private:
    ModuleUnderTest m_module;
    UniqueObject m_release = MakeEvent();
    std::atomic<int> m_stuck{0};

public:
    JoinHook& Joins() { return m_joins; }
    HMODULE Handle() const { return m_module.Handle(); }
    HRESULT CanUnloadNow() const { return m_module.CanUnloadNow(); }

private:
    JoinHook m_joins;
    ReadHook m_reads;
    PipeHook m_pipes;

public:
    const std::wstring name = UniquePipeName();
    PipeClient producer;
    std::optional<Camera> camera;
};

/// Abandons, tears down again and releases for the last time; then lets the threads go and sees that they still can.
int AbandonAndRelease(bool reader, bool gate, const std::string& who) {
    StuckCamera& stuck = *new StuckCamera(reader, gate);  // never destroyed, like what it holds
    EXPECT_EQ(S_OK, stuck.camera->Shutdown());
    EXPECT_TRUE(stuck.log.HasMessage(Abandoned(who, "258"))) << stuck.log.Text();
    EXPECT_EQ(1u, stuck.log.CountLines("did not exit within"));
    EXPECT_TRUE(stuck.NameIsHeld());
    EXPECT_FALSE(stuck.log.Contains("re-entered"));

    IMFMediaStream* const stream = stuck.camera->Stream();
    stream->AddRef();
    stuck.camera->ReleaseAll();
    stuck.camera.reset();
    EXPECT_FALSE(stuck.log.Contains("NOT DESTROYED")) << "a reference is left";
    {
        RAVLO_HOOK(CloseHandle) closes(stuck.Handle());
        RAVLO_HOOK(SetEvent) signals(stuck.Handle());
        const DWORD thread = GetCurrentThreadId();
        std::atomic<int> mine{0};
        closes.Replace([&mine, thread](HANDLE handle) -> BOOL {
            mine += GetCurrentThreadId() == thread ? 1 : 0;
            using Closes = RAVLO_HOOK(CloseHandle);
            return Closes::CallOriginal(handle);
        });
        EXPECT_EQ(0u, stream->Release());
        // Writing the log opens and closes its file; two lines are written here, and nothing else is closed.
        EXPECT_LE(mine.load(), 2);
        EXPECT_LE(signals.Count(), 1u) << "only the event that no request shall wait for";
    }
    EXPECT_EQ(1u, stuck.log.CountLines("re-entered"));
    EXPECT_TRUE(stuck.log.HasMessage(kReentered)) << stuck.log.Text();
    EXPECT_TRUE(stuck.log.HasMessage(kNotDestroyed)) << stuck.log.Text();
    EXPECT_LT(stuck.log.Find(kReentered), stuck.log.Find(kNotDestroyed));
    EXPECT_EQ(S_FALSE, stuck.CanUnloadNow()) << "a thread still runs in the module";
    EXPECT_TRUE(stuck.NameIsHeld());

    stuck.Release();
    EXPECT_TRUE(stuck.log.WaitForLine(kReaderExit)) << stuck.log.Text();
    EXPECT_TRUE(stuck.log.WaitForLine(kGateExit)) << stuck.log.Text();
    return 0;
}

RAVLO_ROLE(ReaderStuck) {
    return AbandonAndRelease(true, false, "the reader thread");
}
RAVLO_ROLE(GateStuck) {
    return AbandonAndRelease(false, true, "the gate thread");
}
RAVLO_ROLE(BothStuck) {
    return AbandonAndRelease(true, true, "the reader AND gate threads");
}

RAVLO_ROLE(JoinFails) {
    StuckCamera& stuck = *new StuckCamera(true, false);
    stuck.Joins().Replace([](DWORD count, const HANDLE* handles, BOOL all, DWORD timeout) -> DWORD {
        if (timeout == kJoinMs) {
            WaitForSingleObject(handles[count - 1], 5000);  // the gate thread ends; the reader cannot
            SetLastError(ERROR_INVALID_HANDLE);
            return WAIT_FAILED;
        }
        return JoinHook::CallOriginal(count, handles, all, timeout);
    });
    EXPECT_EQ(S_OK, stuck.camera->Shutdown());
    EXPECT_TRUE(stuck.log.HasMessage(Abandoned("the reader thread", "4294967295"))) << stuck.log.Text();
    stuck.camera->ReleaseAll();
    EXPECT_TRUE(stuck.log.WaitForLine(kNotDestroyed)) << stuck.log.Text();
    stuck.Release();
    EXPECT_TRUE(stuck.log.WaitForLine(kReaderExit)) << stuck.log.Text();
    return 0;
}

RAVLO_ROLE(RealBound) {
    StuckCamera& stuck = *new StuckCamera(true, false);
    stuck.Joins().PassOn();
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(S_OK, stuck.camera->Shutdown());
    const ULONGLONG waited = GetTickCount64() - start;
    EXPECT_GE(waited, 1964u);
    EXPECT_LE(waited, 3000u);
    EXPECT_TRUE(stuck.log.HasMessage(Abandoned("the reader thread", "258"))) << stuck.log.Text();
    return 0;
}

class AbandonedThreads : public ::testing::TestWithParam<const char*> {};

TEST_P(AbandonedThreads, AreToldByNameAndNothingTheyUseIsFreed) {
    ChildProcess child = StartRole(GetParam());
    EXPECT_EQ(0u, child.Wait()) << child.Output();
}

INSTANTIATE_TEST_SUITE_P(Teardown, AbandonedThreads,
                         ::testing::Values("ReaderStuck", "GateStuck", "BothStuck", "JoinFails", "RealBound"),
                         [](const auto& parameter) { return std::string(parameter.param); });

}  // namespace
}  // namespace ravlo::test
