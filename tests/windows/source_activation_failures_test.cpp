// Activations of which a part cannot be built: the source stays as it was, and the next one begins anew.
#include "support/handles.h"
#include "support/heap_faults.h"
#include "windows/activation_fixture.h"

#include <functional>

namespace ravlo::test {
namespace {

constexpr HRESULT kFailure = static_cast<HRESULT>(0x80041234);

class SourceActivationFailures : public ActivationTest {
protected:
    /// The activation fails with that line, leaves a source that is not activated, and the next one works.
    void ExpectFailureAndRetry(HRESULT result, const std::string& line, const std::function<void()>& mend) {
        EXPECT_EQ(result, Activate());
        EXPECT_TRUE(m_log.HasMessage(line)) << m_log.Text();
        ComPtr<IMFPresentationDescriptor> presentation;
        EXPECT_EQ(MF_E_NOT_INITIALIZED, m_source->CreatePresentationDescriptor(presentation.Put()));
        mend();
        Require(m_activate->SetString(kGeometryAttribute, L"128x72@30/1"), "SetString");
        EXPECT_EQ(S_OK, Activate());
        EXPECT_TRUE(m_log.HasMessage("CALL SRC.ActivateObject geometry=128x72 @30/1 source=client-attribute"))
            << "the geometry is chosen anew";
        EXPECT_EQ(S_OK, m_source->CreatePresentationDescriptor(presentation.Put()));
    }
};

TEST_F(SourceActivationFailures, AMediaTypeThatCannotBeBuilt) {
    Create();
    RAVLO_HOOK(MFCreateMediaType) types(m_module.Handle());
    types.FailCall(1, kFailure);
    ExpectFailureAndRetry(kFailure, "FAIL SRC.BuildStreamForGeometry/RvCreateVideoMediaType hr=0x80041234",
                          [&] { types.PassOn(); });
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.ActivateObject hr=0x80041234"));
    EXPECT_FALSE(m_log.HasMessage("FAIL SRC.BuildStreamForGeometry hr=0x80041234"));
}

TEST_F(SourceActivationFailures, AFixedTypeThatCannotBeBuilt) {
    Create();
    RAVLO_HOOK(MFCreateMediaType) types(m_module.Handle());
    types.FailCall(2, kFailure);
    ExpectFailureAndRetry(kFailure, "FAIL SRC.BuildStreamForGeometry/RvCreateVideoMediaTypeB hr=0x80041234",
                          [&] { types.PassOn(); });
    EXPECT_FALSE(m_log.HasMessage("FAIL SRC.BuildStreamForGeometry hr=0x80041234"));
}

TEST_F(SourceActivationFailures, AStreamDescriptorThatCannotBeBuilt) {
    Create();
    RAVLO_HOOK(MFCreateStreamDescriptor) descriptors(m_module.Handle());
    descriptors.FailCall(1, kFailure);
    ExpectFailureAndRetry(kFailure, "FAIL SRC.BuildStreamForGeometry hr=0x80041234", [&] { descriptors.PassOn(); });
    ASSERT_EQ(2u, descriptors.Count());
    EXPECT_EQ(0u, std::get<0>(descriptors.Calls()[1]));
    EXPECT_EQ(1u, std::get<1>(descriptors.Calls()[1]));
}

TEST_F(SourceActivationFailures, APresentationDescriptorThatCannotBeBuilt) {
    Create();
    RAVLO_HOOK(MFCreatePresentationDescriptor) descriptors(m_module.Handle());
    descriptors.FailCall(1, kFailure);
    ExpectFailureAndRetry(kFailure, "FAIL SRC.BuildStreamForGeometry hr=0x80041234", [&] { descriptors.PassOn(); });
}

TEST_F(SourceActivationFailures, AStreamWithoutMemory) {
    Create();
    HeapFaults heap(m_module.Handle());
    heap.FailFromSize(10'000'000);
    ExpectFailureAndRetry(E_OUTOFMEMORY, "FAIL SRC.BuildStreamForGeometry hr=0x8007000E", [&] { heap.PassOn(); });
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.ActivateObject hr=0x8007000E"));
}

TEST_F(SourceActivationFailures, AStreamWithoutAnEventQueue) {
    Create();
    RAVLO_HOOK(MFCreateEventQueue) queues(m_module.Handle());
    queues.FailCall(1, kFailure);
    ExpectFailureAndRetry(kFailure, "FAIL SRC.BuildStreamForGeometry hr=0x80041234", [&] { queues.PassOn(); });
}

TEST_F(SourceActivationFailures, FailedActivationsKeepNeitherMemoryNorHandles) {
    Create();
    for (int round = 0; round < 2; ++round) {
        HeapFaults heap(m_module.Handle());
        const std::size_t handles = SettledHandles();
        RAVLO_HOOK(MFCreateEventQueue) queues(m_module.Handle());
        queues.FailCall(1, kFailure);
        EXPECT_EQ(kFailure, Activate());
        RAVLO_HOOK(MFCreatePresentationDescriptor) descriptors(m_module.Handle());
        descriptors.FailCall(1, kFailure);
        EXPECT_EQ(kFailure, Activate());
        if (round == 1) {
            EXPECT_EQ(0, heap.LiveBlocks());
            EXPECT_TRUE(HandlesSettleAt(handles));
        }
    }
}

}  // namespace
}  // namespace ravlo::test
