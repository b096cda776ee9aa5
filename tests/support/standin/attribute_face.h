#pragma once

#include <mfobjects.h>

#include "object.h"
#include "platform/com_ptr.h"
#include "stage.h"

#include <string>

namespace ravlo::standin {

/// The IMFAttributes part of an interface, kept in a store of the platform's. What changes the store is recorded and
/// may be told to fail.
template <class Interface>
class AttributeFace : public Object<Interface> {
public:
    explicit AttributeFace(ComPtr<IMFAttributes> store) : m_store(std::move(store)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (out && IsEqualGUID(iid, __uuidof(IMFAttributes))) {
            *out = static_cast<IMFAttributes*>(this);
            this->AddRef();
            return S_OK;
        }
        return Object<Interface>::QueryInterface(iid, out);
    }

    HRESULT STDMETHODCALLTYPE GetItem(REFGUID key, PROPVARIANT* value) override { return m_store->GetItem(key, value); }
    HRESULT STDMETHODCALLTYPE GetItemType(REFGUID key, MF_ATTRIBUTE_TYPE* type) override {
        return m_store->GetItemType(key, type);
    }
    HRESULT STDMETHODCALLTYPE CompareItem(REFGUID key, REFPROPVARIANT value, BOOL* equal) override {
        return m_store->CompareItem(key, value, equal);
    }
    HRESULT STDMETHODCALLTYPE Compare(IMFAttributes* other, MF_ATTRIBUTES_MATCH_TYPE type, BOOL* equal) override {
        return m_store->Compare(other, type, equal);
    }
    HRESULT STDMETHODCALLTYPE GetUINT32(REFGUID key, UINT32* value) override { return m_store->GetUINT32(key, value); }
    HRESULT STDMETHODCALLTYPE GetUINT64(REFGUID key, UINT64* value) override { return m_store->GetUINT64(key, value); }
    HRESULT STDMETHODCALLTYPE GetDouble(REFGUID key, double* value) override { return m_store->GetDouble(key, value); }
    HRESULT STDMETHODCALLTYPE GetGUID(REFGUID key, GUID* value) override { return m_store->GetGUID(key, value); }
    HRESULT STDMETHODCALLTYPE GetStringLength(REFGUID key, UINT32* length) override {
        return m_store->GetStringLength(key, length);
    }
    HRESULT STDMETHODCALLTYPE GetString(REFGUID key, LPWSTR text, UINT32 size, UINT32* length) override {
        return m_store->GetString(key, text, size, length);
    }
    HRESULT STDMETHODCALLTYPE GetAllocatedString(REFGUID key, LPWSTR* text, UINT32* length) override {
        return m_store->GetAllocatedString(key, text, length);
    }
    HRESULT STDMETHODCALLTYPE GetBlobSize(REFGUID key, UINT32* size) override {
        return m_store->GetBlobSize(key, size);
    }
    HRESULT STDMETHODCALLTYPE GetBlob(REFGUID key, UINT8* bytes, UINT32 size, UINT32* length) override {
        return m_store->GetBlob(key, bytes, size, length);
    }
    HRESULT STDMETHODCALLTYPE GetAllocatedBlob(REFGUID key, UINT8** bytes, UINT32* size) override {
        return m_store->GetAllocatedBlob(key, bytes, size);
    }
    HRESULT STDMETHODCALLTYPE GetUnknown(REFGUID key, REFIID iid, LPVOID* object) override {
        return m_store->GetUnknown(key, iid, object);
    }
    HRESULT STDMETHODCALLTYPE SetItem(REFGUID key, REFPROPVARIANT value) override {
        return Change(L"SetItem", GuidText(key), [&] { return m_store->SetItem(key, value); });
    }
    HRESULT STDMETHODCALLTYPE DeleteItem(REFGUID key) override {
        return Change(L"DeleteItem", GuidText(key), [&] { return m_store->DeleteItem(key); });
    }
    HRESULT STDMETHODCALLTYPE DeleteAllItems() override {
        return Change(L"DeleteAllItems", {}, [&] { return m_store->DeleteAllItems(); });
    }
    HRESULT STDMETHODCALLTYPE SetUINT32(REFGUID key, UINT32 value) override {
        return Change(L"SetUINT32", GuidText(key) + L" " + std::to_wstring(value),
                      [&] { return m_store->SetUINT32(key, value); });
    }
    HRESULT STDMETHODCALLTYPE SetUINT64(REFGUID key, UINT64 value) override {
        return Change(L"SetUINT64", GuidText(key) + L" " + std::to_wstring(value),
                      [&] { return m_store->SetUINT64(key, value); });
    }
    HRESULT STDMETHODCALLTYPE SetDouble(REFGUID key, double value) override {
        return Change(L"SetDouble", GuidText(key) + L" " + std::to_wstring(value),
                      [&] { return m_store->SetDouble(key, value); });
    }
    HRESULT STDMETHODCALLTYPE SetGUID(REFGUID key, REFGUID value) override {
        return Change(L"SetGUID", GuidText(key) + L" " + GuidText(value), [&] { return m_store->SetGUID(key, value); });
    }
    HRESULT STDMETHODCALLTYPE SetString(REFGUID key, LPCWSTR text) override {
        return Change(L"SetString", GuidText(key) + L" " + (text ? text : L"(null)"),
                      [&] { return m_store->SetString(key, text); });
    }
    HRESULT STDMETHODCALLTYPE SetBlob(REFGUID key, const UINT8* bytes, UINT32 size) override {
        return Change(L"SetBlob", GuidText(key) + L" " + std::to_wstring(size),
                      [&] { return m_store->SetBlob(key, bytes, size); });
    }
    HRESULT STDMETHODCALLTYPE SetUnknown(REFGUID key, IUnknown* object) override {
        return Change(L"SetUnknown", GuidText(key), [&] { return m_store->SetUnknown(key, object); });
    }
    HRESULT STDMETHODCALLTYPE LockStore() override { return m_store->LockStore(); }
    HRESULT STDMETHODCALLTYPE UnlockStore() override { return m_store->UnlockStore(); }
    HRESULT STDMETHODCALLTYPE GetCount(UINT32* count) override { return m_store->GetCount(count); }
    HRESULT STDMETHODCALLTYPE GetItemByIndex(UINT32 index, GUID* key, PROPVARIANT* value) override {
        return m_store->GetItemByIndex(index, key, value);
    }
    HRESULT STDMETHODCALLTYPE CopyAllItems(IMFAttributes* target) override { return m_store->CopyAllItems(target); }

protected:
    IMFAttributes& Store() { return *m_store.Get(); }

private:
    template <class Operation>
    static HRESULT Change(const wchar_t* method, const std::wstring& arguments, Operation operation) {
        const HRESULT staged = Enter(method, arguments);
        return FAILED(staged) ? staged : operation();
    }

    const ComPtr<IMFAttributes> m_store;
};

}  // namespace ravlo::standin
