// The short lines on the debugger channel.
#include "support/fixtures.h"

#include "trace/debugger_line.h"

#include <gtest/gtest.h>

namespace ravlo::test {
namespace {

constexpr GUID kSomeInterface = {0x9D3B0001, 0xABCD, 0x00EF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};

class TraceDebugger : public AnchoredTest {
protected:
    using Outputs = RAVLO_HOOK(OutputDebugStringW);

    /// The only text so far; it is forgotten.
    std::wstring Taken() {
        const std::vector<Outputs::Call> calls = m_outputs.Calls();
        m_outputs.ForgetCalls();
        return calls.size() == 1 ? std::get<0>(calls[0]) : L"not one line, but " + std::to_wstring(calls.size());
    }

    std::wstring QueryLine(HRESULT hr) {
        EXPECT_EQ(hr, RvTraceInterfaceQuery(L"RvMediaSource", "QI-SRC", "FAIL QI-SRC", kSomeInterface, hr));
        return Taken();
    }

    Outputs m_outputs{GetModuleHandleW(nullptr)};
};

TEST_F(TraceDebugger, AnInterfaceQueryNamesItsThreeCommonResults) {
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {9D3B0001-ABCD-00EF-0123-456789ABCDEF} -> S_OK\n", QueryLine(S_OK));
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {9D3B0001-ABCD-00EF-0123-456789ABCDEF} -> E_NOINTERFACE\n",
              QueryLine(static_cast<HRESULT>(0x80004002)));
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {9D3B0001-ABCD-00EF-0123-456789ABCDEF} -> E_POINTER\n",
              QueryLine(static_cast<HRESULT>(0x80004003)));
}

TEST_F(TraceDebugger, AnyOtherResultIsEightUpperCaseHexadecimalDigits) {
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {9D3B0001-ABCD-00EF-0123-456789ABCDEF} -> 0xC00D3E85\n",
              QueryLine(static_cast<HRESULT>(0xC00D3E85)));
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {9D3B0001-ABCD-00EF-0123-456789ABCDEF} -> 0x00000001\n", QueryLine(S_FALSE));
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {9D3B0001-ABCD-00EF-0123-456789ABCDEF} -> 0x8007000E\n",
              QueryLine(E_OUTOFMEMORY));
}

TEST_F(TraceDebugger, AnInterfaceQueryIsInTheLogUnderTheLabelOfItsResult) {
    QueryLine(S_OK);
    QueryLine(E_NOINTERFACE);
    EXPECT_TRUE(m_log.HasMessage("QI-SRC {9D3B0001-ABCD-00EF-0123-456789ABCDEF} hr=0x00000000")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL QI-SRC {9D3B0001-ABCD-00EF-0123-456789ABCDEF} hr=0x80004002")) << m_log.Text();
}

TEST_F(TraceDebugger, AnIdentifierThatCannotBeConvertedIsUnknown) {
    RAVLO_HOOK(StringFromGUID2) conversion(GetModuleHandleW(nullptr));
    conversion.FailEvery(0);
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {unknown-iid} -> S_OK\n", QueryLine(S_OK));
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {unknown-iid} -> 0x80070005\n", QueryLine(E_ACCESSDENIED));
    EXPECT_STREQ(L"{unknown-clsid}", GuidText(kSomeInterface, L"{unknown-clsid}").Get());
    EXPECT_EQ(64, std::get<2>(conversion.Calls().at(0)));
    // The log has a conversion of its own.
    EXPECT_TRUE(m_log.HasMessage("QI-SRC {9D3B0001-ABCD-00EF-0123-456789ABCDEF} hr=0x00000000")) << m_log.Text();
}

TEST_F(TraceDebugger, AnIdentifierIsConvertedAsThePlatformWritesIt) {
    EXPECT_STREQ(L"{9D3B0001-ABCD-00EF-0123-456789ABCDEF}", GuidText(kSomeInterface, L"x").Get());
    EXPECT_STREQ(L"{00000000-0000-0000-0000-000000000000}", GuidText(GUID{}, L"x").Get());
}

TEST_F(TraceDebugger, ALineIsCutAt255Characters) {
    const std::wstring longName(300, L'n');
    RvTraceInterfaceQuery(longName.c_str(), "QI-SRC", "FAIL QI-SRC", kSomeInterface, S_OK);
    EXPECT_EQ(L"RAVLO-QI: " + std::wstring(245, L'n'), Taken());
    // "RAVLO-QI: ", " QI ", the identifier, " -> S_OK" and the line feed are 61 characters.
    const std::wstring fits(194, L'n');
    RvTraceInterfaceQuery(fits.c_str(), "QI-SRC", "FAIL QI-SRC", kSomeInterface, S_OK);
    EXPECT_EQ(L"RAVLO-QI: " + fits + L" QI {9D3B0001-ABCD-00EF-0123-456789ABCDEF} -> S_OK\n", Taken());
    const std::wstring oneTooLong(195, L'n');
    RvTraceInterfaceQuery(oneTooLong.c_str(), "QI-SRC", "FAIL QI-SRC", kSomeInterface, S_OK);
    EXPECT_EQ(L"RAVLO-QI: " + oneTooLong + L" QI {9D3B0001-ABCD-00EF-0123-456789ABCDEF} -> S_OK", Taken());
}

TEST_F(TraceDebugger, ALineLeavesTheCallersErrorAlone) {
    m_outputs.Replace([](LPCWSTR) { SetLastError(ERROR_GEN_FAILURE); });
    SetLastError(1234);
    RvDebuggerLine("RAVLO-ACT: %s %u %p\n", "text", 7u, static_cast<void*>(nullptr));
    EXPECT_EQ(1234u, GetLastError());
    EXPECT_EQ(L"RAVLO-ACT: text 7 0000000000000000\n", Taken());
}

class TraceDebuggerOfTheModule : public ModuleTest {};

TEST_F(TraceDebuggerOfTheModule, TheSourceReportsItsQueriesOnBothChannels) {
    const ComPtr<IMFMediaSource> source = m_module.CreateSource<IMFMediaSource>();
    RAVLO_HOOK(OutputDebugStringW) outputs(m_module.Handle());
    void* out = &outputs;
    EXPECT_EQ(E_NOINTERFACE, source->QueryInterface(kSomeInterface, &out));
    EXPECT_EQ(nullptr, out);
    ASSERT_EQ(1u, outputs.Count());
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {9D3B0001-ABCD-00EF-0123-456789ABCDEF} -> E_NOINTERFACE\n",
              std::get<0>(outputs.Calls()[0]));
    EXPECT_TRUE(m_log.HasMessage("FAIL QI-SRC {9D3B0001-ABCD-00EF-0123-456789ABCDEF} hr=0x80004002")) << m_log.Text();
    EXPECT_EQ(S_OK, source->QueryInterface(IID_IUnknown, &out));
    source->Release();
    ASSERT_EQ(2u, outputs.Count());
    EXPECT_EQ(L"RAVLO-QI: RvMediaSource QI {00000000-0000-0000-C000-000000000046} -> S_OK\n",
              std::get<0>(outputs.Calls()[1]));
    EXPECT_TRUE(m_log.HasMessage("QI-SRC {00000000-0000-0000-C000-000000000046} hr=0x00000000")) << m_log.Text();
    EXPECT_EQ(E_POINTER, source->QueryInterface(kSomeInterface, nullptr));
    EXPECT_EQ(2u, outputs.Count());  // a call without a place for the answer is not reported
    source->Shutdown();
}

}  // namespace
}  // namespace ravlo::test
