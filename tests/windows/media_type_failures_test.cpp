// Media types of which one attribute after the other cannot be set: the advertised one, and the fixed one that every
// activation builds and drops.
#include <gtest/gtest.h>

#include "stream/video_media_type.h"
#include "windows/activation_fixture.h"

#include <algorithm>
#include <array>

namespace ravlo::test {
namespace {

constexpr HRESULT kFailure = static_cast<HRESULT>(0x80041234);

/// A media type of the platform whose n-th setter fails: its table of functions is replaced by a copy with three
/// entries of the test's own. One at a time.
class FailingType {
public:
    FailingType(IMFMediaType* type, int failing) : m_type(ComPtr<IMFMediaType>::Share(type)) {
        s_failing = failing;
        s_calls = 0;
        s_original = *reinterpret_cast<void***>(type);
        std::copy_n(s_original, kSlots, s_table.begin());
        s_table[kSetUint32] = reinterpret_cast<void*>(&SetUint32);
        s_table[kSetUint64] = reinterpret_cast<void*>(&SetUint64);
        s_table[kSetGuid] = reinterpret_cast<void*>(&SetGuid);
        *reinterpret_cast<void***>(type) = s_table.data();
    }
    ~FailingType() { *reinterpret_cast<void***>(m_type.Get()) = s_original; }
    FailingType(const FailingType&) = delete;
    FailingType& operator=(const FailingType&) = delete;

    int Calls() const { return s_calls; }
    /// References besides that of this object.
    ULONG OtherReferences() const { return ReferenceCount(m_type.Get()) - 1; }

private:
    // Places in the table: three of IUnknown, thirty of the attribute store and five of the media type.
    static constexpr std::size_t kSlots = 38;
    static constexpr std::size_t kSetUint32 = 21;
    static constexpr std::size_t kSetUint64 = 22;
    static constexpr std::size_t kSetGuid = 24;

    template <class Setter, class... A>
    static HRESULT Set(std::size_t slot, A... arguments) {
        return ++s_calls == s_failing ? kFailure : reinterpret_cast<Setter*>(s_original[slot])(arguments...);
    }
    static HRESULT STDMETHODCALLTYPE SetUint32(IMFMediaType* type, const GUID* key, UINT32 value) {
        return Set<decltype(SetUint32)>(kSetUint32, type, key, value);
    }
    static HRESULT STDMETHODCALLTYPE SetUint64(IMFMediaType* type, const GUID* key, UINT64 value) {
        return Set<decltype(SetUint64)>(kSetUint64, type, key, value);
    }
    static HRESULT STDMETHODCALLTYPE SetGuid(IMFMediaType* type, const GUID* key, const GUID* value) {
        return Set<decltype(SetGuid)>(kSetGuid, type, key, value);
    }

    static inline void** s_original = nullptr;
    static inline std::array<void*, kSlots> s_table{};
    static inline int s_failing = 0;
    static inline int s_calls = 0;
    ComPtr<IMFMediaType> m_type;
};

/// Makes the n-th media type that a module creates a failing one.
class FailingTypeHook {
public:
    FailingTypeHook(HMODULE module, int nth, int failing) : m_types(module) {
        m_types.Replace([this, nth, failing](IMFMediaType** out) -> HRESULT {
            const HRESULT hr = Types::CallOriginal(out);
            if (++m_created == nth) {
                type.emplace(*out, failing);
            }
            return hr;
        });
    }
    std::optional<FailingType> type;

private:
    using Types = RAVLO_HOOK(MFCreateMediaType);
    Types m_types;
    int m_created = 0;
};

class VideoTypeFailures : public AnchoredTest {};

TEST_F(VideoTypeFailures, TheFirstAttributeThatCannotBeSetEndsItAndLeavesNothing) {
    for (int failing = 1; failing <= 15; ++failing) {
        FailingTypeHook hook(GetModuleHandleW(nullptr), 1, failing);
        auto* type = reinterpret_cast<IMFMediaType*>(this);
        EXPECT_EQ(kFailure, RvCreateVideoMediaType({64, 36, 60, 1}, &type)) << failing;
        EXPECT_EQ(nullptr, type) << failing;
        ASSERT_TRUE(hook.type);
        EXPECT_EQ(failing, hook.type->Calls()) << "nothing is set after the failure";
        EXPECT_EQ(0u, hook.type->OtherReferences()) << failing;
    }
    FailingTypeHook hook(GetModuleHandleW(nullptr), 1, 16);
    ComPtr<IMFMediaType> type;
    EXPECT_EQ(S_OK, RvCreateVideoMediaType({64, 36, 60, 1}, type.Put()));
    EXPECT_EQ(15, hook.type->Calls()) << "there is no sixteenth";
}

class FixedTypeFailures : public ActivationTest {};

TEST_F(FixedTypeFailures, TheFirstAttributeThatCannotBeSetEndsTheActivationAndLeavesNothing) {
    Create();
    for (int failing = 1; failing <= 15; ++failing) {
        m_log.Restart();
        FailingTypeHook hook(m_module.Handle(), 2, failing);
        EXPECT_EQ(kFailure, Activate()) << failing;
        EXPECT_TRUE(m_log.HasMessage("FAIL SRC.BuildStreamForGeometry/RvCreateVideoMediaTypeB hr=0x80041234"))
            << m_log.Text();
        EXPECT_TRUE(m_log.HasMessage("FAIL SRC.ActivateObject hr=0x80041234"));
        ASSERT_TRUE(hook.type);
        EXPECT_EQ(failing, hook.type->Calls());
        EXPECT_EQ(0u, hook.type->OtherReferences()) << failing;
    }
    FailingTypeHook hook(m_module.Handle(), 2, 16);
    EXPECT_EQ(S_OK, Activate());
    EXPECT_EQ(15, hook.type->Calls());
}

TEST_F(FixedTypeFailures, AnAdvertisedTypeThatCannotBeSetEndsTheActivationUnderItsOwnLabel) {
    Create();
    FailingTypeHook hook(m_module.Handle(), 1, 15);
    EXPECT_EQ(kFailure, Activate());
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.BuildStreamForGeometry/RvCreateVideoMediaType hr=0x80041234"))
        << m_log.Text();
    EXPECT_EQ(0u, hook.type->OtherReferences());
}

}  // namespace
}  // namespace ravlo::test
