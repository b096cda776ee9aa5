// The activation face's thirty attribute operations: all of them the source's own store.
#include "support/fixtures.h"
#include "windows/platform_proxies.h"

#include <thread>
#include <utility>

namespace ravlo::test {
namespace {

constexpr GUID kKey = {0xA0000001, 0x1111, 0x2222, {0x33, 0x33, 0x44, 0x44, 0x55, 0x55, 0x66, 0x66}};
constexpr GUID kSecondKey = {0xA0000002, 0x1111, 0x2222, {0x33, 0x33, 0x44, 0x44, 0x55, 0x55, 0x66, 0x66}};

/// Storage for the arguments of one call of every operation.
struct Arguments {
    GUID guid{};
    IID iid{};
    PROPVARIANT value{};
    MF_ATTRIBUTE_TYPE type{};
    BOOL flag = FALSE;
    UINT32 number = 0;
    UINT64 wide = 0;
    double real = 0;
    wchar_t text[8]{};
    wchar_t* allocatedText = nullptr;
    UINT8 bytes[8]{};
    UINT8* allocatedBytes = nullptr;
    void* object = nullptr;
};

struct Operation {
    StoreCall call;
    std::function<HRESULT(IMFAttributes*)> run;
};

/// The thirty operations in the order of the interface, each with what must reach the store.
std::vector<Operation> AllOperations(Arguments& a, IMFAttributes* other) {
    const GUID& k = kKey;
    using S = IMFAttributes*;
    return {
        {MakeStoreCall("GetItem", &k, &a.value), [&](S s) { return s->GetItem(kKey, &a.value); }},
        {MakeStoreCall("GetItemType", &k, &a.type), [&](S s) { return s->GetItemType(kKey, &a.type); }},
        {MakeStoreCall("CompareItem", &k, &a.value, &a.flag),
         [&](S s) { return s->CompareItem(kKey, a.value, &a.flag); }},
        {MakeStoreCall("Compare", other, MF_ATTRIBUTES_MATCH_INTERSECTION, &a.flag),
         [&, other](S s) { return s->Compare(other, MF_ATTRIBUTES_MATCH_INTERSECTION, &a.flag); }},
        {MakeStoreCall("GetUINT32", &k, &a.number), [&](S s) { return s->GetUINT32(kKey, &a.number); }},
        {MakeStoreCall("GetUINT64", &k, &a.wide), [&](S s) { return s->GetUINT64(kKey, &a.wide); }},
        {MakeStoreCall("GetDouble", &k, &a.real), [&](S s) { return s->GetDouble(kKey, &a.real); }},
        {MakeStoreCall("GetGUID", &k, &a.guid), [&](S s) { return s->GetGUID(kKey, &a.guid); }},
        {MakeStoreCall("GetStringLength", &k, &a.number), [&](S s) { return s->GetStringLength(kKey, &a.number); }},
        {MakeStoreCall("GetString", &k, a.text, 8, &a.number),
         [&](S s) { return s->GetString(kKey, a.text, 8, &a.number); }},
        {MakeStoreCall("GetAllocatedString", &k, &a.allocatedText, &a.number),
         [&](S s) { return s->GetAllocatedString(kKey, &a.allocatedText, &a.number); }},
        {MakeStoreCall("GetBlobSize", &k, &a.number), [&](S s) { return s->GetBlobSize(kKey, &a.number); }},
        {MakeStoreCall("GetBlob", &k, a.bytes, 7, &a.number),
         [&](S s) { return s->GetBlob(kKey, a.bytes, 7, &a.number); }},
        {MakeStoreCall("GetAllocatedBlob", &k, &a.allocatedBytes, &a.number),
         [&](S s) { return s->GetAllocatedBlob(kKey, &a.allocatedBytes, &a.number); }},
        {MakeStoreCall("GetUnknown", &k, &a.iid, &a.object),
         [&](S s) { return s->GetUnknown(kKey, a.iid, &a.object); }},
        {MakeStoreCall("SetItem", &k, &a.value), [&](S s) { return s->SetItem(kKey, a.value); }},
        {MakeStoreCall("DeleteItem", &k), [](S s) { return s->DeleteItem(kKey); }},
        {MakeStoreCall("DeleteAllItems"), [](S s) { return s->DeleteAllItems(); }},
        {MakeStoreCall("SetUINT32", &k, 0xFEDCBA98u), [](S s) { return s->SetUINT32(kKey, 0xFEDCBA98); }},
        {MakeStoreCall("SetUINT64", &k, 0xFEDCBA9876543210ull),
         [](S s) { return s->SetUINT64(kKey, 0xFEDCBA9876543210); }},
        {MakeStoreCall("SetDouble", &k, 1.5), [](S s) { return s->SetDouble(kKey, 1.5); }},
        {MakeStoreCall("SetGUID", &k, &a.guid), [&](S s) { return s->SetGUID(kKey, a.guid); }},
        {MakeStoreCall("SetString", &k, a.text), [&](S s) { return s->SetString(kKey, a.text); }},
        {MakeStoreCall("SetBlob", &k, a.bytes, 5), [&](S s) { return s->SetBlob(kKey, a.bytes, 5); }},
        {MakeStoreCall("SetUnknown", &k, other), [other](S s) { return s->SetUnknown(kKey, other); }},
        {MakeStoreCall("LockStore"), [](S s) { return s->LockStore(); }},
        {MakeStoreCall("UnlockStore"), [](S s) { return s->UnlockStore(); }},
        {MakeStoreCall("GetCount", &a.number), [&](S s) { return s->GetCount(&a.number); }},
        {MakeStoreCall("GetItemByIndex", 3, &a.guid, &a.value),
         [&](S s) { return s->GetItemByIndex(3, &a.guid, &a.value); }},
        {MakeStoreCall("CopyAllItems", other), [other](S s) { return s->CopyAllItems(other); }},
    };
}

class SourceAttributes : public ModuleTest {
protected:
    ~SourceAttributes() override {
        if (m_source) {
            m_source->Shutdown();
        }
    }
    /// The source, its activation face and its store.
    void Create() {
        m_source = m_module.CreateSource<IMFMediaSourceEx>();
        m_face = m_source.As<IMFActivate>();
        Require(m_source->GetSourceAttributes(m_store.Put()), "GetSourceAttributes");
    }

    ComPtr<IMFMediaSourceEx> m_source;
    ComPtr<IMFActivate> m_face;
    ComPtr<IMFAttributes> m_store;
};

TEST_F(SourceAttributes, EveryOperationReachesTheStoreWithItsArgumentsAndReturnsItsResult) {
    std::vector<StoreCall> calls;
    HRESULT answer = S_OK;
    bool watching = false;
    RAVLO_HOOK(MFCreateAttributes) stores(m_module.Handle());
    stores.Replace([&](IMFAttributes** out, UINT32 size) {
        const HRESULT hr = decltype(stores)::CallOriginal(out, size);
        *out = new StoreProxy(ComPtr<IMFAttributes>::Adopt(*out), [&](const StoreCall& call) -> std::optional<HRESULT> {
            if (!watching) {
                return std::nullopt;
            }
            calls.push_back(call);
            return answer;
        });
        return hr;
    });
    Create();
    ComPtr<IMFAttributes> other;
    Require(MFCreateAttributes(other.Put(), 1), "MFCreateAttributes");
    Arguments arguments;
    const std::vector<Operation> operations = AllOperations(arguments, other.Get());
    ASSERT_EQ(30u, operations.size());
    watching = true;
    const std::size_t linesBefore = m_log.Lines().size();
    for (const Operation& operation : operations) {
        for (const HRESULT result : {S_OK, HRESULT{0x00040123}, static_cast<HRESULT>(0x80041234)}) {
            calls.clear();
            answer = result;
            EXPECT_EQ(result, operation.run(m_face.Get())) << operation.call.operation;
            ASSERT_EQ(1u, calls.size()) << operation.call.operation;
            EXPECT_EQ(operation.call.operation, calls[0].operation);
            EXPECT_EQ(operation.call.arguments, calls[0].arguments) << operation.call.operation;
        }
    }
    EXPECT_EQ(linesBefore, m_log.Lines().size()) << "no operation is traced\n" << m_log.Text();
    watching = false;
    m_store.Reset();
    m_face.Reset();
    m_source->Shutdown();
    m_source.Reset();
}

TEST_F(SourceAttributes, EveryOperationIsRefusedAfterShutdown) {
    Create();
    ASSERT_EQ(S_OK, m_face->SetUINT32(kKey, 5));
    ComPtr<IMFAttributes> other;
    Require(MFCreateAttributes(other.Put(), 1), "MFCreateAttributes");
    m_source->Shutdown();
    const std::size_t linesBefore = m_log.Lines().size();
    Arguments arguments;
    for (const Operation& operation : AllOperations(arguments, other.Get())) {
        EXPECT_EQ(MF_E_SHUTDOWN, operation.run(m_face.Get())) << operation.call.operation;
    }
    EXPECT_EQ(linesBefore, m_log.Lines().size()) << m_log.Text();
    EXPECT_EQ(1u, ReferenceCount(m_store.Get())) << "the source lets go of its store";
    UINT32 number = 0;
    EXPECT_EQ(S_OK, m_store->GetUINT32(kKey, &number)) << "who holds the store itself can still read it";
    EXPECT_EQ(5u, number);
}

TEST_F(SourceAttributes, WhatIsSetOnOneSideIsReadOnTheOther) {
    Create();
    const std::pair<IMFAttributes*, IMFAttributes*> directions[] = {{m_face.Get(), m_store.Get()},
                                                                    {m_store.Get(), m_face.Get()}};
    for (const auto& [from, to] : directions) {
        ASSERT_EQ(S_OK, from->SetString(kKey, L"text"));
        wchar_t text[8]{};
        UINT32 length = 0;
        EXPECT_EQ(S_OK, to->GetString(kKey, text, 8, &length));
        EXPECT_STREQ(L"text", text);
        EXPECT_EQ(4u, length);
        EXPECT_EQ(S_OK, to->GetStringLength(kKey, &length));
        EXPECT_EQ(4u, length);
        LPWSTR allocated = nullptr;
        EXPECT_EQ(S_OK, to->GetAllocatedString(kKey, &allocated, &length));
        EXPECT_STREQ(L"text", allocated);
        CoTaskMemFree(allocated);

        ASSERT_EQ(S_OK, from->SetUINT32(kKey, 32));
        UINT32 number = 0;
        EXPECT_EQ(S_OK, to->GetUINT32(kKey, &number));
        EXPECT_EQ(32u, number);
        MF_ATTRIBUTE_TYPE type{};
        EXPECT_EQ(S_OK, to->GetItemType(kKey, &type));
        EXPECT_EQ(MF_ATTRIBUTE_UINT32, type);

        ASSERT_EQ(S_OK, from->SetUINT64(kKey, 0x100000002));
        UINT64 wide = 0;
        EXPECT_EQ(S_OK, to->GetUINT64(kKey, &wide));
        EXPECT_EQ(0x100000002u, wide);

        ASSERT_EQ(S_OK, from->SetDouble(kKey, 2.5));
        double real = 0;
        EXPECT_EQ(S_OK, to->GetDouble(kKey, &real));
        EXPECT_EQ(2.5, real);

        ASSERT_EQ(S_OK, from->SetGUID(kKey, kSecondKey));
        GUID guid{};
        EXPECT_EQ(S_OK, to->GetGUID(kKey, &guid));
        EXPECT_EQ(kSecondKey, guid);

        const UINT8 blob[] = {1, 2, 3};
        ASSERT_EQ(S_OK, from->SetBlob(kKey, blob, 3));
        UINT32 size = 0;
        EXPECT_EQ(S_OK, to->GetBlobSize(kKey, &size));
        EXPECT_EQ(3u, size);
        UINT8 read[3]{};
        EXPECT_EQ(S_OK, to->GetBlob(kKey, read, 3, &size));
        EXPECT_EQ(3, read[2]);
        UINT8* allocatedBlob = nullptr;
        EXPECT_EQ(S_OK, to->GetAllocatedBlob(kKey, &allocatedBlob, &size));
        EXPECT_EQ(1, allocatedBlob[0]);
        CoTaskMemFree(allocatedBlob);

        ASSERT_EQ(S_OK, from->SetUnknown(kKey, m_store.Get()));
        ComPtr<IMFAttributes> object;
        EXPECT_EQ(S_OK, to->GetUnknown(kKey, IID_IMFAttributes, object.PutVoid()));
        EXPECT_EQ(m_store.Get(), object.Get());
        object.Reset();

        PropVariant item;
        item->vt = VT_UI4;
        item->ulVal = 77;
        ASSERT_EQ(S_OK, from->SetItem(kKey, *item.Get()));
        PropVariant back;
        EXPECT_EQ(S_OK, to->GetItem(kKey, back.Put()));
        EXPECT_EQ(VT_UI4, back.Type());
        EXPECT_EQ(77u, back->ulVal);
        BOOL same = FALSE;
        EXPECT_EQ(S_OK, to->CompareItem(kKey, *item.Get(), &same));
        EXPECT_TRUE(same);
        ComPtr<IMFAttributes> alike;
        Require(MFCreateAttributes(alike.Put(), 1), "MFCreateAttributes");
        Require(alike->SetUINT32(kKey, 77), "SetUINT32");
        same = FALSE;
        EXPECT_EQ(S_OK, to->Compare(alike.Get(), MF_ATTRIBUTES_MATCH_THEIR_ITEMS, &same));
        EXPECT_TRUE(same);

        EXPECT_EQ(S_OK, from->DeleteItem(kKey));
        EXPECT_EQ(MF_E_ATTRIBUTENOTFOUND, to->GetUINT32(kKey, &number));
    }
    EXPECT_EQ(S_OK, m_face->DeleteAllItems());
    UINT32 count = 99;
    EXPECT_EQ(S_OK, m_store->GetCount(&count));
    EXPECT_EQ(0u, count) << "nothing is protected, the identity attributes included";
}

TEST_F(SourceAttributes, AFreshSourceHoldsThreeAttributesAndWhatTheCallerAdds) {
    Create();
    UINT32 count = 0;
    EXPECT_EQ(S_OK, m_face->GetCount(&count));
    EXPECT_EQ(3u, count);
    EXPECT_EQ(S_OK, m_face->SetUINT32(kKey, 1));
    EXPECT_EQ(S_OK, m_face->SetUINT32(kSecondKey, 1));
    EXPECT_EQ(S_OK, m_store->GetCount(&count));
    EXPECT_EQ(5u, count);
}

TEST_F(SourceAttributes, TheIdentityOfTheSourceIsPublished) {
    Create();
    wchar_t name[32]{};
    EXPECT_EQ(S_OK, m_face->GetString(MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME, name, 32, nullptr));
    EXPECT_STREQ(L"Ravlo Source", name);
    GUID type{};
    EXPECT_EQ(S_OK, m_face->GetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE, &type));
    EXPECT_EQ(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID, type);
}

TEST_F(SourceAttributes, CopyingCopiesTheWholeStore) {
    Create();
    ComPtr<IMFAttributes> copy;
    Require(MFCreateAttributes(copy.Put(), 1), "MFCreateAttributes");
    EXPECT_EQ(S_OK, m_face->SetUINT32(kKey, 1));
    EXPECT_EQ(S_OK, m_face->CopyAllItems(copy.Get()));
    UINT32 count = 0;
    EXPECT_EQ(S_OK, copy->GetCount(&count));
    EXPECT_EQ(4u, count);
    GUID type{};
    EXPECT_EQ(S_OK, copy->GetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE, &type));
    ComPtr<IUnknown> profiles;
    constexpr GUID kProfiles = {0x36EBDC44, 0xB12C, 0x441B, {0x89, 0xF4, 0x08, 0xB2, 0xF4, 0x1A, 0x9C, 0xFC}};
    EXPECT_EQ(S_OK, copy->GetUnknown(kProfiles, IID_IUnknown, profiles.PutVoid()));
}

TEST_F(SourceAttributes, LockingTheFaceLocksTheStore) {
    Create();
    ASSERT_EQ(S_OK, m_face->LockStore());
    HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HRESULT result = E_FAIL;
    std::thread writer([&] {
        result = m_store->SetUINT32(kKey, 9);
        SetEvent(done);
    });
    EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(done, 100)) << "the store is locked";
    DWORD characteristics = 0;
    EXPECT_EQ(S_OK, m_source->GetCharacteristics(&characteristics)) << "the source is not";
    EXPECT_EQ(S_OK, m_face->UnlockStore());
    EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitForSingleObject(done, kPatienceMs));
    writer.join();
    EXPECT_EQ(S_OK, result);
    CloseHandle(done);
}

TEST_F(SourceAttributes, TheStoreWorksBeforeAndAfterActivation) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    const ComPtr<IMFActivate> face = camera.Activate();
    EXPECT_EQ(S_OK, face->SetUINT32(kKey, 3));
    camera.Start();
    UINT32 number = 0;
    EXPECT_EQ(S_OK, face->GetUINT32(kKey, &number));
    EXPECT_EQ(3u, number);
    camera.Shutdown();
    number = 9;
    EXPECT_EQ(MF_E_SHUTDOWN, face->GetUINT32(kKey, &number));
    EXPECT_EQ(9u, number);
}

}  // namespace
}  // namespace ravlo::test
