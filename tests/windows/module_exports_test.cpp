// DllGetClassObject and the class factory: results, log lines and debugger lines.
#include "support/fixtures.h"
#include "support/heap_faults.h"
#include "windows/log_text.h"

#include <mfidl.h>

namespace ravlo::test {
namespace {

using DebuggerLines = RAVLO_HOOK(OutputDebugStringW);

constexpr GUID kOtherClass = {0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};

std::vector<std::wstring> Texts(const DebuggerLines& lines) {
    std::vector<std::wstring> texts;
    for (const auto& call : lines.Calls()) {
        texts.push_back(std::get<0>(call));
    }
    return texts;
}

class ModuleExports : public ModuleTest {
protected:
    void* m_out = reinterpret_cast<void*>(std::uintptr_t{1});
};

TEST_F(ModuleExports, TheFactoryIsHandedOutWithItsLines) {
    DebuggerLines lines(m_module.Handle());
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(S_OK, m_module.GetClassObject(kSourceClassId, IID_IClassFactory, factory.PutVoid()));
    ASSERT_TRUE(factory);
    EXPECT_EQ(Texts(lines),
              std::vector<std::wstring>{L"RAVLO-ACT: DllGetClassObject rclsid={5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} "
                                        L"riid={00000001-0000-0000-C000-000000000046}\n"});
    EXPECT_TRUE(
        m_log.HasMessage("DLLGCO enter rclsid={5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} "
                         "riid={00000001-0000-0000-C000-000000000046}"));
    EXPECT_TRUE(m_log.HasMessage("RET DLLGCO riid {00000001-0000-0000-C000-000000000046} hr=0x00000000"));
    EXPECT_EQ(1u, ReferenceCount(factory.Get()));
}

TEST_F(ModuleExports, ANullOutputPointerIsRefusedAfterTheDebuggerLine) {
    DebuggerLines lines(m_module.Handle());
    EXPECT_EQ(E_POINTER, m_module.GetClassObject(kSourceClassId, IID_IUnknown, nullptr));
    EXPECT_EQ(Texts(lines),
              std::vector<std::wstring>{L"RAVLO-ACT: DllGetClassObject rclsid={5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} "
                                        L"riid={00000000-0000-0000-C000-000000000046}\n"});
    EXPECT_TRUE(m_log.HasMessage("FAIL DLLGCO hr=0x80004003 (ppv==NULL)"));
    EXPECT_FALSE(m_log.Contains("DLLGCO riid"));
}

TEST_F(ModuleExports, AnotherClassIsNotAvailable) {
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, m_module.GetClassObject(kOtherClass, IID_IClassFactory, &m_out));
    EXPECT_EQ(nullptr, m_out);
    EXPECT_TRUE(m_log.HasMessage("FAIL DLLGCO wrong clsid {01234567-89AB-CDEF-0123-456789ABCDEF} hr=0x80040111"));
    EXPECT_FALSE(m_log.Contains("DLLGCO riid"));
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

TEST_F(ModuleExports, AnotherClassComesAfterTheNullOutputPointer) {
    EXPECT_EQ(E_POINTER, m_module.GetClassObject(kOtherClass, IID_IClassFactory, nullptr));
    EXPECT_FALSE(m_log.Contains("wrong clsid"));
}

TEST_F(ModuleExports, AnInterfaceThatTheFactoryLacksLeavesNothingAlive) {
    EXPECT_EQ(E_NOINTERFACE, m_module.GetClassObject(kSourceClassId, IID_IMFMediaSource, &m_out));
    EXPECT_EQ(nullptr, m_out);
    EXPECT_TRUE(m_log.HasMessage("FAIL DLLGCO riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x80004002"));
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

TEST_F(ModuleExports, WithoutMemoryThereIsNoFactory) {
    HeapFaults heap(m_module.Handle());
    heap.FailNth(1);
    EXPECT_EQ(E_OUTOFMEMORY, m_module.GetClassObject(kSourceClassId, IID_IClassFactory, &m_out));
    EXPECT_TRUE(heap.Hit());
    EXPECT_EQ(nullptr, m_out);
    EXPECT_TRUE(m_log.HasMessage("FAIL DLLGCO hr=0x8007000E (factory alloc)"));
    EXPECT_EQ(S_OK, m_module.CanUnloadNow());
}

TEST_F(ModuleExports, EveryCallMakesAFactoryOfItsOwn) {
    const ComPtr<IClassFactory> first = m_module.Factory();
    const ComPtr<IClassFactory> second = m_module.Factory();
    EXPECT_NE(first.Get(), second.Get());
}

TEST_F(ModuleExports, IdentifiersThatCannotBeSpelledAreNamedUnknownToTheDebugger) {
    RAVLO_HOOK(StringFromGUID2) spelling(m_module.Handle());
    spelling.FailEvery(0);
    DebuggerLines lines(m_module.Handle());
    const ComPtr<IClassFactory> factory = m_module.Factory();
    EXPECT_EQ(E_POINTER, factory->CreateInstance(nullptr, IID_IUnknown, nullptr));
    EXPECT_EQ(Texts(lines),
              (std::vector<std::wstring>{
                  L"RAVLO-ACT: DllGetClassObject rclsid={unknown-clsid} riid={unknown-iid}\n",
                  L"RAVLO-ACT: RvClassFactory::CreateInstance riid={unknown-iid} pUnkOuter=0000000000000000\n"}));
    // The log spells identifiers by itself.
    EXPECT_TRUE(
        m_log.HasMessage("DLLGCO enter rclsid={5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} "
                         "riid={00000001-0000-0000-C000-000000000046}"));
    ASSERT_EQ(3u, spelling.Count());
    EXPECT_EQ(64, std::get<2>(spelling.Calls()[0]));
}

TEST_F(ModuleExports, TheFactoryHasTwoFacesOnOneObjectAndNoTrace) {
    const ComPtr<IClassFactory> factory = m_module.Factory();
    const std::size_t before = m_log.Lines().size();
    ComPtr<IUnknown> identity;
    EXPECT_EQ(S_OK, factory->QueryInterface(IID_IUnknown, identity.PutVoid()));
    EXPECT_EQ(2u, ReferenceCount(factory.Get()));
    ComPtr<IClassFactory> again;
    EXPECT_EQ(S_OK, factory->QueryInterface(IID_IClassFactory, again.PutVoid()));
    EXPECT_EQ(factory.Get(), again.Get());
    EXPECT_TRUE(IsSameObject(factory.Get(), identity.Get()));
    EXPECT_EQ(E_NOINTERFACE, factory->QueryInterface(IID_IMarshal, &m_out));
    EXPECT_EQ(nullptr, m_out);
    EXPECT_EQ(E_POINTER, factory->QueryInterface(IID_IUnknown, nullptr));
    EXPECT_EQ(before, m_log.Lines().size()) << m_log.Text();
}

TEST_F(ModuleExports, TheFactoryCountsItsReferences) {
    const ComPtr<IClassFactory> factory = m_module.Factory();
    EXPECT_EQ(2u, factory->AddRef());
    EXPECT_EQ(3u, factory->AddRef());
    EXPECT_EQ(2u, factory->Release());
    EXPECT_EQ(1u, factory->Release());
}

TEST_F(ModuleExports, ASourceIsCreatedWithItsLines) {
    const ComPtr<IClassFactory> factory = m_module.Factory();
    DebuggerLines lines(m_module.Handle());
    ComPtr<IMFMediaSource> source;
    EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IMFMediaSource, source.PutVoid()));
    ASSERT_TRUE(source);
    EXPECT_EQ(1u, ReferenceCount(source.Get()));
    EXPECT_EQ(Texts(lines), (std::vector<std::wstring>{
                                L"RAVLO-ACT: RvClassFactory::CreateInstance "
                                L"riid={279A808D-AEC7-40C8-9C6B-A6B492C78A66} pUnkOuter=0000000000000000\n",
                                L"RAVLO-QI: RvMediaSource QI {279A808D-AEC7-40C8-9C6B-A6B492C78A66} -> S_OK\n"}));
    EXPECT_TRUE(
        m_log.HasMessage("FACTORY CreateInstance riid={279A808D-AEC7-40C8-9C6B-A6B492C78A66} "
                         "pUnkOuter=0000000000000000"));
    EXPECT_TRUE(
        m_log.HasMessage("RET FACTORY CreateInstance riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("CALL SRC.CreateInstance riid {279A808D-AEC7-40C8-9C6B-A6B492C78A66} hr=0x00000000"));
    EXPECT_TRUE(m_log.HasMessage("RET SRC.CreateInstance hr=0x00000000"));
    source->Shutdown();
}

TEST_F(ModuleExports, AggregationIsRefusedWithoutASource) {
    const ComPtr<IClassFactory> factory = m_module.Factory();
    DebuggerLines lines(m_module.Handle());
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(factory.Get(), IID_IUnknown, &m_out));
    EXPECT_EQ(nullptr, m_out);
    const std::string outer = PointerText(factory.Get());
    EXPECT_EQ(Texts(lines), std::vector<std::wstring>{L"RAVLO-ACT: RvClassFactory::CreateInstance "
                                                      L"riid={00000000-0000-0000-C000-000000000046} pUnkOuter=" +
                                                      Widen(outer) + L"\n"});
    EXPECT_TRUE(
        m_log.HasMessage("FACTORY CreateInstance riid={00000000-0000-0000-C000-000000000046} pUnkOuter=" + outer));
    EXPECT_TRUE(m_log.HasMessage("FAIL FACTORY CreateInstance hr=0x80040110 (aggregation refused)"));
    EXPECT_FALSE(m_log.Contains("SRC."));
}

TEST_F(ModuleExports, ANullOutputPointerOfTheFactoryComesBeforeTheOuterObject) {
    const ComPtr<IClassFactory> factory = m_module.Factory();
    EXPECT_EQ(E_POINTER, factory->CreateInstance(factory.Get(), IID_IUnknown, nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL FACTORY CreateInstance hr=0x80004003 (ppv==NULL)"));
    EXPECT_FALSE(m_log.Contains("aggregation refused"));
    EXPECT_FALSE(m_log.Contains("SRC."));
}

TEST_F(ModuleExports, AnInterfaceThatTheSourceLacksIsTheFactorysResultToo) {
    const ComPtr<IClassFactory> factory = m_module.Factory();
    EXPECT_EQ(E_NOINTERFACE, factory->CreateInstance(nullptr, IID_IClassFactory, &m_out));
    EXPECT_EQ(nullptr, m_out);
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.CreateInstance hr=0x80004002"));
    EXPECT_TRUE(
        m_log.HasMessage("FAIL FACTORY CreateInstance riid {00000001-0000-0000-C000-000000000046} hr=0x80004002"));
}

}  // namespace
}  // namespace ravlo::test
