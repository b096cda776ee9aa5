// The lines that tell who activates the camera and which attributes it was given.
#include "support/fixtures.h"
#include "support/handles.h"
#include "windows/log_text.h"
#include "windows/platform_proxies.h"

#include <sddl.h>

#include <atomic>
#include <cstring>

namespace ravlo::test {
namespace {

constexpr GUID kKey = {0xA0000001, 0x1111, 0x2222, {0x33, 0x33, 0x44, 0x44, 0x55, 0x55, 0x66, 0x66}};

class SourceDiagnostics : public ModuleTest {
protected:
    ~SourceDiagnostics() override {
        if (m_source) {
            m_source->Shutdown();
        }
    }
    void Create() {
        m_source = m_module.CreateSource<IMFMediaSourceEx>();
        m_activate = m_source.As<IMFActivate>();
    }
    /// The lines of one more creation that begin with `tag`, in order.
    std::vector<std::string> LinesOfCreation(const std::string& tag) {
        m_log.Restart();
        m_module.CreateSource<IMFMediaSource>()->Shutdown();
        return LinesWith(tag);
    }
    std::vector<std::string> LinesWith(const std::string& tag) {
        std::vector<std::string> lines;
        for (const std::string& message : m_log.Messages()) {
            if (message.starts_with(tag)) {
                lines.push_back(message);
            }
        }
        return lines;
    }

    static std::string ProcessLine() {
        return "WHOAMI pid=" + std::to_string(GetCurrentProcessId()) + " tid=" + std::to_string(GetCurrentThreadId());
    }
    static std::string UserLine() { return "WHOAMI process_user=" + Narrow(CurrentUserSid()); }
    static std::string SessionLine() {
        DWORD session = 0;
        ProcessIdToSessionId(GetCurrentProcessId(), &session);
        return "WHOAMI session_id=" + std::to_string(session);
    }
    static std::string ImpersonationLine() { return "WHOAMI impersonating_user=" + Narrow(CurrentUserSid()); }

    using Lines = std::vector<std::string>;

    ComPtr<IMFMediaSourceEx> m_source;
    ComPtr<IMFActivate> m_activate;
};

TEST_F(SourceDiagnostics, ACreationTellsProcessUserAndSession) {
    EXPECT_EQ((Lines{ProcessLine(), UserLine(), SessionLine()}), LinesOfCreation("WHOAMI"));
}

TEST_F(SourceDiagnostics, EveryActivationTellsThemAgain) {
    Create();
    for (int round = 0; round < 2; ++round) {
        m_log.Restart();
        void* out = nullptr;
        EXPECT_EQ(E_NOINTERFACE, m_activate->ActivateObject(IID_IMFMediaStream, &out));
        EXPECT_EQ((Lines{ProcessLine(), UserLine(), SessionLine()}), LinesWith("WHOAMI"));
    }
}

TEST_F(SourceDiagnostics, AnImpersonatingThreadTellsWhoItActsFor) {
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    const Lines lines = LinesOfCreation("WHOAMI");
    RevertToSelf();
    EXPECT_EQ((Lines{ProcessLine(), UserLine(), SessionLine(), ImpersonationLine()}), lines);
    EXPECT_EQ((Lines{ProcessLine(), UserLine(), SessionLine()}), LinesOfCreation("WHOAMI")) << "and no more afterwards";
}

TEST_F(SourceDiagnostics, TokensAreOpenedForQueryAndTheThreadsNotAsSelf) {
    RAVLO_HOOK(OpenProcessToken) processTokens(m_module.Handle());
    RAVLO_HOOK(OpenThreadToken) threadTokens(m_module.Handle());
    LinesOfCreation("WHOAMI");
    ASSERT_EQ(1u, processTokens.Count());
    EXPECT_EQ(DWORD{TOKEN_QUERY}, std::get<1>(processTokens.Calls()[0]));
    ASSERT_EQ(1u, threadTokens.Count());
    EXPECT_EQ(DWORD{TOKEN_QUERY}, std::get<1>(threadTokens.Calls()[0]));
    EXPECT_EQ(FALSE, std::get<2>(threadTokens.Calls()[0]));
}

TEST_F(SourceDiagnostics, AStepThatFailsLeavesOutItsOwnLineOnly) {
    {
        RAVLO_HOOK(OpenProcessToken) hook(m_module.Handle());
        hook.FailEvery(FALSE, ERROR_ACCESS_DENIED);
        EXPECT_EQ((Lines{ProcessLine(), SessionLine()}), LinesOfCreation("WHOAMI"));
    }
    {
        RAVLO_HOOK(ConvertSidToStringSidW) hook(m_module.Handle());
        hook.FailEvery(FALSE, ERROR_INVALID_SID);
        EXPECT_EQ((Lines{ProcessLine(), SessionLine()}), LinesOfCreation("WHOAMI"));
    }
    {
        RAVLO_HOOK(LocalAlloc) hook(m_module.Handle());
        hook.FailEvery(nullptr, ERROR_NOT_ENOUGH_MEMORY);
        EXPECT_EQ((Lines{ProcessLine(), SessionLine()}), LinesOfCreation("WHOAMI"));
    }
    for (int call = 1; call <= 2; ++call) {
        RAVLO_HOOK(GetTokenInformation) hook(m_module.Handle());
        hook.FailCall(call, FALSE, ERROR_ACCESS_DENIED);
        EXPECT_EQ((Lines{ProcessLine(), SessionLine()}), LinesOfCreation("WHOAMI")) << call;
    }
    {
        RAVLO_HOOK(ProcessIdToSessionId) hook(m_module.Handle());
        hook.FailEvery(FALSE, ERROR_INVALID_PARAMETER);
        EXPECT_EQ((Lines{ProcessLine(), UserLine()}), LinesOfCreation("WHOAMI"));
    }
}

TEST_F(SourceDiagnostics, ImpersonationThatCannotBeReadLeavesOutItsLineOnly) {
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    RAVLO_HOOK(ConvertSidToStringSidW) hook(m_module.Handle());
    hook.FailCall(2, FALSE, ERROR_INVALID_SID);
    const Lines lines = LinesOfCreation("WHOAMI");
    RevertToSelf();
    EXPECT_EQ((Lines{ProcessLine(), UserLine(), SessionLine()}), lines);
}

TEST_F(SourceDiagnostics, EveryBufferAndTokenIsGivenBack) {
    LinesOfCreation("WHOAMI");
    ASSERT_TRUE(ImpersonateSelf(SecurityImpersonation));
    RAVLO_HOOK(LocalAlloc) allocations(m_module.Handle());
    RAVLO_HOOK(LocalFree) frees(m_module.Handle());
    RAVLO_HOOK(ConvertSidToStringSidW) texts(m_module.Handle());
    const std::size_t handles = SettledHandles();
    const Lines lines = LinesOfCreation("WHOAMI");
    EXPECT_TRUE(HandlesSettleAt(handles));
    RevertToSelf();
    EXPECT_EQ(4u, lines.size());
    EXPECT_EQ(2u, allocations.Count());
    EXPECT_EQ(2u, texts.Count());
    EXPECT_EQ(4u, frees.Count());
}

TEST_F(SourceDiagnostics, ACreationDumpsBothStoresAndTheOneThatIsNotThereYet) {
    EXPECT_EQ((Lines{"INITATTR source store=NULL"}), LinesOfCreation("INITATTR"));
    EXPECT_EQ(
        (Lines{"ATTR source count=3", "ATTR source [0] key={60D0E559-52F8-4FA2-BBCE-ACDB34A8EC01} vt=31",
               "ATTR source [0] value=Ravlo Source", "ATTR source [1] key={C60AC5FE-252A-478F-A0EF-BC8FA5F7CAD3} vt=72",
               "ATTR source [1] value={8AC3587A-4AE7-42D8-99E0-0A6013EEF90F}",
               "ATTR source [2] key={36EBDC44-B12C-441B-89F4-08B2F41A9CFC} vt=13", "ATTR stream0 count=3",
               "ATTR stream0 [0] key={11BD5120-D124-446B-88E6-17060257FFF9} vt=19", "ATTR stream0 [0] value=0",
               "ATTR stream0 [1] key={2939E7B8-A62E-4579-B674-D4073DFABBBA} vt=72",
               "ATTR stream0 [1] value={FB6C4281-0353-11D1-905F-0000C0CC16BA}",
               "ATTR stream0 [2] key={17145FD1-1B2B-423C-8001-2B6833ED3588} vt=19", "ATTR stream0 [2] value=1"}),
        LinesWith("ATTR"));
}

TEST_F(SourceDiagnostics, AnActivationDumpsWhatTheCallerSetByItsType) {
    Create();
    const UINT8 blob[] = {1, 2, 3};
    Require(m_activate->DeleteAllItems(), "DeleteAllItems");
    Require(m_activate->SetUINT32(kKey, 4294967295), "SetUINT32");
    GUID key = kKey;
    const auto next = [&key]() -> const GUID& {
        ++key.Data1;
        return key;
    };
    Require(m_activate->SetUINT64(next(), 18446744073709551615ull), "SetUINT64");
    Require(m_activate->SetString(next(), L"a\u00e9\tb"), "SetString");
    Require(m_activate->SetGUID(next(), kKey), "SetGUID");
    Require(m_activate->SetDouble(next(), 1.5), "SetDouble");
    Require(m_activate->SetBlob(next(), blob, 3), "SetBlob");
    Require(m_activate->SetUnknown(next(), m_source.Get()), "SetUnknown");
    Require(m_activate->SetString(next(), L""), "SetString");
    m_log.Restart();
    void* out = nullptr;
    EXPECT_EQ(E_NOINTERFACE, m_activate->ActivateObject(IID_IMFMediaStream, &out));
    EXPECT_EQ(
        (Lines{"ACTATTR source count=8", "ACTATTR source [0] key={A0000001-1111-2222-3333-444455556666} vt=19",
               "ACTATTR source [0] value=4294967295",
               "ACTATTR source [1] key={A0000002-1111-2222-3333-444455556666} vt=21",
               "ACTATTR source [1] value=18446744073709551615",
               "ACTATTR source [2] key={A0000003-1111-2222-3333-444455556666} vt=31", "ACTATTR source [2] value=a??b",
               "ACTATTR source [3] key={A0000004-1111-2222-3333-444455556666} vt=72",
               "ACTATTR source [3] value={A0000001-1111-2222-3333-444455556666}",
               "ACTATTR source [4] key={A0000005-1111-2222-3333-444455556666} vt=5",
               "ACTATTR source [5] key={A0000006-1111-2222-3333-444455556666} vt=4113",
               "ACTATTR source [6] key={A0000007-1111-2222-3333-444455556666} vt=13",
               "ACTATTR source [7] key={A0000008-1111-2222-3333-444455556666} vt=31", "ACTATTR source [7] value="}),
        LinesWith("ACTATTR"));
    Require(m_activate->DeleteItem(GUID{0xA0000007, 0x1111, 0x2222, {0x33, 0x33, 0x44, 0x44, 0x55, 0x55, 0x66, 0x66}}),
            "DeleteItem");
}

/// A source whose store answers GetItemByIndex and GetCount as the test wants, while `staged`.
class SourceDumps : public SourceDiagnostics {
protected:
    using FillItem = std::function<HRESULT(UINT32 index, GUID* key, PROPVARIANT* value)>;

    void CreateWithStore() {
        RAVLO_HOOK(MFCreateAttributes) stores(m_module.Handle());
        stores.Replace([this](IMFAttributes** out, UINT32 size) {
            const HRESULT hr = decltype(stores)::CallOriginal(out, size);
            *out = new StoreProxy(ComPtr<IMFAttributes>::Adopt(*out),
                                  [this](const StoreCall& call) { return m_staged ? Answer(call) : std::nullopt; });
            return hr;
        });
        Create();
    }

    Lines Dump() {
        m_log.Restart();
        m_staged = true;
        void* out = nullptr;
        EXPECT_EQ(E_NOINTERFACE, m_activate->ActivateObject(IID_IMFMediaStream, &out));
        m_staged = false;
        return LinesWith("ACTATTR");
    }

    HRESULT m_countResult = S_OK;
    UINT32 m_count = 0;
    FillItem m_fill;

private:
    std::optional<HRESULT> Answer(const StoreCall& call) {
        if (call.operation == "GetCount") {
            *reinterpret_cast<UINT32*>(call.arguments[0]) = m_count;
            return m_countResult;
        }
        if (call.operation == "GetItemByIndex") {
            return m_fill(static_cast<UINT32>(call.arguments[0]), reinterpret_cast<GUID*>(call.arguments[1]),
                          reinterpret_cast<PROPVARIANT*>(call.arguments[2]));
        }
        return std::nullopt;
    }

    std::atomic<bool> m_staged{false};
};

TEST_F(SourceDumps, AStoreThatCannotCountSaysSo) {
    CreateWithStore();
    m_countResult = E_FAIL;
    m_count = 5;
    EXPECT_EQ((Lines{"ACTATTR source GetCount failed"}), Dump());
}

TEST_F(SourceDumps, AnEmptyStoreIsCounted) {
    CreateWithStore();
    EXPECT_EQ((Lines{"ACTATTR source count=0"}), Dump());
}

TEST_F(SourceDumps, AnItemThatCannotBeReadDoesNotEndTheDump) {
    CreateWithStore();
    m_count = 3;
    m_fill = [](UINT32 index, GUID* key, PROPVARIANT* value) -> HRESULT {
        if (index == 1) {
            return E_FAIL;
        }
        *key = kKey;
        value->vt = VT_UI4;
        value->ulVal = index;
        return S_OK;
    };
    EXPECT_EQ(
        (Lines{"ACTATTR source count=3", "ACTATTR source [0] key={A0000001-1111-2222-3333-444455556666} vt=19",
               "ACTATTR source [0] value=0", "ACTATTR source [1] GetItemByIndex failed",
               "ACTATTR source [2] key={A0000001-1111-2222-3333-444455556666} vt=19", "ACTATTR source [2] value=2"}),
        Dump());
}

TEST_F(SourceDumps, NullStringsAndIdentifiersHaveNoValueLine) {
    CreateWithStore();
    m_count = 2;
    m_fill = [](UINT32 index, GUID* key, PROPVARIANT* value) -> HRESULT {
        *key = kKey;
        value->vt = index == 0 ? VT_LPWSTR : VT_CLSID;
        value->pwszVal = nullptr;
        return S_OK;
    };
    EXPECT_EQ((Lines{"ACTATTR source count=2", "ACTATTR source [0] key={A0000001-1111-2222-3333-444455556666} vt=31",
                     "ACTATTR source [1] key={A0000001-1111-2222-3333-444455556666} vt=72"}),
              Dump());
}

TEST_F(SourceDumps, EveryItemIsClearedBeforeTheNext) {
    CreateWithStore();
    RAVLO_HOOK(PropVariantClear) clears(m_module.Handle());
    m_count = 4;
    std::vector<std::size_t> clearedBefore;
    m_fill = [&](UINT32, GUID* key, PROPVARIANT* value) -> HRESULT {
        clearedBefore.push_back(clears.Count());
        *key = kKey;
        value->vt = VT_LPWSTR;
        value->pwszVal = static_cast<LPWSTR>(CoTaskMemAlloc(4));
        std::memcpy(value->pwszVal, L"x", 4);
        return S_OK;
    };
    EXPECT_EQ(9u, Dump().size());
    EXPECT_EQ((std::vector<std::size_t>{0, 1, 2, 3}), clearedBefore);
    EXPECT_EQ(4u, clears.Count());
}

}  // namespace
}  // namespace ravlo::test
