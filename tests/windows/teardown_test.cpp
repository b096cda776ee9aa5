// The end of a stream's threads: quick when they can be stopped, given up after one bounded wait when they cannot. What
// is abandoned stays for the life of the process, so those tests run in processes of their own.
#include <gtest/gtest.h>

#include "windows/abandoned_stage.h"

#include "support/process.h"

namespace ravlo::test {
namespace {

using JoinHook = RAVLO_HOOK(WaitForMultipleObjects);

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

/// The wait for the threads fails instead of timing out.
RAVLO_ROLE(JoinFails) {
    AbandonedStage& stage = *new AbandonedStage("ReadFile", "");
    stage.join = [](DWORD count, const HANDLE* threads) -> DWORD {
        WaitForSingleObject(threads[count - 1], kPatienceMs);  // the gate thread ends; the reader cannot
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    };
    EXPECT_EQ(S_OK, stage.camera->Shutdown());
    EXPECT_TRUE(stage.log.HasMessage(AbandonedLine("the reader thread", "4294967295"))) << stage.log.Text();
    stage.camera->ReleaseAll();
    EXPECT_TRUE(stage.log.HasMessage(kNotDestroyed)) << stage.log.Text();
    stage.LetGo();
    EXPECT_EQ(0u, stage.EndOf(0));
    EXPECT_TRUE(stage.log.HasMessage(kReaderExit)) << stage.log.Text();
    return 0;
}

RAVLO_ROLE(RealBound) {
    AbandonedStage& stage = *new AbandonedStage("ReadFile", "");
    stage.join = [](DWORD count, const HANDLE* threads) {
        return WaitForMultipleObjects(count, threads, TRUE, kJoinMs);
    };
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(S_OK, stage.camera->Shutdown());
    const ULONGLONG waited = GetTickCount64() - start;
    EXPECT_GE(waited, 1964u);
    EXPECT_LE(waited, 3500u);
    EXPECT_TRUE(stage.log.HasMessage(AbandonedLine("the reader thread", "258"))) << stage.log.Text();
    return 0;
}

/// Both threads end between the wait that ran out and the look at who still runs.
RAVLO_ROLE(EndsAfterTheBound) {
    AbandonedStage& stage = *new AbandonedStage("ReadFile", "WaitForSingleObject");
    stage.join = [&](DWORD count, const HANDLE* threads) -> DWORD {
        EXPECT_EQ(2u, count);
        stage.LetGo();
        EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(count, threads, TRUE, kPatienceMs));
        return WAIT_TIMEOUT;
    };
    EXPECT_EQ(S_OK, stage.camera->Shutdown());
    EXPECT_TRUE(stage.log.HasMessage(AbandonedLine("the reader thread", "258"))) << stage.log.Text();
    stage.camera->ReleaseAll();
    EXPECT_TRUE(stage.log.HasMessage(kReentered)) << stage.log.Text();
    EXPECT_TRUE(stage.log.HasMessage(kNotDestroyed)) << stage.log.Text();
    EXPECT_EQ(S_FALSE, stage.Module().CanUnloadNow());
    return 0;
}

class AbandonedTeardown : public ::testing::TestWithParam<const char*> {};

TEST_P(AbandonedTeardown, IsToldAndFreesNothing) {
    ChildProcess child = StartRole(GetParam());
    EXPECT_EQ(0u, child.Wait()) << child.Output();
}

INSTANTIATE_TEST_SUITE_P(Teardown, AbandonedTeardown, ::testing::Values("JoinFails", "RealBound", "EndsAfterTheBound"),
                         [](const auto& parameter) { return std::string(parameter.param); });

}  // namespace
}  // namespace ravlo::test
