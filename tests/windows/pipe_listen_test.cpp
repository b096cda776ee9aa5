// Listening for the producer: the states of the endpoint, and what the reader makes of a listen that fails.
#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"

namespace ravlo::test {
namespace {

using ConnectHook = RAVLO_HOOK(ConnectNamedPipe);
using DisconnectHook = RAVLO_HOOK(DisconnectNamedPipe);
using CancelHook = RAVLO_HOOK(CancelIoEx);
using ResultHook = RAVLO_HOOK(GetOverlappedResult);
using WaitHook = RAVLO_HOOK(WaitForSingleObject);

class PipeListen : public ::testing::Test {
protected:
    void Create() { ASSERT_TRUE(m_endpoint.Create(m_name.c_str(), CurrentUserSid())); }

    std::wstring m_name = UniquePipeName();
    PipeEndpoint m_endpoint;
    PipeClient m_client;
};

TEST(ListenStates, HaveTheseNumbers) {
    EXPECT_EQ(0u, static_cast<std::uint32_t>(ListenState::NoPipe));
    EXPECT_EQ(1u, static_cast<std::uint32_t>(ListenState::Listening));
    EXPECT_EQ(2u, static_cast<std::uint32_t>(ListenState::Connected));
    EXPECT_EQ(3u, static_cast<std::uint32_t>(ListenState::ListenFailed));
}

TEST_F(PipeListen, WithoutAPipeThereIsNothingToListenOn) {
    EXPECT_EQ(ListenState::NoPipe, m_endpoint.PollListen());
    EXPECT_FALSE(m_endpoint.WaitForClient(0));
    m_endpoint.DisconnectClient();
    m_endpoint.Close();
    EXPECT_EQ(ListenState::NoPipe, m_endpoint.State());
}

TEST_F(PipeListen, OneListenIsOutstandingHoweverOftenOneAsks) {
    Create();
    ConnectHook listens(ThisProgram());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(ListenState::Listening, m_endpoint.PollListen());
    }
    EXPECT_FALSE(m_endpoint.WaitForClient(1));
    EXPECT_EQ(1u, listens.Count());
}

TEST_F(PipeListen, AClientThatComesLaterIsFoundByPollAndByWait) {
    Create();
    EXPECT_EQ(ListenState::Listening, m_endpoint.PollListen());
    ASSERT_TRUE(m_client.Connect(m_name));
    EXPECT_TRUE(WaitUntil([&] { return m_endpoint.PollListen() == ListenState::Connected; }));
    EXPECT_TRUE(m_endpoint.WaitForClient(0)) << "a connected client stays one";

    m_endpoint.DisconnectClient();
    EXPECT_EQ(ListenState::Listening, m_endpoint.State());
    m_client.Close();
    std::thread producer([&] { EXPECT_TRUE(m_client.Connect(m_name)); });
    EXPECT_TRUE(m_endpoint.WaitForClient(kPatienceMs));
    producer.join();
}

TEST_F(PipeListen, TheWaitForAClientIsBounded) {
    Create();
    const ULONGLONG start = GetTickCount64();
    EXPECT_FALSE(m_endpoint.WaitForClient(100));
    const ULONGLONG waited = GetTickCount64() - start;
    EXPECT_GE(waited, 64u);
    EXPECT_LE(waited, 1000u);
}

TEST_F(PipeListen, AClientThatIsThereBeforeTheListenIsConnected) {
    Create();
    ASSERT_TRUE(m_client.Connect(m_name));
    EXPECT_EQ(ListenState::Connected, m_endpoint.PollListen());
}

TEST_F(PipeListen, AListenThatSucceedsAtOnceIsConnected) {
    Create();
    ConnectHook listens(ThisProgram());
    listens.FailEvery(TRUE);
    EXPECT_EQ(ListenState::Connected, m_endpoint.PollListen());
}

TEST_F(PipeListen, AClientThatCameAndWentBeforeTheFirstListenIsClearedAway) {
    Create();
    ASSERT_TRUE(m_client.Connect(m_name));
    m_client.Close();
    EXPECT_EQ(ListenState::ListenFailed, m_endpoint.PollListen());
    EXPECT_EQ(static_cast<DWORD>(ERROR_NO_DATA), m_endpoint.LastError());
    EXPECT_EQ(ListenState::Listening, m_endpoint.PollListen());
    ASSERT_TRUE(m_client.Connect(m_name));
    EXPECT_TRUE(m_endpoint.WaitForClient(kPatienceMs));
}

TEST_F(PipeListen, AListenThatFailsKeepsItsErrorAndIsIssuedAgainAfterADisconnect) {
    Create();
    ConnectHook listens(ThisProgram());
    DisconnectHook disconnects(ThisProgram());
    listens.FailCall(1, FALSE, ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_EQ(ListenState::ListenFailed, m_endpoint.PollListen());
    EXPECT_EQ(1450u, m_endpoint.LastError());
    EXPECT_EQ(0u, disconnects.Count());
    EXPECT_TRUE(m_endpoint.HasPipe());
    EXPECT_EQ(ListenState::Listening, m_endpoint.PollListen());
    EXPECT_EQ(1u, disconnects.Count());
    EXPECT_EQ(2u, listens.Count());
}

TEST_F(PipeListen, AWaitOnAFailedListenIsNoWait) {
    Create();
    ConnectHook listens(ThisProgram());
    listens.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
    WaitHook waits(ThisProgram());
    EXPECT_FALSE(m_endpoint.WaitForClient(kPatienceMs));
    EXPECT_EQ(0u, waits.Count());
}

TEST_F(PipeListen, AListenThatEndsBadlyIsAFailedOne) {
    Create();
    EXPECT_EQ(ListenState::Listening, m_endpoint.PollListen());
    ResultHook results(ThisProgram());
    results.FailCall(1, FALSE, ERROR_BROKEN_PIPE);
    ASSERT_TRUE(m_client.Connect(m_name));
    EXPECT_FALSE(m_endpoint.WaitForClient(kPatienceMs));
    EXPECT_EQ(ListenState::ListenFailed, m_endpoint.State());
    EXPECT_EQ(109u, m_endpoint.LastError());
    ASSERT_LE(1u, results.Count());
    EXPECT_EQ(FALSE, std::get<3>(results.Calls().front())) << "a listen that has ended is not waited for";
}

TEST_F(PipeListen, AWaitThatFailsIsAFailedListen) {
    Create();
    EXPECT_EQ(ListenState::Listening, m_endpoint.PollListen());
    WaitHook waits(ThisProgram());
    waits.FailEvery(WAIT_FAILED, ERROR_INVALID_HANDLE);
    EXPECT_FALSE(m_endpoint.WaitForClient(10));
    EXPECT_EQ(ListenState::ListenFailed, m_endpoint.State());
    EXPECT_EQ(6u, m_endpoint.LastError());
}

TEST_F(PipeListen, DisconnectingCancelsAnOutstandingListenAndWaitsItOut) {
    Create();
    EXPECT_EQ(ListenState::Listening, m_endpoint.PollListen());
    CancelHook cancels(ThisProgram());
    ResultHook results(ThisProgram());
    DisconnectHook disconnects(ThisProgram());
    m_endpoint.DisconnectClient();
    ASSERT_EQ(1u, cancels.Count());
    ASSERT_EQ(1u, results.Count());
    EXPECT_EQ(std::get<1>(cancels.Calls().front()), std::get<1>(results.Calls().front()));
    EXPECT_EQ(TRUE, std::get<3>(results.Calls().front()));
    EXPECT_EQ(1u, disconnects.Count());
    m_endpoint.DisconnectClient();
    EXPECT_EQ(1u, cancels.Count()) << "nothing was outstanding any more";
}

TEST_F(PipeListen, OnePipeServesManyClientsOneAfterAnother) {
    RAVLO_HOOK(CreateNamedPipeW) pipes(ThisProgram());
    Create();
    for (int i = 0; i < 5; ++i) {
        m_endpoint.PollListen();
        ASSERT_TRUE(m_client.Connect(m_name)) << i;
        ASSERT_TRUE(m_endpoint.WaitForClient(kPatienceMs)) << i;
        m_endpoint.DisconnectClient();
        EXPECT_TRUE(m_client.WaitForDisconnect());
        m_client.Close();
    }
    EXPECT_EQ(1u, pipes.Count());
}

TEST_F(PipeListen, CloseEndsEverythingAndFreesTheName) {
    Create();
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(m_endpoint.WaitForClient(kPatienceMs));
    m_endpoint.Close();
    EXPECT_TRUE(m_client.WaitForDisconnect());
    EXPECT_EQ(ListenState::NoPipe, m_endpoint.State());
    EXPECT_FALSE(m_endpoint.HasPipe());
    EXPECT_EQ(L"", m_endpoint.OwnerSid());
    m_client.Close();
    EXPECT_FALSE(m_client.Connect(m_name, 0));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), m_client.LastError());
    Create();
    EXPECT_EQ(CurrentUserSid(), m_endpoint.OwnerSid());
}

TEST_F(PipeListen, CloseCancelsAnOutstandingListenAndWaitsItOut) {
    Create();
    m_endpoint.PollListen();
    CancelHook cancels(ThisProgram());
    ResultHook results(ThisProgram());
    m_endpoint.Close();
    EXPECT_EQ(1u, cancels.Count());
    ASSERT_EQ(1u, results.Count());
    EXPECT_EQ(TRUE, std::get<3>(results.Calls().front()));
}

/// A camera whose listens fail; its waits of a second are cut short and counted.
class ListenLine : public ModuleTest {
protected:
    ListenLine() : m_waits(m_module.Handle()), m_listens(m_module.Handle()) {
        m_waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
            return WaitHook::CallOriginal(handle, timeout == 1000 ? 10 : timeout);
        });
    }
    std::size_t WaitsOf(DWORD timeoutMs) const {
        std::size_t count = 0;
        for (const auto& call : m_waits.Calls()) {
            count += std::get<1>(call) == timeoutMs ? 1 : 0;
        }
        return count;
    }
    std::size_t RetryWaits() const { return WaitsOf(1000); }
    std::size_t ListenWaits() const { return WaitsOf(100); }
    /// Lets listens pass again and waits until one was issued. A client that comes before would be thrown out by the
    /// disconnect that precedes it.
    void LetListensPass() {
        m_listens.PassOn();
        m_listens.ForgetCalls();
        ASSERT_TRUE(m_listens.WaitForCalls(1));
    }

    WaitHook m_waits;
    ConnectHook m_listens;
};

TEST_F(ListenLine, AFailingListenIsReportedOnceRetriedEachSecondAndItsRecoveryToo) {
    constexpr char kLine[] =
        "FAIL PIPE the listen could not be armed, GetLastError=1450 - retrying once a second. The camera serves the test "
        "pattern until it recovers";
    m_listens.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
    Camera camera(m_module);
    ASSERT_TRUE(m_log.WaitForLine(kLine)) << m_log.Text();
    ASSERT_TRUE(WaitUntil([&] { return RetryWaits() >= 3; }));
    EXPECT_TRUE(m_log.HasMessage(kLine));
    EXPECT_EQ(1u, m_log.CountLines("the listen could not be armed"));
    EXPECT_FALSE(m_log.Contains("PIPE the listen recovered"));

    LetListensPass();
    PipeClient client;
    ASSERT_TRUE(client.Connect(camera.PipeName()));
    ASSERT_TRUE(m_log.WaitForLine("PIPE client connected - ")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("PIPE the listen recovered"));
    EXPECT_LT(m_log.Find("PIPE the listen recovered"), m_log.Find("PIPE client connected - "));

    m_listens.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
    client.Close();
    EXPECT_TRUE(m_log.WaitForCount(kLine, 2)) << "the recovery makes the next failure worth a line\n" << m_log.Text();
    LetListensPass();
    ASSERT_TRUE(client.Connect(camera.PipeName()));
    EXPECT_TRUE(m_log.WaitForCount("PIPE the listen recovered", 2)) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("PIPE created "));
}

TEST_F(ListenLine, AListenThatRecoversWithoutAClientIsNotYetWorthALine) {
    m_listens.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
    Camera camera(m_module);
    ASSERT_TRUE(m_log.WaitForLine("the listen could not be armed")) << m_log.Text();
    LetListensPass();
    // The wait on the listen that passed has begun, has ended without a client, and the next one has begun.
    m_waits.ForgetCalls();
    EXPECT_TRUE(WaitUntil([&] { return ListenWaits() >= 2; }));
    EXPECT_FALSE(m_log.Contains("the listen recovered"));
}

TEST_F(ListenLine, ListenWaitsAreAHundredMilliseconds) {
    Camera camera(m_module);
    ASSERT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    EXPECT_TRUE(WaitUntil([&] { return ListenWaits() >= 1; }));
    EXPECT_EQ(0u, RetryWaits());
}

}  // namespace
}  // namespace ravlo::test
