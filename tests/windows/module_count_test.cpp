// The count that decides whether the module may go, and the lines of its coming and going.
#include "support/fixtures.h"
#include "windows/log_text.h"

#include <atomic>
#include <thread>
#include <vector>

namespace ravlo::test {
namespace {

class ModuleCountTest : public ModuleTest {};
class ModuleAttach : public AnchoredTest {};

TEST_F(ModuleCountTest, AFactoryKeepsTheModule) {
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
    ComPtr<IClassFactory> factory = m_module.Factory();
    EXPECT_EQ(S_FALSE, m_module.CanUnloadNow());
    factory.Reset();
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

TEST_F(ModuleCountTest, ASourceKeepsTheModuleUntilItsLastReferenceGoes) {
    ComPtr<IMFMediaSource> source = m_module.CreateSource<IMFMediaSource>();
    ComPtr<IMFActivate> activate = source.As<IMFActivate>();
    EXPECT_EQ(S_FALSE, m_module.CanUnloadNow());
    source->Shutdown();
    source.Reset();
    EXPECT_EQ(S_FALSE, m_module.CanUnloadNow());
    activate.Reset();
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

TEST_F(ModuleCountTest, AStreamAloneKeepsTheModule) {
    ComPtr<IMFMediaStream> stream;
    {
        Camera camera(m_module, {.geometry = L"64x36@60/1"});
        camera.Start();
        stream = ComPtr<IMFMediaStream>::Share(camera.Stream());
        camera.Shutdown();
    }
    EXPECT_EQ(S_FALSE, m_module.CanUnloadNow());
    stream.Reset();
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

TEST_F(ModuleCountTest, EveryServerLockCounts) {
    const ComPtr<IClassFactory> factory = m_module.Factory();
    EXPECT_EQ(S_OK, factory->LockServer(TRUE));
    EXPECT_EQ(S_OK, factory->LockServer(2));
    IClassFactory* const raw = factory.Get();
    raw->AddRef();
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    EXPECT_EQ(S_FALSE, m_module.CanUnloadNow());
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    raw->Release();
}

TEST_F(ModuleCountTest, AServerLockOutlivesTheFactory) {
    m_module.Factory()->LockServer(TRUE);
    EXPECT_EQ(S_FALSE, m_module.CanUnloadNow());
    EXPECT_EQ(S_OK, m_module.Factory()->LockServer(FALSE));
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

TEST_F(ModuleCountTest, AnUnlockCanUseUpTheCountOfTheFactoryItselfButNoMore) {
    ComPtr<IClassFactory> factory = m_module.Factory();
    // The factory itself counts one, which an unbalanced unlock takes.
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
    EXPECT_EQ(E_UNEXPECTED, factory->LockServer(FALSE));
    EXPECT_EQ(E_UNEXPECTED, factory->LockServer(FALSE));
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
    // One lock brings it to exactly 1: the refused unlocks have not driven it below 0.
    EXPECT_EQ(S_OK, factory->LockServer(TRUE));
    EXPECT_EQ(S_FALSE, m_module.CanUnloadNow());
    factory.Reset();
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

TEST_F(ModuleCountTest, UnlocksOfManyThreadsSucceedExactlyAsOftenAsThereIsSomethingToUnlock) {
    constexpr int kLocks = 1000;
    constexpr int kThreads = 4;
    const ComPtr<IClassFactory> factory = m_module.Factory();
    for (int i = 0; i < kLocks; ++i) {
        ASSERT_EQ(S_OK, factory->LockServer(TRUE));
    }
    std::atomic<int> succeeded{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < kLocks; ++i) {
                ++(factory->LockServer(FALSE) == S_OK ? succeeded : refused);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    // The locks and the factory's own count.
    EXPECT_EQ(kLocks + 1, succeeded.load());
    EXPECT_EQ(kThreads * kLocks - kLocks - 1, refused.load());
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
    ASSERT_EQ(S_OK, factory->LockServer(TRUE));
}

TEST_F(ModuleCountTest, AFailedCreationLeavesNothingCounted) {
    void* out = nullptr;
    EXPECT_EQ(E_NOINTERFACE, m_module.CreateSource(IID_IClassFactory, &out));
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

TEST_F(ModuleAttach, ComingAndGoingLeaveALineEach) {
    std::string instance;
    {
        LoadHooks loading;
        RAVLO_HOOK(DisableThreadLibraryCalls) threadCalls(loading);
        ModuleUnderTest module(loading);
        instance = PointerText(module.Handle());
        EXPECT_TRUE(m_log.HasMessage("ATTACH DLL_PROCESS_ATTACH hInstance=" + instance)) << m_log.Text();
        ASSERT_EQ(1u, threadCalls.Count());
        EXPECT_EQ(module.Handle(), std::get<0>(threadCalls.Calls()[0]));
        EXPECT_FALSE(m_log.Contains("DLL_PROCESS_DETACH"));
    }
    EXPECT_TRUE(m_log.HasMessage("ATTACH DLL_PROCESS_DETACH hInstance=" + instance)) << m_log.Text();
    EXPECT_EQ(2u, m_log.CountLines("ATTACH "));
}

TEST_F(ModuleAttach, ThreadsThatComeAndGoLeaveNoLine) {
    ModuleUnderTest module;
    std::thread([] {}).join();
    EXPECT_EQ(1u, m_log.CountLines("ATTACH ")) << m_log.Text();
}

TEST_F(ModuleAttach, TheModuleLoadsAlsoWhereThreadCallsCannotBeDisabled) {
    LoadHooks loading;
    RAVLO_HOOK(DisableThreadLibraryCalls) threadCalls(loading);
    threadCalls.FailEvery(FALSE, ERROR_INVALID_HANDLE);
    ModuleUnderTest module(loading);
    EXPECT_EQ(S_OK, module.CanUnloadNow());
    EXPECT_TRUE(m_log.Contains("ATTACH DLL_PROCESS_ATTACH"));
}

}  // namespace
}  // namespace ravlo::test
