// The faces of the source: one identity, the free-threaded marshaler, and the lines of every interface query.
#include "support/fixtures.h"
#include "windows/log_text.h"
#include "windows/platform_proxies.h"

#include "platform/kernel_streaming.h"
#include "trace/debugger_line.h"

namespace ravlo::test {
namespace {

constexpr GUID kFreeThreadedMarshalerClass = {
    0x0000033A, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr GUID kUnknownInterface = {0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};

using DebuggerLines = RAVLO_HOOK(OutputDebugStringW);

std::wstring LastText(const DebuggerLines& lines) {
    const auto calls = lines.Calls();
    return calls.empty() ? L"" : std::get<0>(calls.back());
}

class SourceIdentity : public ModuleTest {
protected:
    ~SourceIdentity() override {
        if (m_source) {
            m_source->Shutdown();
        }
    }
    void Create() { m_source = m_module.CreateSource<IMFMediaSource>(); }

    ComPtr<IMFMediaSource> m_source;
};

TEST_F(SourceIdentity, EveryFaceIsTheSameObjectAndLeavesItsTwoLines) {
    Create();
    const struct {
        IID iid;
        const char* text;
    } rows[] = {
        {IID_IUnknown, "{00000000-0000-0000-C000-000000000046}"},
        {IID_IMFMediaEventGenerator, "{2CD0BD52-BCD5-4B89-B62C-EADC0C031E7D}"},
        {IID_IMFMediaSource, "{279A808D-AEC7-40C8-9C6B-A6B492C78A66}"},
        {IID_IMFMediaSourceEx, "{3C9B2EB9-86D5-4514-A394-F56664F9F0D8}"},
        {IID_IMFActivate, "{7FEE9E9A-4A89-47A6-899C-B6A53A70FB67}"},
        {IID_IMFAttributes, "{2CD2D921-C447-44A7-A13C-4ADABFC247E3}"},
        {IID_IMFGetService, "{FA993888-4383-415A-A930-DD472A8CF6F7}"},
        {__uuidof(IKsControl), "{28F54685-06FD-11D2-B27A-00A0C9223196}"},
    };
    const ComPtr<IUnknown> identity = m_source.As<IUnknown>();
    for (const auto& row : rows) {
        m_log.Restart();
        DebuggerLines lines(m_module.Handle());
        ComPtr<IUnknown> face;
        const ULONG before = ReferenceCount(m_source.Get());
        EXPECT_EQ(S_OK, m_source->QueryInterface(row.iid, face.PutVoid())) << row.text;
        EXPECT_EQ(before + 1, ReferenceCount(m_source.Get())) << row.text;
        EXPECT_EQ(1u, lines.Count());
        EXPECT_EQ(Widen("RAVLO-QI: RvMediaSource QI " + std::string(row.text) + " -> S_OK\n"), LastText(lines));
        EXPECT_TRUE(m_log.HasMessage("QI-SRC " + std::string(row.text) + " hr=0x00000000")) << m_log.Text();
        ComPtr<IUnknown> back;
        EXPECT_EQ(S_OK, face->QueryInterface(IID_IUnknown, back.PutVoid())) << row.text;
        EXPECT_EQ(identity.Get(), back.Get()) << row.text;
    }
}

TEST_F(SourceIdentity, TheFirstBaseIsTheIdentity) {
    Create();
    EXPECT_EQ(static_cast<void*>(m_source.As<IUnknown>().Get()), static_cast<void*>(m_source.Get()));
    EXPECT_EQ(static_cast<void*>(m_source.As<IMFMediaSourceEx>().Get()), static_cast<void*>(m_source.Get()));
    EXPECT_EQ(static_cast<void*>(m_source.As<IMFMediaEventGenerator>().Get()), static_cast<void*>(m_source.Get()));
    EXPECT_EQ(static_cast<void*>(m_source.As<IMFActivate>().Get()),
              static_cast<void*>(m_source.As<IMFAttributes>().Get()));
    EXPECT_NE(static_cast<void*>(m_source.As<IMFActivate>().Get()), static_cast<void*>(m_source.Get()));
}

TEST_F(SourceIdentity, TheOtherFacesCountOnTheSameObject) {
    Create();
    const ComPtr<IMFActivate> activate = m_source.As<IMFActivate>();
    const ComPtr<IMFGetService> services = m_source.As<IMFGetService>();
    const ComPtr<IKsControl> controls = m_source.As<IKsControl>();
    EXPECT_EQ(4u, ReferenceCount(m_source.Get()));
    EXPECT_EQ(5u, activate->AddRef());
    EXPECT_EQ(6u, services->AddRef());
    EXPECT_EQ(7u, controls->AddRef());
    EXPECT_EQ(6u, m_source->Release());
    EXPECT_EQ(5u, services->Release());
    EXPECT_EQ(4u, activate->Release());
}

TEST_F(SourceIdentity, AnInterfaceThatItLacksIsRefusedWithItsLines) {
    Create();
    DebuggerLines lines(m_module.Handle());
    void* out = m_source.Get();
    EXPECT_EQ(E_NOINTERFACE, m_source->QueryInterface(kUnknownInterface, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {01234567-89AB-CDEF-0123-456789ABCDEF} -> E_NOINTERFACE\n", LastText(lines));
    EXPECT_TRUE(m_log.HasMessage("FAIL QI-SRC {01234567-89AB-CDEF-0123-456789ABCDEF} hr=0x80004002"));
    EXPECT_EQ(1u, ReferenceCount(m_source.Get()));
}

TEST_F(SourceIdentity, ANullOutputPointerIsRefusedWithoutALine) {
    Create();
    DebuggerLines lines(m_module.Handle());
    const std::size_t before = m_log.Lines().size();
    EXPECT_EQ(E_POINTER, m_source->QueryInterface(IID_IUnknown, nullptr));
    EXPECT_EQ(E_POINTER, m_source->QueryInterface(IID_IMarshal, nullptr));
    EXPECT_EQ(0u, lines.Count());
    EXPECT_EQ(before, m_log.Lines().size()) << m_log.Text();
}

TEST_F(SourceIdentity, AnInterfaceIdentifierThatCannotBeSpelledIsUnknownToTheDebugger) {
    Create();
    RAVLO_HOOK(StringFromGUID2) spelling(m_module.Handle());
    spelling.FailEvery(0);
    DebuggerLines lines(m_module.Handle());
    EXPECT_TRUE(m_source.As<IMFActivate>());
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {unknown-iid} -> S_OK\n", LastText(lines));
}

TEST_F(SourceIdentity, MarshalingIsTheFreeThreadedMarshalersOwn) {
    Create();
    DebuggerLines lines(m_module.Handle());
    ComPtr<IMarshal> marshal;
    EXPECT_EQ(S_OK, m_source->QueryInterface(IID_IMarshal, marshal.PutVoid()));
    ASSERT_TRUE(marshal);
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {00000003-0000-0000-C000-000000000046} -> S_OK\n", LastText(lines));
    EXPECT_TRUE(m_log.HasMessage("QI-SRC IMarshal {00000003-0000-0000-C000-000000000046} hr=0x00000000"));
    CLSID unmarshal{};
    EXPECT_EQ(S_OK, marshal->GetUnmarshalClass(IID_IMFMediaSource, m_source.Get(), MSHCTX_INPROC, nullptr,
                                               MSHLFLAGS_NORMAL, &unmarshal));
    EXPECT_EQ(kFreeThreadedMarshalerClass, unmarshal);
    EXPECT_TRUE(IsSameObject(m_source.Get(), marshal.Get())) << "aggregated: the outer object is the identity";
    EXPECT_FALSE(m_log.Contains("QI-SRC {00000003"));
}

TEST(DebuggerLine, IsCutAt255Characters) {
    DebuggerLines lines(GetModuleHandleW(nullptr));
    const std::wstring className(300, L'c');
    EXPECT_EQ(E_FAIL, RvTraceInterfaceQuery(className.c_str(), "QI-X", "FAIL QI-X", IID_IUnknown, E_FAIL));
    EXPECT_EQ(L"RAVLO-QI: " + std::wstring(245, L'c'), LastText(lines));
}

TEST(DebuggerLine, LeavesTheLastErrorAsItWas) {
    DebuggerLines lines(GetModuleHandleW(nullptr));
    lines.Replace([](LPCWSTR) { SetLastError(ERROR_INVALID_HANDLE); });
    SetLastError(ERROR_DISK_FULL);
    RvTraceInterfaceQuery(L"Any", "QI-X", "FAIL QI-X", IID_IUnknown, S_OK);
    EXPECT_EQ(DWORD{ERROR_DISK_FULL}, GetLastError());
    EXPECT_EQ(L"RAVLO-QI: Any QI {00000000-0000-0000-C000-000000000046} -> S_OK\n", LastText(lines));
}

/// An inner object of the test's own in place of the platform's marshaler.
class FakeMarshaler final : public Counted<IUnknown> {
public:
    explicit FakeMarshaler(HRESULT answer) : m_answer(answer) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override {
        *out = nullptr;
        return m_answer;
    }

private:
    HRESULT m_answer;
};

class SourceMarshaler : public SourceIdentity {
protected:
    /// The lines of a query for IMarshal when the marshaler answers it with `answer`.
    void ExpectAnswer(HRESULT answer, const std::wstring& debuggerLine, const std::string& logLine) {
        RAVLO_HOOK(CoCreateFreeThreadedMarshaler) marshalers(m_module.Handle());
        marshalers.Replace([answer](IUnknown*, IUnknown** out) -> HRESULT {
            *out = new FakeMarshaler(answer);
            return S_OK;
        });
        Create();
        DebuggerLines lines(m_module.Handle());
        void* out = nullptr;
        EXPECT_EQ(answer, m_source->QueryInterface(IID_IMarshal, &out));
        EXPECT_EQ(debuggerLine, LastText(lines));
        EXPECT_TRUE(m_log.HasMessage(logLine)) << m_log.Text();
    }
};

TEST_F(SourceMarshaler, AResultWithoutANameIsEightUpperCaseDigitsToTheDebugger) {
    ExpectAnswer(static_cast<HRESULT>(0x8007abcd),
                 L"RAVLO-QI: RvMediaSource QI {00000003-0000-0000-C000-000000000046} -> 0x8007ABCD\n",
                 "FAIL QI-SRC IMarshal {00000003-0000-0000-C000-000000000046} hr=0x8007ABCD");
}

TEST_F(SourceMarshaler, APositiveResultIsASuccess) {
    ExpectAnswer(S_FALSE, L"RAVLO-QI: RvMediaSource QI {00000003-0000-0000-C000-000000000046} -> 0x00000001\n",
                 "QI-SRC IMarshal {00000003-0000-0000-C000-000000000046} hr=0x00000001");
}

TEST_F(SourceMarshaler, AnInvalidPointerHasAName) {
    ExpectAnswer(E_POINTER, L"RAVLO-QI: RvMediaSource QI {00000003-0000-0000-C000-000000000046} -> E_POINTER\n",
                 "FAIL QI-SRC IMarshal {00000003-0000-0000-C000-000000000046} hr=0x80004003");
}

TEST_F(SourceMarshaler, WithoutAMarshalerThereIsNoSuchInterface) {
    RAVLO_HOOK(CoCreateFreeThreadedMarshaler) marshalers(m_module.Handle());
    marshalers.Replace([](IUnknown*, IUnknown** out) -> HRESULT {
        *out = nullptr;
        return S_OK;
    });
    Create();
    DebuggerLines lines(m_module.Handle());
    void* out = m_source.Get();
    EXPECT_EQ(E_NOINTERFACE, m_source->QueryInterface(IID_IMarshal, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {00000003-0000-0000-C000-000000000046} -> E_NOINTERFACE\n", LastText(lines));
    EXPECT_TRUE(m_log.HasMessage("FAIL QI-SRC IMarshal {00000003-0000-0000-C000-000000000046} hr=0x80004002"));
}

TEST_F(SourceMarshaler, TheSourceIsTheOuterObject) {
    RAVLO_HOOK(CoCreateFreeThreadedMarshaler) marshalers(m_module.Handle());
    Create();
    ASSERT_EQ(1u, marshalers.Count());
    EXPECT_EQ(m_source.As<IUnknown>().Get(), std::get<0>(marshalers.Calls()[0]));
}

}  // namespace
}  // namespace ravlo::test
