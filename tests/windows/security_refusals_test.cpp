// Through the DLL: whom the camera makes no pipe for, who took its names, and what it does meanwhile.
#include "pipe/pipe_producer.h"

#include "made_pipe.h"
#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pattern.h"
#include "support/pipe_client.h"
#include "support/process.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace ravlo::test {
namespace {

using PipeHook = RAVLO_HOOK(CreateNamedPipeW);
using WaitHook = RAVLO_HOOK(WaitForSingleObject);
using TickHook = RAVLO_HOOK(GetTickCount64);
using LookupHook = RAVLO_HOOK(LookupAccountSidW);

/// The reader's waits of a second and the gate's of half a second are short, and the gate's clock is ten times as fast.
class SecurityRefusals : public ModuleTest {
protected:
    SecurityRefusals() : m_pipes(m_module.Handle()), m_waits(m_module.Handle()), m_ticks(m_module.Handle()) {
        m_waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
            return WaitHook::CallOriginal(handle, timeout == 1000 ? 10 : timeout == 500 ? 50 : timeout);
        });
        const ULONGLONG start = GetTickCount64();
        m_ticks.Replace([start] { return start + 10 * (GetTickCount64() - start); });
    }
    bool WaitForRetries(std::size_t wanted) {
        return WaitUntil([&] {
            std::size_t count = 0;
            for (const auto& call : m_waits.Calls()) {
                count += std::get<1>(call) == 1000 ? 1 : 0;
            }
            return count >= wanted;
        });
    }
    /// The camera refuses this anchor at each of several looks, says so once, and makes nothing.
    /// After a first anchor that went wrong the others are left alone: each would be waited for.
    void ExpectNoPipeFor(const std::wstring& anchor, const std::string& line) {
        if (HasFailure()) {
            return;
        }
        SCOPED_TRACE(Narrow(anchor));
        m_log.Restart();
        m_pipes.ForgetCalls();
        m_waits.ForgetCalls();
        m_anchor.Set(anchor);
        const Camera camera(m_module);
        EXPECT_TRUE(WaitForRetries(2));
        EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE ")) << m_log.Text();
        EXPECT_EQ(1u, m_log.CountLines(line)) << m_log.Text();
        EXPECT_FALSE(m_log.Contains("PIPE authorized user read"));
        EXPECT_FALSE(m_log.Contains("WARN PIPE"));
        EXPECT_EQ(0u, m_pipes.Count()) << "neither pipe is as much as asked for";
    }
    /// A camera that lacks a producer shows its pattern.
    static void ExpectPattern(Camera& camera) { EXPECT_TRUE(TestPatternShift(camera.Pull().bytes, 320, 180)); }

    const std::wstring m_name = UniquePipeName();
    PipeHook m_pipes;
    WaitHook m_waits;
    TickHook m_ticks;
};

TEST_F(SecurityRefusals, NoPipeIsMadeForAWellKnownGroup) {
    for (const wchar_t* const group : {L"S-1-1-0", L"S-1-5-11", L"S-1-5-7", L"S-1-5-4"}) {
        ExpectNoPipeFor(group, "FAIL PIPE no usable authorization anchor (NOT_A_USER) at ");
    }
}

TEST_F(SecurityRefusals, NoPipeIsMadeForAnyBuiltinAlias) {
    // Administrators, Users, Guests, Power Users, the operators of accounts, servers, printers and backups, Replicator.
    std::vector<int> rids = {544, 545, 546, 547, 548, 549, 550, 551, 552};
    // Remote access servers, pre-2000 access, remote desktop, network configuration, forest trusts, performance
    // monitors and logs, authorization access, terminal licences, distributed COM, internet services, cryptography.
    rids.insert(rids.end(), {553, 554, 555, 556, 557, 558, 559, 560, 561, 562, 568, 569});
    // Event log readers, certificate access, remote desktop's three, Hyper-V, access control assistance, remote
    // management, default accounts, storage replicas, device owners, hardware operators, secure shell.
    rids.insert(rids.end(), {573, 574, 575, 576, 577, 578, 579, 580, 581, 582, 583, 584, 585});
    for (const int rid : rids) {
        ExpectNoPipeFor(L"S-1-5-32-" + std::to_wstring(rid),
                        "FAIL PIPE no usable authorization anchor (NOT_A_USER) at ");
    }
}

TEST_F(SecurityRefusals, NoPipeIsMadeForAGroupThatOnlyTheAccountDatabaseKnows) {
    // The local group, the creator's two, network, batch, service, self, terminal and remote logons, the services
    // themselves: each passes by value.
    for (const wchar_t* const group : {L"S-1-2-0", L"S-1-3-0", L"S-1-3-1", L"S-1-5-2", L"S-1-5-3", L"S-1-5-6",
                                       L"S-1-5-10", L"S-1-5-13", L"S-1-5-14", L"S-1-5-18", L"S-1-5-19", L"S-1-5-20"}) {
        ExpectNoPipeFor(group, " names SidTypeWellKnownGroup, NOT a user account - the pipe will NOT be created; ");
    }
}

TEST_F(SecurityRefusals, AnUnresolvableDomainGroupIsTakenForAUserWithAWarning) {
    // What the check by value cannot know: Domain Users of a domain that nobody here can ask.
    m_anchor.Set(L"S-1-5-21-111-222-333-513");
    const Camera camera(m_module);
    ASSERT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("WARN PIPE could not resolve the anchor SID to an account name from session 0; "));
}

TEST_F(SecurityRefusals, EveryErrorOfTheFramePipesCreationIsToldAndThePatternServed) {
    struct Row {
        DWORD error;
        const char* suffix;
    };
    const Row rows[] = {
        {5, "  (the name is already held by another process - a squat, or a stray earlier instance)"},
        {8, ""},
        {87, ""},
        {123, ""},
        {231, ""},
        {1307, ""},
        {1314, ""},
        {1338, ""},
        {1450, ""},
        {1816, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        m_log.Restart();
        m_waits.ForgetCalls();
        m_pipes.FailEvery(INVALID_HANDLE_VALUE, row.error);
        Camera camera(m_module, {.pipeName = m_name});
        EXPECT_TRUE(WaitForRetries(3));
        EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE ")) << m_log.Text();
        EXPECT_TRUE(m_log.HasMessage("FAIL PIPE could not create " + Narrow(m_name) + ", GetLastError=" +
                                     std::to_string(row.error) + row.suffix + " - serving the test pattern"))
            << m_log.Text();
        camera.Start();
        ExpectPattern(camera);
    }
    for (const auto& call : m_pipes.Calls()) {
        EXPECT_EQ(m_name, std::get<0>(call)) << "no gate without a frame pipe, and no other name instead";
    }
}

TEST_F(SecurityRefusals, EveryErrorOfTheGatesCreationIsToldAndTheCameraServes) {
    for (const DWORD error : {5u, 8u, 231u, 1307u, 1450u}) {
        SCOPED_TRACE(error);
        m_log.Restart();
        m_pipes.ForgetCalls();
        m_pipes.FailWhen([](const LPCWSTR& name, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD,
                            const LPSECURITY_ATTRIBUTES&) { return std::wstring(name).ends_with(L".gate"); },
                         INVALID_HANDLE_VALUE, error);
        Camera camera(m_module, {.pipeName = m_name});
        ASSERT_TRUE(m_pipes.WaitForCalls(3)) << "the frame pipe, and the gate twice";
        EXPECT_EQ(1u, m_log.CountLines("GATE could not create"));
        EXPECT_TRUE(m_log.HasMessage(
            "GATE could not create " + Narrow(m_name) + ".gate, GetLastError=" + std::to_string(error) +
            " - retrying every 1000 ms. The bridge sees no demand record and decodes every frame, which is the "
            "behaviour that shipped before the gate existed"))
            << m_log.Text();
        PipeClient producer;
        ASSERT_TRUE(producer.Connect(m_name));
        ASSERT_TRUE(producer.SendFrame(320, 180, 9));
        EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=9")) << m_log.Text();
    }
}

/// Holds a pipe of the given name, open to everybody, until it is killed.
RAVLO_ROLE(Squatter) {
    const MadePipe pipe(arguments.at(0), L"O:S-1-5-21-666-666-666-1666D:(A;;GA;;;WD)");
    std::printf("holding\n");
    std::fflush(stdout);
    Sleep(INFINITE);
    return 0;
}

TEST_F(SecurityRefusals, ASquatterInAnotherProcessGetsNoFrameAndLosesBothNamesToTheCamera) {
    ChildProcess frames = StartRole("Squatter", {m_name});
    ChildProcess demand = StartRole("Squatter", {m_name + L".gate"});
    ASSERT_TRUE(frames.WaitForOutput("holding")) << frames.Output();
    ASSERT_TRUE(demand.WaitForOutput("holding")) << demand.Output();
    // A producer that looks at the owner writes nothing into the squatter's pipe.
    LookupHook lookups(ThisProgram());
    lookups.Replace([](LPCWSTR, PSID, LPWSTR name, LPDWORD, LPWSTR domain, LPDWORD, PSID_NAME_USE use) -> BOOL {
        *name = *domain = L'\0';
        *use = SidTypeUser;
        return TRUE;
    });
    RAVLO_HOOK(WriteFile) writes(ThisProgram());
    PipeProducer producer;
    EXPECT_FALSE(producer.ConnectToServer(m_name.c_str(), 0));
    EXPECT_EQ(1307u, producer.LastError());
    EXPECT_EQ(WriteOutcome::Failed, producer.WriteFrame(FrameHeader{}, "", 1000));
    EXPECT_EQ(6u, producer.LastError());
    EXPECT_EQ(0u, writes.Count());

    Camera camera(m_module, {.pipeName = m_name});
    EXPECT_TRUE(WaitForRetries(3));
    EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE could not create " + Narrow(m_name) + ", GetLastError="));
    camera.Start();
    ExpectPattern(camera);

    frames.Kill();
    ASSERT_TRUE(m_log.WaitForLine("PIPE created " + Narrow(m_name))) << m_log.Text();
    ASSERT_TRUE(m_log.WaitForLine("GATE could not create " + Narrow(m_name) + ".gate, GetLastError=")) << m_log.Text();
    EXPECT_TRUE(producer.ConnectToServer(m_name.c_str(), kPatienceMs)) << producer.LastError();
    EXPECT_EQ(OwnerTrust::AuthorizedUser, producer.Owner());
    producer.Disconnect();

    demand.Kill();
    EXPECT_TRUE(m_log.WaitForLine("GATE serving " + Narrow(m_name) + ".gate")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE ")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("GATE could not create"));
}

TEST_F(SecurityRefusals, ASilentClientHoldsTheOnePlaceAsLongAsItStaysAndCostsNothingElse) {
    Camera camera(m_module, {.pipeName = m_name});
    PipeClient silent;
    ASSERT_TRUE(silent.Connect(m_name)) << m_log.Text();
    ASSERT_TRUE(m_log.WaitForLine("PIPE client connected")) << m_log.Text();
    camera.Start();
    GateClient gate;
    ASSERT_TRUE(gate.Connect(m_name)) << m_log.Text();
    for (int i = 0; i < 3; ++i) {
        ExpectPattern(camera);
        EXPECT_TRUE(gate.Read());
        PipeClient next;
        EXPECT_FALSE(next.Connect(m_name, 0));
        EXPECT_EQ(static_cast<DWORD>(ERROR_PIPE_BUSY), next.LastError());
    }
    silent.Close();
    PipeClient next;
    ASSERT_TRUE(next.Connect(m_name)) << m_log.Text();
    ASSERT_TRUE(next.SendFrame(320, 180, 8));
    EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=8")) << m_log.Text();
}

TEST_F(SecurityRefusals, AnAnchorThatTurnsBadLaterHoldsOnlyForTheNextPipe) {
    {
        const Camera camera(m_module, {.pipeName = m_name});
        ASSERT_TRUE(m_log.WaitForLine("GATE serving ")) << m_log.Text();
        m_anchor.Set(L"S-1-1-0");
        PipeClient producer;
        ASSERT_TRUE(producer.Connect(m_name));
        ASSERT_TRUE(producer.SendFrame(320, 180, 3));
        EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=3")) << m_log.Text();
        EXPECT_FALSE(m_log.Contains("FAIL PIPE "));
    }
    ExpectNoPipeFor(L"S-1-1-0", "FAIL PIPE no usable authorization anchor (NOT_A_USER) at ");
}

}  // namespace
}  // namespace ravlo::test
