// Creation of the source: every step of its initialisation that can fail, and what the platform is owed afterwards.
#include "support/fixtures.h"
#include "support/handles.h"
#include "support/heap_faults.h"
#include "windows/platform_proxies.h"

#include "source/media_source.h"

#include <vector>

namespace ravlo::test {
namespace {

constexpr HRESULT kFailure = static_cast<HRESULT>(0x80041234);

class SourceCreation : public ModuleTest {
protected:
    /// Creates a source, which must fail with `result` and that line and leave nothing alive.
    void ExpectFailure(HRESULT result, const std::string& label) {
        EXPECT_EQ(result, m_module.CreateSource(IID_IMFMediaSource, &m_out)) << label;
        EXPECT_EQ(nullptr, m_out) << label;
        EXPECT_TRUE(m_log.HasMessage(label)) << m_log.Text();
        EXPECT_FALSE(m_log.Contains("RET SRC.Initialize")) << label;
        EXPECT_EQ(S_OK, m_module.CanUnloadNow()) << label;
    }

    void* m_out = reinterpret_cast<void*>(std::uintptr_t{1});
};

TEST_F(SourceCreation, AllStepsLeaveTheirLinesInOrder) {
    const ComPtr<IMFMediaSource> source = m_module.CreateSource<IMFMediaSource>();
    std::size_t at = 0;
    for (const char* text :
         {"CALL SRC.CreateInstance riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000", "CALL SRC.Initialize",
          "WHOAMI pid=", "INITATTR source store=NULL", "ATTR source count=3", "ATTR stream0 count=3",
          "RET SRC.Initialize hr=0x00000000", "QI-SRC {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000",
          "RET SRC.CreateInstance hr=0x00000000",
          "RET FACTORY CreateInstance riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000"}) {
        const auto found = m_log.Find(text, at);
        ASSERT_TRUE(found) << text << "\n" << m_log.Text();
        at = *found + 1;
    }
    EXPECT_FALSE(m_log.Contains("FAIL")) << m_log.Text();
    source->Shutdown();
}

TEST_F(SourceCreation, ANullOutputPointerIsRefusedBeforeAnythingIsBuilt) {
    // The class factory refuses it before; asked of the object's own creation.
    EXPECT_EQ(E_POINTER, RvMediaSource::CreateInstance(IID_IMFMediaSource, nullptr));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.CreateInstance riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.CreateInstance hr=0x80004003"));
    EXPECT_FALSE(m_log.Contains("CALL SRC.Initialize"));
}

TEST_F(SourceCreation, WithoutMemoryThereIsNoSource) {
    const ComPtr<IClassFactory> factory = m_module.Factory();
    HeapFaults heap(m_module.Handle());
    heap.FailNth(1);
    EXPECT_EQ(E_OUTOFMEMORY, factory->CreateInstance(nullptr, IID_IMFMediaSource, &m_out));
    EXPECT_EQ(nullptr, m_out);
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.CreateInstance hr=0x8007000E"));
    EXPECT_TRUE(
        m_log.HasMessage("FAIL FACTORY CreateInstance riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x8007000E"));
    EXPECT_FALSE(m_log.Contains("CALL SRC.Initialize"));
}

TEST_F(SourceCreation, AMissingStateLockEndsItBeforeTheLocksExist) {
    RAVLO_HOOK(InitializeCriticalSectionAndSpinCount) locks(m_module.Handle());
    locks.FailCall(1, FALSE, ERROR_NOT_ENOUGH_MEMORY);
    ExpectFailure(HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY), "FAIL SRC.Initialize/m_cs hr=0x80070008");
    EXPECT_EQ(1u, locks.Count());
    EXPECT_EQ(0u, std::get<1>(locks.Calls()[0])) << "spin count";
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.Shutdown"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Shutdown (uninitialized) hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.CreateInstance hr=0x80070008"));
}

TEST_F(SourceCreation, AMissingTransitionLockTakesTheStateLockAlong) {
    RAVLO_HOOK(InitializeCriticalSectionAndSpinCount) locks(m_module.Handle());
    locks.FailCall(2, FALSE, ERROR_NOT_ENOUGH_MEMORY);
    RAVLO_HOOK(DeleteCriticalSection) deletions(m_module.Handle());
    ExpectFailure(HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY), "FAIL SRC.Initialize/m_csTransition hr=0x80070008");
    ASSERT_EQ(2u, locks.Count());
    ASSERT_EQ(1u, deletions.Count()) << "deleted once, and the one that was never made not at all";
    EXPECT_EQ(std::get<0>(locks.Calls()[0]), std::get<0>(deletions.Calls()[0]));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Shutdown (uninitialized) hr=0x00000000"));
}

TEST_F(SourceCreation, BothLocksGoWithTheSourceTheTransitionLockFirst) {
    RAVLO_HOOK(InitializeCriticalSectionAndSpinCount) locks(m_module.Handle());
    RAVLO_HOOK(DeleteCriticalSection) deletions(m_module.Handle());
    m_module.CreateSource<IMFMediaSource>()->Shutdown();
    ASSERT_EQ(2u, locks.Count());
    ASSERT_EQ(2u, deletions.Count());
    EXPECT_EQ(std::get<0>(locks.Calls()[1]), std::get<0>(deletions.Calls()[0]));
    EXPECT_EQ(std::get<0>(locks.Calls()[0]), std::get<0>(deletions.Calls()[1]));
}

TEST_F(SourceCreation, AMissingMarshalerEndsItBeforeThePlatformIsStarted) {
    RAVLO_HOOK(CoCreateFreeThreadedMarshaler) marshalers(m_module.Handle());
    marshalers.FailCall(1, kFailure);
    RAVLO_HOOK(MFStartup) startups(m_module.Handle());
    RAVLO_HOOK(MFShutdown) shutdowns(m_module.Handle());
    ExpectFailure(kFailure, "FAIL SRC.Initialize/CoCreateFreeThreadedMarshaler hr=0x80041234");
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Shutdown hr=0x00000000"));
    EXPECT_EQ(0u, startups.Count());
    EXPECT_EQ(0u, shutdowns.Count());
}

TEST_F(SourceCreation, APlatformThatDoesNotStartIsNotShutDown) {
    RAVLO_HOOK(MFStartup) startups(m_module.Handle());
    startups.FailCall(1, MF_E_BAD_STARTUP_VERSION);
    RAVLO_HOOK(MFShutdown) shutdowns(m_module.Handle());
    ExpectFailure(MF_E_BAD_STARTUP_VERSION, "FAIL SRC.Initialize/MFStartup hr=0xC00D36E3");
    EXPECT_EQ(0u, shutdowns.Count());
}

TEST_F(SourceCreation, AMissingEventQueueShutsThePlatformDownAgain) {
    RAVLO_HOOK(MFShutdown) shutdowns(m_module.Handle());
    RAVLO_HOOK(MFCreateEventQueue) queues(m_module.Handle());
    queues.FailCall(1, kFailure);
    ExpectFailure(kFailure, "FAIL SRC.Initialize/MFCreateEventQueue hr=0x80041234");
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.CreateInstance hr=0x80041234"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Shutdown hr=0x00000000"));
    EXPECT_EQ(1u, shutdowns.Count());
}

TEST_F(SourceCreation, MissingSourceAttributesShutThePlatformDownAgain) {
    RAVLO_HOOK(MFShutdown) shutdowns(m_module.Handle());
    RAVLO_HOOK(MFCreateAttributes) stores(m_module.Handle());
    stores.FailCall(1, kFailure);
    ExpectFailure(kFailure, "FAIL SRC.Initialize/MFCreateAttributes(source) hr=0x80041234");
    EXPECT_EQ(1u, shutdowns.Count());
}

TEST_F(SourceCreation, MissingStreamAttributesShutThePlatformDownAgain) {
    RAVLO_HOOK(MFShutdown) shutdowns(m_module.Handle());
    RAVLO_HOOK(MFCreateAttributes) stores(m_module.Handle());
    stores.FailCall(2, kFailure);
    ExpectFailure(kFailure, "FAIL SRC.Initialize/MFCreateAttributes(stream0) hr=0x80041234");
    EXPECT_EQ(1u, shutdowns.Count());
}

TEST_F(SourceCreation, BothStoresBeginWithRoomForFour) {
    RAVLO_HOOK(MFCreateAttributes) stores(m_module.Handle());
    m_module.CreateSource<IMFMediaSource>()->Shutdown();
    ASSERT_EQ(2u, stores.Count());
    EXPECT_EQ(4u, std::get<1>(stores.Calls()[0]));
    EXPECT_EQ(4u, std::get<1>(stores.Calls()[1]));
}

/// Lets the n-th write into the store that is created as number `store` fail, and lists the operations that were tried.
class FailingStore {
public:
    FailingStore(HMODULE module, int store, int write) : m_stores(module), m_store(store), m_write(write) {
        m_stores.Replace([this](IMFAttributes** out, UINT32 size) {
            const HRESULT hr = Stores::CallOriginal(out, size);
            if (SUCCEEDED(hr) && ++m_created == m_store) {
                *out = new StoreProxy(ComPtr<IMFAttributes>::Adopt(*out), [this](const StoreCall& call) {
                    m_operations.push_back(call.operation);
                    return static_cast<int>(m_operations.size()) == m_write ? std::optional<HRESULT>(kFailure)
                                                                            : std::nullopt;
                });
            }
            return hr;
        });
    }

    const std::vector<std::string>& Operations() const { return m_operations; }

private:
    using Stores = RAVLO_HOOK(MFCreateAttributes);
    Stores m_stores;
    int m_store;
    int m_write;
    int m_created = 0;
    std::vector<std::string> m_operations;
};

TEST_F(SourceCreation, AFriendlyNameThatCannotBeSetEndsIt) {
    FailingStore store(m_module.Handle(), 1, 1);
    ExpectFailure(kFailure, "FAIL SRC.Initialize/source identity attributes hr=0x80041234");
    EXPECT_EQ(std::vector<std::string>{"SetString"}, store.Operations());
}

TEST_F(SourceCreation, ASourceTypeThatCannotBeSetEndsIt) {
    FailingStore store(m_module.Handle(), 1, 2);
    ExpectFailure(kFailure, "FAIL SRC.Initialize/source identity attributes hr=0x80041234");
    EXPECT_EQ((std::vector<std::string>{"SetString", "SetGUID"}), store.Operations());
}

TEST_F(SourceCreation, AProfileCollectionThatCannotBeSetEndsIt) {
    FailingStore store(m_module.Handle(), 1, 3);
    ExpectFailure(kFailure, "FAIL SRC.Initialize/PublishSensorProfileCollection hr=0x80041234");
    EXPECT_EQ((std::vector<std::string>{"SetString", "SetGUID", "SetUnknown"}), store.Operations());
}

TEST_F(SourceCreation, AnIdentityOfTheStreamThatCannotBeSetEndsIt) {
    const std::vector<std::string> order = {"SetUINT32", "SetGUID", "SetUINT32"};
    for (int write = 1; write <= 3; ++write) {
        m_log.Restart();
        FailingStore store(m_module.Handle(), 2, write);
        ExpectFailure(kFailure, "FAIL SRC.Initialize/stream0 identity attributes hr=0x80041234");
        EXPECT_EQ(std::vector<std::string>(order.begin(), order.begin() + write), store.Operations());
    }
}

TEST_F(SourceCreation, FailedCreationsKeepNeitherMemoryNorHandles) {
    for (int round = 0; round < 2; ++round) {
        HeapFaults heap(m_module.Handle());
        const std::size_t handles = SettledHandles();
        for (int step = 1; step <= 2; ++step) {
            RAVLO_HOOK(MFCreateAttributes) stores(m_module.Handle());
            stores.FailCall(step, kFailure);
            EXPECT_EQ(kFailure, m_module.CreateSource(IID_IMFMediaSource, &m_out));
        }
        if (round == 1) {
            EXPECT_EQ(0, heap.LiveBlocks());
            EXPECT_TRUE(HandlesSettleAt(handles));
        }
    }
}

TEST_F(SourceCreation, ThePlatformIsStartedInItsLiteVersionAndShutDownOnce) {
    RAVLO_HOOK(MFStartup) startups(m_module.Handle());
    RAVLO_HOOK(MFShutdown) shutdowns(m_module.Handle());
    const ComPtr<IMFMediaSource> source = m_module.CreateSource<IMFMediaSource>();
    ASSERT_EQ(1u, startups.Count());
    EXPECT_EQ(0x20070u, std::get<0>(startups.Calls()[0]));
    EXPECT_EQ(1u, std::get<1>(startups.Calls()[0]));
    EXPECT_EQ(0u, shutdowns.Count());
    EXPECT_EQ(S_OK, source->Shutdown());
    EXPECT_EQ(1u, shutdowns.Count());
    EXPECT_EQ(S_OK, source->Shutdown());
    EXPECT_EQ(1u, shutdowns.Count());
}

TEST_F(SourceCreation, ASourceReleasedWithoutShutdownDoesNotShutThePlatformDown) {
    RAVLO_HOOK(MFShutdown) shutdowns(m_module.Handle());
    m_module.CreateSource<IMFMediaSource>().Reset();
    EXPECT_EQ(S_OK, m_module.CanUnloadNow()) << "never activated, so nothing else holds it";
    EXPECT_EQ(0u, shutdowns.Count());
    EXPECT_FALSE(m_log.Contains("SRC.Shutdown"));
}

TEST_F(SourceCreation, ASourceReleasedWithoutShutdownShutsItsEventQueueDown) {
    ComPtr<IMFMediaEventQueue> queue;
    RAVLO_HOOK(MFCreateEventQueue) queues(m_module.Handle());
    queues.Replace([&](IMFMediaEventQueue** out) {
        const HRESULT hr = decltype(queues)::CallOriginal(out);
        queue = ComPtr<IMFMediaEventQueue>::Share(*out);
        return hr;
    });
    m_module.CreateSource<IMFMediaSource>().Reset();
    ComPtr<IMFMediaEvent> event;
    EXPECT_EQ(MF_E_SHUTDOWN, queue->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.Put()));
    EXPECT_EQ(1u, ReferenceCount(queue.Get()));
}

}  // namespace
}  // namespace ravlo::test
