// Guards of the source that no client can reach: a source without its locks never leaves its creation. They are reached
// here by changing the object's own state. And what protects a source while it is being destroyed.
#include "source/media_source.h"

#include <gtest/gtest.h>

#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "windows/platform_proxies.h"

namespace ravlo::test {
namespace {

/// Hands out a pointer to a private member: access is not checked in an explicit instantiation.
template <class Tag, typename Tag::Member kMember>
struct Expose {
    friend typename Tag::Member MemberOf(Tag) { return kMember; }
};
struct LocksExist {
    using Member = bool RvMediaSource::*;
    friend Member MemberOf(LocksExist);
};
template struct Expose<LocksExist, &RvMediaSource::m_csInitialized>;

/// A source of the test program itself, which says that it has no locks while a test runs.
class SourceWithoutLocks : public AnchoredTest {
protected:
    SourceWithoutLocks() {
        void* object = nullptr;
        Require(RvMediaSource::CreateInstance(IID_IMFMediaSourceEx, &object), "RvMediaSource::CreateInstance");
        m_source = ComPtr<RvMediaSource>::Adopt(static_cast<RvMediaSource*>(static_cast<IMFMediaSourceEx*>(object)));
        m_log.Restart();
        SetLocksExist(false);
    }
    ~SourceWithoutLocks() override {
        SetLocksExist(true);
        m_source->Shutdown();
    }
    void SetLocksExist(bool exist) { m_source.Get()->*MemberOf(LocksExist()) = exist; }

    ComPtr<RvMediaSource> m_source;
};

TEST_F(SourceWithoutLocks, StartIsShutdownBeforeItsArgumentsAreLookedAt) {
    EXPECT_EQ(MF_E_SHUTDOWN, m_source->Start(nullptr, nullptr, nullptr));
    EXPECT_EQ((std::vector<std::string>{"CALL SRC.Start pPD=0000000000000000 pguidTimeFormat=0000000000000000 vt=65535",
                                        "FAIL SRC.Start hr=0xC00D3E85"}),
              m_log.Messages());
}

TEST_F(SourceWithoutLocks, StopIsShutdownAndQueuesNothing) {
    EXPECT_EQ(MF_E_SHUTDOWN, m_source->Stop());
    EXPECT_EQ((std::vector<std::string>{"CALL SRC.Stop", "FAIL SRC.Stop hr=0xC00D3E85"}), m_log.Messages());
    SetLocksExist(true);
    ComPtr<IMFMediaEvent> event;
    EXPECT_EQ(MF_E_NO_EVENTS_AVAILABLE, m_source->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.Put()));
}

TEST_F(SourceWithoutLocks, ActivationIsShutdownAndBuildsNothing) {
    void* object = this;
    EXPECT_EQ(MF_E_SHUTDOWN, m_source->ActivateObject(IID_IMFMediaSource, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.ActivateObject hr=0xC00D3E85")) << m_log.Text();
    EXPECT_FALSE(m_log.Contains("geometry="));
    EXPECT_FALSE(m_log.Contains("BuildStreamForGeometry"));
}

TEST_F(SourceWithoutLocks, ShutdownIsNotedAndTouchesNothingElse) {
    RAVLO_HOOK(MFShutdown) shutdowns(GetModuleHandleW(nullptr));
    EXPECT_EQ(S_OK, m_source->Shutdown());
    EXPECT_EQ((std::vector<std::string>{"CALL SRC.Shutdown", "RET SRC.Shutdown (uninitialized) hr=0x00000000"}),
              m_log.Messages());
    EXPECT_EQ(0u, shutdowns.Count());
    SetLocksExist(true);
    EXPECT_EQ(MF_E_SHUTDOWN, m_source->Pause());
    EXPECT_EQ(S_OK, m_source->Shutdown());
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Shutdown (repeat) hr=0x00000000")) << m_log.Text();
    MFShutdown();  // what the source's own Shutdown did not get to
}

/// An inner object in place of the marshaler that takes and drops a reference on the source while it goes.
class ClingingMarshaler final : public Counted<IUnknown> {
public:
    ClingingMarshaler(IUnknown* outer, std::vector<ULONG>& counts) : m_outer(outer), m_counts(counts) {}
    ~ClingingMarshaler() override {
        m_counts.push_back(m_outer->AddRef());
        m_counts.push_back(m_outer->Release());
    }

private:
    IUnknown* m_outer;
    std::vector<ULONG>& m_counts;
};

class SourceDestruction : public ModuleTest {};

TEST_F(SourceDestruction, ReferencesTakenMeanwhileDoNotDestroyItASecondTime) {
    std::vector<ULONG> counts;
    RAVLO_HOOK(CoCreateFreeThreadedMarshaler) marshalers(m_module.Handle());
    marshalers.Replace([&](IUnknown* outer, IUnknown** inner) -> HRESULT {
        *inner = new ClingingMarshaler(outer, counts);
        return S_OK;
    });
    RAVLO_HOOK(DeleteCriticalSection) deletions(m_module.Handle());
    m_module.CreateSource<IMFMediaSource>().Reset();
    EXPECT_EQ((std::vector<ULONG>{0x40000001, 0x40000000}), counts);
    EXPECT_EQ(2u, deletions.Count()) << "two locks, each deleted once";
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

}  // namespace
}  // namespace ravlo::test
