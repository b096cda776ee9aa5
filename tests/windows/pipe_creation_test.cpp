// Every step at which the creation of the frame pipe can fail: the stage and error of the endpoint, and the reader's
// line.
#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"

#include <sddl.h>

namespace ravlo::test {
namespace {

using PipeHook = RAVLO_HOOK(CreateNamedPipeW);
using WaitHook = RAVLO_HOOK(WaitForSingleObject);

class PipeCreation : public AnchoredTest {
protected:
    bool Create() { return m_endpoint.Create(m_name.c_str(), m_user); }
    void ExpectFailure(CreateStage stage, DWORD error) {
        const std::size_t handles = SettledHandles();
        EXPECT_FALSE(Create());
        EXPECT_EQ(stage, m_endpoint.Stage());
        EXPECT_EQ(error, m_endpoint.LastError());
        EXPECT_FALSE(m_endpoint.HasPipe());
        EXPECT_EQ(ListenState::NoPipe, m_endpoint.State());
        EXPECT_EQ(handles, CountHandles());
    }

    const std::wstring m_user = CurrentUserSid();  // asked for before any hook makes that fail
    std::wstring m_name = UniquePipeName();
    PipeEndpoint m_endpoint;
};

TEST(CreateStages, HaveTheseNumbers) {
    EXPECT_EQ(1u, static_cast<std::uint32_t>(CreateStage::Dacl));
    EXPECT_EQ(2u, static_cast<std::uint32_t>(CreateStage::Owner));
    EXPECT_EQ(3u, static_cast<std::uint32_t>(CreateStage::Descriptor));
    EXPECT_EQ(4u, static_cast<std::uint32_t>(CreateStage::ListenEvent));
    EXPECT_EQ(5u, static_cast<std::uint32_t>(CreateStage::Pipe));
    EXPECT_EQ(6u, static_cast<std::uint32_t>(CreateStage::Name));
}

TEST_F(PipeCreation, APipeThatIsThereListensAndKnowsItsNameAndOwner) {
    ASSERT_TRUE(Create());
    EXPECT_EQ(CreateStage::None, m_endpoint.Stage());
    EXPECT_EQ(ListenState::Listening, m_endpoint.State());
    EXPECT_EQ(m_name, m_endpoint.Name());
    EXPECT_EQ(CurrentUserSid(), m_endpoint.OwnerSid());
}

TEST_F(PipeCreation, ANameOutsideTheGrammarIsStage6AndLeavesAnEarlierPipeAlone) {
    ASSERT_TRUE(Create());
    for (const wchar_t* name : {L"\\\\.\\pipe\\Ravlo.", L"\\\\.\\pipe\\Ravlo.0", L"\\\\.\\pipe\\Ravlo.01",
                                L"\\\\.\\pipe\\ravlo.1", L"\\\\.\\pipe\\Ravlo.12345678901", L"\\\\.\\pipe\\Ravlo.gate",
                                L"\\\\.\\pipe\\Ravlo.12a", L"\\\\.\\pipe\\Other", L""}) {
        EXPECT_FALSE(m_endpoint.Create(name, CurrentUserSid())) << name;
        EXPECT_EQ(CreateStage::Name, m_endpoint.Stage());
        EXPECT_EQ(123u, m_endpoint.LastError());
    }
    EXPECT_FALSE(m_endpoint.Create(nullptr, CurrentUserSid()));
    EXPECT_EQ(CreateStage::Name, m_endpoint.Stage());
    EXPECT_TRUE(m_endpoint.HasPipe());
    EXPECT_EQ(m_name, m_endpoint.Name());
}

TEST_F(PipeCreation, CreatingAnewClosesWhatWasThereFirst) {
    ConnectedPipe before;
    const std::wstring name = UniquePipeName();
    ASSERT_TRUE(before.endpoint.Create(name.c_str(), CurrentUserSid()));
    EXPECT_TRUE(before.client.WaitForDisconnect());
    EXPECT_EQ(ListenState::Listening, before.endpoint.State());
    EXPECT_FALSE(before.endpoint.Create(name.c_str(), std::wstring()));
    EXPECT_FALSE(before.endpoint.HasPipe()) << "a creation that fails later has closed the earlier pipe all the same";
    EXPECT_EQ(L"", before.endpoint.OwnerSid());
}

TEST_F(PipeCreation, AUserThatIsNoSidIsStage1) {
    EXPECT_FALSE(m_endpoint.Create(m_name.c_str(), std::wstring()));
    EXPECT_EQ(CreateStage::Dacl, m_endpoint.Stage());
    EXPECT_EQ(87u, m_endpoint.LastError());
    EXPECT_FALSE(m_endpoint.Create(m_name.c_str(), L"nobody"));
    EXPECT_EQ(CreateStage::Dacl, m_endpoint.Stage());
    EXPECT_EQ(1337u, m_endpoint.LastError());
    RAVLO_HOOK(AddAccessAllowedAce) adds(ThisProgram());
    adds.FailEvery(FALSE, 0);
    ExpectFailure(CreateStage::Dacl, 87);
}

TEST_F(PipeCreation, AnUnknownOwnUserIsStage2) {
    {
        RAVLO_HOOK(OpenProcessToken) tokens(ThisProgram());
        tokens.FailEvery(FALSE, ERROR_ACCESS_DENIED);
        ExpectFailure(CreateStage::Owner, 5);
        tokens.FailEvery(FALSE, 0);
        ExpectFailure(CreateStage::Owner, 1337);
    }
    {
        RAVLO_HOOK(ConvertSidToStringSidW) texts(ThisProgram());
        texts.FailEvery(FALSE, ERROR_NOT_ENOUGH_MEMORY);
        ExpectFailure(CreateStage::Owner, ERROR_NOT_ENOUGH_MEMORY);
    }
    RAVLO_HOOK(ConvertStringSidToSidW) converts(ThisProgram());
    converts.FailCall(2, FALSE, 0);  // the first is the authorized user's
    ExpectFailure(CreateStage::Owner, 1337);
}

TEST_F(PipeCreation, ADescriptorThatCannotBeAssembledIsStage3) {
    {
        RAVLO_HOOK(InitializeSecurityDescriptor) initialises(ThisProgram());
        initialises.FailEvery(FALSE, ERROR_UNKNOWN_REVISION);
        ExpectFailure(CreateStage::Descriptor, ERROR_UNKNOWN_REVISION);
    }
    {
        RAVLO_HOOK(SetSecurityDescriptorDacl) dacls(ThisProgram());
        dacls.FailEvery(FALSE, ERROR_INVALID_ACL);
        ExpectFailure(CreateStage::Descriptor, ERROR_INVALID_ACL);
    }
    RAVLO_HOOK(SetSecurityDescriptorOwner) owners(ThisProgram());
    owners.FailEvery(FALSE, ERROR_INVALID_OWNER);
    ExpectFailure(CreateStage::Descriptor, 1307);
}

TEST_F(PipeCreation, AListenEventThatCannotBeMadeIsStage4) {
    RAVLO_HOOK(CreateEventW) events(ThisProgram());
    events.FailEvery(nullptr, ERROR_NO_SYSTEM_RESOURCES);
    ExpectFailure(CreateStage::ListenEvent, 1450);
}

TEST_F(PipeCreation, APipeThatCannotBeMadeIsStage5AndItsEventGoesAgain) {
    PipeHook pipes(ThisProgram());
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    ExpectFailure(CreateStage::Pipe, 5);
    pipes.PassOn();
    EXPECT_TRUE(Create());
    EXPECT_EQ(CreateStage::None, m_endpoint.Stage());
}

TEST_F(PipeCreation, ASecondServerOfTheNameIsRefused) {
    PipeEndpoint first;
    ASSERT_TRUE(first.Create(m_name.c_str(), CurrentUserSid()));
    EXPECT_FALSE(Create());
    EXPECT_EQ(CreateStage::Pipe, m_endpoint.Stage());
    EXPECT_TRUE(m_endpoint.LastError() == ERROR_ACCESS_DENIED || m_endpoint.LastError() == ERROR_PIPE_BUSY)
        << m_endpoint.LastError();
    first.Close();
    EXPECT_TRUE(Create());
}

/// The reader's lines, through the DLL. Its waits of a second are cut short; they are recorded as they were asked for.
class PipeCreationLine : public PipeCreation {
protected:
    PipeCreationLine() : m_waits(m_module.Handle()) {
        m_waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
            return WaitHook::CallOriginal(handle, timeout == 1000 ? 10 : timeout);
        });
    }
    std::size_t RetryWaits() const {
        std::size_t count = 0;
        for (const auto& call : m_waits.Calls()) {
            count += std::get<1>(call) == 1000 ? 1 : 0;
        }
        return count;
    }
    /// A camera whose creation fails three times writes the line once; it serves when the cause has gone.
    template <class Hook>
    void ExpectLineOnce(Hook& hook, const std::string& line) {
        Camera camera(m_module, {.pipeName = m_name});
        EXPECT_TRUE(m_log.WaitForLine("FAIL PIPE ")) << m_log.Text();
        EXPECT_TRUE(WaitUntil([&] { return RetryWaits() >= 3; }));
        EXPECT_TRUE(m_log.HasMessage(line)) << m_log.Text();
        EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE "));
        EXPECT_FALSE(m_log.Contains("PIPE created"));
        hook.PassOn();
        EXPECT_TRUE(m_log.WaitForLine("PIPE created " + Narrow(m_name))) << m_log.Text();
        EXPECT_EQ(1u, m_log.CountLines("PIPE authorized user read")) << "a failed creation keeps the anchor";
    }

    ModuleUnderTest m_module;
    WaitHook m_waits;
};

TEST_F(PipeCreationLine, Stage1) {
    RAVLO_HOOK(AddAccessAllowedAce) adds(m_module.Handle());
    adds.FailEvery(FALSE, ERROR_ALLOTTED_SPACE_EXCEEDED);
    ExpectLineOnce(
        adds,
        "FAIL PIPE the authorized SID would not build an ACL, GetLastError=1344 - no pipe was created; serving "
        "the test pattern");
}

TEST_F(PipeCreationLine, Stage2) {
    RAVLO_HOOK(OpenProcessToken) tokens(m_module.Handle());
    const DWORD mainThread = GetCurrentThreadId();
    tokens.FailWhen([mainThread](HANDLE, DWORD, PHANDLE) { return GetCurrentThreadId() != mainThread; }, FALSE,
                    ERROR_ACCESS_DENIED);
    ExpectLineOnce(
        tokens,
        "FAIL PIPE this process could not determine its OWN token user SID, GetLastError=5 - no pipe was "
        "created, because a pipe with an unstated owner is one rvfeeder.exe refuses; serving the test pattern");
}

TEST_F(PipeCreationLine, Stage3) {
    RAVLO_HOOK(SetSecurityDescriptorOwner) owners(m_module.Handle());
    owners.FailEvery(FALSE, ERROR_INVALID_OWNER);
    ExpectLineOnce(
        owners,
        "FAIL PIPE the security descriptor (DACL or OWNER) could not be assembled, GetLastError=1307 - no pipe "
        "was created; serving the test pattern");
}

TEST_F(PipeCreationLine, Stage4) {
    RAVLO_HOOK(CreateEventW) events(m_module.Handle());
    const DWORD mainThread = GetCurrentThreadId();
    events.FailWhen(
        [mainThread](LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) { return GetCurrentThreadId() != mainThread; },
        nullptr, ERROR_NO_SYSTEM_RESOURCES);
    ExpectLineOnce(
        events,
        "FAIL PIPE the overlapped listen event could not be created, GetLastError=1450 - no pipe was created; "
        "serving the test pattern");
}

TEST_F(PipeCreationLine, Stage5WithTheNameTaken) {
    PipeHook pipes(m_module.Handle());
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    ExpectLineOnce(pipes,
                   "FAIL PIPE could not create " + Narrow(m_name) +
                       ", GetLastError=5  (the name is already held by another process - a squat, or a stray earlier "
                       "instance) - serving the test pattern");
}

TEST_F(PipeCreationLine, Stage5WithAnyOtherError) {
    PipeHook pipes(m_module.Handle());
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_PIPE_BUSY);
    ExpectLineOnce(pipes,
                   "FAIL PIPE could not create " + Narrow(m_name) + ", GetLastError=231 - serving the test pattern");
}

TEST_F(PipeCreationLine, ARealSquatterKeepsTheCameraOnItsPatternUntilItGoes) {
    ASSERT_TRUE(Create());
    Camera camera(m_module, {.pipeName = m_name});
    ASSERT_TRUE(m_log.WaitForLine("FAIL PIPE could not create " + Narrow(m_name) + ", GetLastError=")) << m_log.Text();
    m_endpoint.Close();
    EXPECT_TRUE(m_log.WaitForLine("PIPE created " + Narrow(m_name))) << m_log.Text();
    PipeClient client;
    EXPECT_TRUE(client.Connect(m_name));
}

TEST_F(PipeCreationLine, OneRunOfFailuresHasOneLineWhateverTheStage) {
    PipeHook pipes(m_module.Handle());
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_PIPE_BUSY);
    Camera camera(m_module, {.pipeName = m_name});
    ASSERT_TRUE(m_log.WaitForLine("FAIL PIPE could not create ")) << m_log.Text();
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    const std::size_t before = RetryWaits();
    ASSERT_TRUE(WaitUntil([&] { return RetryWaits() >= before + 3; }));
    EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE "));
}

TEST_F(PipeCreation, ANameOutsideTheGrammarHasALineOfItsOwn) {
    RunningReader running(L"\\\\.\\pipe\\Other");
    running.Start();
    ASSERT_TRUE(m_log.WaitForLine("FAIL PIPE ")) << m_log.Text();
    running.Stop();
    EXPECT_TRUE(
        m_log.HasMessage("FAIL PIPE the pipe name is not a ravlo name, GetLastError=123 - no pipe was created; "
                         "serving the test pattern"))
        << m_log.Text();
    EXPECT_FALSE(running.reader.Status().created.load());
}

TEST_F(PipeCreation, ASuccessMakesTheNextFailureWorthALineAgain) {
    PipeHook pipes(ThisProgram());
    WaitHook waits(ThisProgram());
    waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
        return WaitHook::CallOriginal(handle, timeout == 1000 ? 10 : timeout);
    });
    RunningReader running(m_name);
    for (std::size_t run = 1; run <= 2; ++run) {
        pipes.FailCall(1, INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
        running.Start();
        EXPECT_TRUE(m_log.WaitForCount("FAIL PIPE could not create ", run)) << m_log.Text();
        EXPECT_TRUE(m_log.WaitForCount("PIPE created ", run)) << m_log.Text();
        running.Stop();
        running.reader.Release();
        EXPECT_EQ(run, m_log.CountLines("FAIL PIPE could not create "));
    }
}

TEST_F(PipeCreation, ARetryComesASecondAfterTheFailure) {
    PipeHook pipes(ThisProgram());
    std::atomic<ULONGLONG> first{0};
    std::atomic<ULONGLONG> second{0};
    pipes.Replace([&](LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD out, DWORD in, DWORD timeout,
                      LPSECURITY_ATTRIBUTES attributes) -> HANDLE {
        if (first == 0) {
            first = GetTickCount64();
            SetLastError(ERROR_PIPE_BUSY);
            return INVALID_HANDLE_VALUE;
        }
        second = GetTickCount64();
        return PipeHook::CallOriginal(name, openMode, pipeMode, instances, out, in, timeout, attributes);
    });
    RunningReader running(m_name);
    running.Start();
    ASSERT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    running.Stop();
    EXPECT_GE(second - first, 964u);
    EXPECT_LE(second - first, 1500u);
}

}  // namespace
}  // namespace ravlo::test
