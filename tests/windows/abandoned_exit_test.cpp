// A process may end whatever the threads of its cameras are at: standing still after their teardown gave them up, or
// serving as if nothing had happened. The exit code tells a crash, the time a hang. Every thread is seen to stand in a
// wait before the process ends: one that is killed inside the C heap leaves it locked under some versions of Wine, and
// that is not the module's to mend.
#include "windows/abandoned_stage.h"

#include "support/frames.h"
#include "support/process.h"

#include <cstdlib>

namespace ravlo::test {
namespace {

constexpr UINT kEndedAsAsked = 7;
constexpr char kDetached[] = "ATTACH DLL_PROCESS_DETACH hInstance=";

UINT Verdict() {
    return ::testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed() ? 1 : kEndedAsAsked;
}

/// Leaves the process in this way; comes back only for "return", with the exit code to return.
int Leave(const std::wstring& way) {
    if (way == L"FreeLibrary") {
        // A host that does not ask whether it may.
        EXPECT_TRUE(FreeLibrary(GetModuleHandleW(L"rvmediasource.dll")));
        EXPECT_FALSE(GetModuleHandleW(L"rvmediasource.dll"));
    }
    if (way == L"exit") {
        std::exit(static_cast<int>(Verdict()));
    }
    if (way != L"return") {
        ExitProcess(Verdict());
    }
    return static_cast<int>(Verdict());
}

/// Arguments: the way out, the reader's place, the gate thread's, and whether the client still holds the stream
/// ("held") or nobody does ("gone").
RAVLO_ROLE(LeaveAbandoned) {
    AbandonedStage& stage = *new AbandonedStage(Narrow(arguments.at(1)), Narrow(arguments.at(2)));
    EXPECT_EQ(S_OK, stage.camera->Shutdown());
    EXPECT_EQ(1u, stage.log.CountLines("did not exit within")) << stage.log.Text();
    for (std::size_t thread = 0; thread < 2; ++thread) {
        if (arguments.at(1 + thread).empty()) {
            EXPECT_EQ(0u, stage.EndOf(thread));
        }
    }
    if (arguments.at(3) == L"gone") {
        stage.camera->ReleaseAll();
        EXPECT_TRUE(stage.log.HasMessage(kNotDestroyed)) << stage.log.Text();
    }
    EXPECT_EQ(S_FALSE, stage.Module().CanUnloadNow());
    return Leave(arguments.at(0));
}

/// Threads that are in a wait for the next sample, or about to enter it.
std::atomic<int> g_waitingForSamples{0};

DWORD WINAPI WaitForSample(DWORD count, const HANDLE* handles, BOOL all, DWORD timeoutMs) {
    ++g_waitingForSamples;
    return WaitForMultipleObjects(count, handles, all, timeoutMs);
}

/// Arguments: the way out, and what the camera is at: "listening", "fed" in the middle of a frame, or "asked" by a
/// thread that waits for its next sample.
RAVLO_ROLE(LeaveServing) {
    [[maybe_unused]] auto& localMachine = *new PrivateLocalMachine;
    [[maybe_unused]] auto& anchor = *new AnchorGuard(CurrentUserSid());
    auto& log = *new TraceLog;
    auto& module = *new ModuleUnderTest;
    const bool asked = arguments.at(1) == L"asked";
    auto& camera = *new Camera(module, {.geometry = asked ? L"64x36@1/1" : L"64x36@200/1"});
    auto& producer = *new PipeClient;
    camera.Start();
    if (arguments.at(1) == L"fed") {
        EXPECT_TRUE(producer.Connect(camera.PipeName())) << log.Text();
        EXPECT_TRUE(producer.SendFrame(64, 36, 3));
        EXPECT_TRUE(camera.PullUntil([](const Sample& sample) { return SignatureOf(sample.bytes, 64, 36) == 3u; }));
        EXPECT_TRUE(producer.SendHeader(HeaderFor(64, 36, 4)));
    }
    EXPECT_TRUE(log.WaitForLine("GATE serving ")) << log.Text();
    if (asked) {
        camera.Pull();
        HookImport(module.Handle(), "WaitForMultipleObjects", &WaitForSample);
        CloseHandle(CreateThread(
            nullptr, 0,
            [](void* stream) -> DWORD {
                while (SUCCEEDED(static_cast<IMFMediaStream*>(stream)->RequestSample(nullptr))) {}
                return 0;
            },
            camera.Stream(), 0, nullptr));
        EXPECT_TRUE(WaitUntil([] { return g_waitingForSamples > 0; }));
    }
    return Leave(arguments.at(0));
}

struct Exit {
    const char* role;
    Arguments arguments;
};

/// Several at a time: most of the time goes into the start of a process.
void LeaveAll(const std::vector<Exit>& exits) {
    constexpr std::size_t kAtATime = 4;
    for (std::size_t first = 0; first < exits.size(); first += kAtATime) {
        std::vector<ChildProcess> children;
        std::vector<TraceLog> logs;
        for (std::size_t i = first; i < exits.size() && i < first + kAtATime; ++i) {
            logs.emplace_back();
            children.push_back(StartRole(exits[i].role, exits[i].arguments));
            logs.back().Follow(children.back().Pid());
        }
        for (std::size_t i = 0; i < children.size(); ++i) {
            std::string what = exits[first + i].role;
            for (const std::wstring& argument : exits[first + i].arguments) {
                what += " '" + Narrow(argument) + "'";
            }
            EXPECT_EQ(kEndedAsAsked, children[i].Wait()) << what << "\n" << children[i].Output();
            EXPECT_EQ(1u, logs[i].CountLines(kDetached)) << what << "\n" << logs[i].Text();
        }
    }
}

TEST(AbandonedAtExit, AProcessEndsOverThreadsThatStandStill) {
    std::vector<Exit> exits;
    for (const wchar_t* way : {L"return", L"ExitProcess", L"exit", L"FreeLibrary"}) {
        exits.push_back({"LeaveAbandoned", {way, L"ReadFile", L"", L"gone"}});
        exits.push_back({"LeaveAbandoned", {way, L"", L"CreateNamedPipeW", L"gone"}});
        exits.push_back({"LeaveAbandoned", {way, L"WaitForMultipleObjects", L"WriteFile", L"gone"}});
    }
    exits.push_back({"LeaveAbandoned", {L"return", L"ReadFile", L"CreateNamedPipeW", L"held"}});
    exits.push_back({"LeaveAbandoned", {L"ExitProcess", L"CreateFileW", L"", L"held"}});
    LeaveAll(exits);
}

TEST(AbandonedAtExit, AProcessEndsOverACameraThatServes) {
    std::vector<Exit> exits;
    for (const wchar_t* way : {L"return", L"ExitProcess", L"exit"}) {
        for (const wchar_t* what : {L"listening", L"fed", L"asked"}) {
            exits.push_back({"LeaveServing", {way, what}});
        }
    }
    LeaveAll(exits);
}

}  // namespace
}  // namespace ravlo::test
