// The sensor profile collection: what it holds, each step that can fail, and systems that have no such library.
#include "support/fixtures.h"
#include "windows/platform_proxies.h"

#include "platform/sensor_profile.h"
#include "source/sensor_profiles.h"

#include <atomic>

namespace ravlo::test {
namespace {

constexpr GUID kProfiles = {0x36EBDC44, 0xB12C, 0x441B, {0x89, 0xF4, 0x08, 0xB2, 0xF4, 0x1A, 0x9C, 0xFC}};
constexpr GUID kLegacyProfile = {0xB4894D81, 0x62B7, 0x4EEC, {0x87, 0x40, 0x80, 0x65, 0x8C, 0x4A, 0x9D, 0x3E}};
constexpr HRESULT kFailure = static_cast<HRESULT>(0x80041234);
constexpr char kFailureLine[] = "FAIL SRC.Initialize/PublishSensorProfileCollection hr=0x80041234";

class SourceProfiles : public ModuleTest {
protected:
    /// The collection in the source's store; empty when there is none.
    static ComPtr<IMFSensorProfileCollection> CollectionOf(IMFMediaSourceEx* source) {
        ComPtr<IMFAttributes> store;
        Require(source->GetSourceAttributes(store.Put()), "GetSourceAttributes");
        ComPtr<IMFSensorProfileCollection> collection;
        store->GetUnknown(kProfiles, __uuidof(IMFSensorProfileCollection), collection.PutVoid());
        return collection;
    }

    /// A source comes about without the collection and says why.
    void ExpectNone(DWORD error) {
        const ComPtr<IMFMediaSourceEx> source = m_module.CreateSource<IMFMediaSourceEx>();
        EXPECT_FALSE(CollectionOf(source.Get()));
        EXPECT_TRUE(
            m_log.HasMessage("WARN SRC.Initialize mfsensorgroup.dll offers no sensor profiles on this system (err=" +
                             std::to_string(error) + ") - the source goes on without a profile collection"))
            << m_log.Text();
        EXPECT_TRUE(m_log.HasMessage("ATTR source count=2"));
        EXPECT_TRUE(m_log.HasMessage("RET SRC.Initialize hr=0x00000000"));
        source->Shutdown();
    }
};

TEST_F(SourceProfiles, TheCollectionHoldsOneLegacyProfileForStreamZero) {
    const ComPtr<IMFMediaSourceEx> source = m_module.CreateSource<IMFMediaSourceEx>();
    const ComPtr<IMFSensorProfileCollection> collection = CollectionOf(source.Get());
    ASSERT_TRUE(collection);
    EXPECT_EQ(1u, collection->GetProfileCount());
    ComPtr<IMFSensorProfile> profile;
    ASSERT_EQ(S_OK, collection->GetProfile(0, profile.Put()));
    SENSORPROFILEID id{};
    EXPECT_EQ(S_OK, profile->GetProfileId(&id));
    EXPECT_EQ(kLegacyProfile, id.Type);
    EXPECT_EQ(0u, id.Index);
    ComPtr<IMFMediaType> type;
    Require(MFCreateMediaType(type.Put()), "MFCreateMediaType");
    BOOL supported = FALSE;
    EXPECT_EQ(S_OK, profile->IsMediaTypeSupported(0, type.Get(), &supported))
        << "its filter is the one without conditions";
    EXPECT_TRUE(supported);
    EXPECT_EQ(S_OK, profile->IsMediaTypeSupported(1, type.Get(), &supported));
    EXPECT_FALSE(supported);
    EXPECT_FALSE(m_log.Contains("WARN"));
    source->Shutdown();
    EXPECT_EQ(1u, ReferenceCount(collection.Get())) << "only the store held it";
}

TEST_F(SourceProfiles, WithoutTheLibraryTheSourceGoesOn) {
    RAVLO_HOOK(LoadLibraryExW) libraries(m_module.Handle());
    libraries.FailEvery(nullptr, ERROR_MOD_NOT_FOUND);
    ExpectNone(126);
    ASSERT_EQ(1u, libraries.Count());
    EXPECT_EQ(L"mfsensorgroup.dll", std::get<0>(libraries.Calls()[0]));
    EXPECT_EQ(DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32}, std::get<2>(libraries.Calls()[0]))
        << "from the system directory only";
}

TEST_F(SourceProfiles, WithoutTheLibraryTheCameraStillWorks) {
    RAVLO_HOOK(LoadLibraryExW) libraries(m_module.Handle());
    libraries.FailEvery(nullptr, ERROR_MOD_NOT_FOUND);
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    EXPECT_EQ(3456u, camera.Pull().bytes.size());
}

TEST_F(SourceProfiles, WithoutOneOfTheFunctionsTheSourceGoesOn) {
    for (const char* missing : {"MFCreateSensorProfileCollection", "MFCreateSensorProfile"}) {
        m_log.Restart();
        RAVLO_HOOK(GetProcAddress) functions(m_module.Handle());
        functions.FailWhen([missing](HMODULE, LPCSTR name) { return std::string(name) == missing; }, nullptr,
                           ERROR_PROC_NOT_FOUND);
        ExpectNone(127);
    }
}

TEST_F(SourceProfiles, ALaterSourceFindsTheLibraryThatAnEarlierOneMissed) {
    {
        RAVLO_HOOK(LoadLibraryExW) libraries(m_module.Handle());
        libraries.FailEvery(nullptr, ERROR_NOT_ENOUGH_MEMORY);
        ExpectNone(8);
    }
    const ComPtr<IMFMediaSourceEx> source = m_module.CreateSource<IMFMediaSourceEx>();
    EXPECT_TRUE(CollectionOf(source.Get()));
    source->Shutdown();
}

TEST_F(SourceProfiles, WithoutAStoreThereIsNothingToPublishInto) {
    EXPECT_EQ(E_UNEXPECTED, PublishSensorProfileCollection(nullptr));
    EXPECT_FALSE(m_log.Contains("WARN"));
}

// The library's functions and objects with one step that fails.

enum class Step { None, Collection, Profile, Filter, Add };

struct Staged {
    Step failing = Step::None;
    std::atomic<int> alive{0};
    GUID type{};
    UINT32 index = 99;
    bool constraints = true;
    UINT32 stream = 99;
    std::wstring filter;
    IMFSensorProfile* added = nullptr;
};
Staged* g_staged = nullptr;

HRESULT ResultOf(Step step) {
    return g_staged->failing == step ? kFailure : S_OK;
}

class StagedProfile final : public Counted<IMFSensorProfile> {
public:
    StagedProfile() { ++g_staged->alive; }
    ~StagedProfile() override { --g_staged->alive; }
    HRESULT STDMETHODCALLTYPE GetProfileId(SENSORPROFILEID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AddProfileFilter(UINT32 stream, LPCWSTR filter) override {
        g_staged->stream = stream;
        g_staged->filter = filter;
        return ResultOf(Step::Filter);
    }
    HRESULT STDMETHODCALLTYPE IsMediaTypeSupported(UINT32, IMFMediaType*, BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AddBlockedControl(LPCWSTR) override { return E_NOTIMPL; }
};

class StagedCollection final : public Counted<IMFSensorProfileCollection> {
public:
    StagedCollection() { ++g_staged->alive; }
    ~StagedCollection() override { --g_staged->alive; }
    DWORD STDMETHODCALLTYPE GetProfileCount() override { return 0; }
    HRESULT STDMETHODCALLTYPE GetProfile(DWORD, IMFSensorProfile**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AddProfile(IMFSensorProfile* profile) override {
        g_staged->added = profile;
        return ResultOf(Step::Add);
    }
    HRESULT STDMETHODCALLTYPE FindProfile(SENSORPROFILEID*, IMFSensorProfile**) override { return E_NOTIMPL; }
    void STDMETHODCALLTYPE RemoveProfileByIndex(DWORD) override {}
    void STDMETHODCALLTYPE RemoveProfile(SENSORPROFILEID*) override {}
};

HRESULT WINAPI CreateStagedCollection(IMFSensorProfileCollection** out) {
    const HRESULT hr = ResultOf(Step::Collection);
    *out = SUCCEEDED(hr) ? new StagedCollection : nullptr;
    return hr;
}

HRESULT WINAPI CreateStagedProfile(REFGUID type, UINT32 index, LPCWSTR constraints, IMFSensorProfile** out) {
    g_staged->type = type;
    g_staged->index = index;
    g_staged->constraints = constraints != nullptr;
    const HRESULT hr = ResultOf(Step::Profile);
    *out = SUCCEEDED(hr) ? new StagedProfile : nullptr;
    return hr;
}

class SourceProfileSteps : public SourceProfiles {
protected:
    SourceProfileSteps() {
        g_staged = &m_staged;
        m_functions.Replace([](HMODULE library, LPCSTR name) -> FARPROC {
            if (std::string(name) == "MFCreateSensorProfileCollection") {
                return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&CreateStagedCollection));
            }
            if (std::string(name) == "MFCreateSensorProfile") {
                return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&CreateStagedProfile));
            }
            return Functions::CallOriginal(library, name);
        });
    }

    using Functions = RAVLO_HOOK(GetProcAddress);
    Staged m_staged;
    Functions m_functions{m_module.Handle()};
};

TEST_F(SourceProfileSteps, AllArgumentsAreAsTheyMustBe) {
    const ComPtr<IMFMediaSourceEx> source = m_module.CreateSource<IMFMediaSourceEx>();
    EXPECT_EQ(kLegacyProfile, m_staged.type);
    EXPECT_EQ(0u, m_staged.index);
    EXPECT_FALSE(m_staged.constraints);
    EXPECT_EQ(0u, m_staged.stream);
    EXPECT_EQ(L"((RES==;FRT==;SUT==))", m_staged.filter);
    EXPECT_NE(nullptr, m_staged.added);
    EXPECT_EQ(1, m_staged.alive.load()) << "the profile is released, the store holds the collection";
    source->Shutdown();
    EXPECT_EQ(0, m_staged.alive.load());
}

TEST_F(SourceProfileSteps, EachStepThatFailsEndsTheCreationAndLeavesNothing) {
    for (const Step step : {Step::Collection, Step::Profile, Step::Filter, Step::Add}) {
        m_log.Restart();
        m_staged.failing = step;
        m_staged.added = nullptr;
        void* out = nullptr;
        EXPECT_EQ(kFailure, m_module.CreateSource(IID_IMFMediaSource, &out));
        EXPECT_TRUE(m_log.HasMessage(kFailureLine)) << m_log.Text();
        EXPECT_FALSE(m_log.Contains("WARN"));
        EXPECT_EQ(0, m_staged.alive.load());
        EXPECT_EQ(step == Step::Add, m_staged.added != nullptr);
    }
}

}  // namespace
}  // namespace ravlo::test
