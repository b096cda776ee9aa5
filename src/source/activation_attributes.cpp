#include "source/media_source.h"

#include <mferror.h>

// The activation face keeps no store of its own: what a client sets before the activation must land where the source
// reads it. Every operation is the same operation on the source's store, untraced and unfiltered.
namespace ravlo {

template <class Operation>
HRESULT RvMediaSource::OnStore(Operation operation) noexcept {
    const ComPtr<IMFAttributes> store = ReferenceActivationStore();
    return store ? operation(store.Get()) : MF_E_SHUTDOWN;
}

HRESULT RvMediaSource::GetItem(REFGUID key, PROPVARIANT* value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetItem(key, value); });
}

HRESULT RvMediaSource::GetItemType(REFGUID key, MF_ATTRIBUTE_TYPE* type) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetItemType(key, type); });
}

HRESULT RvMediaSource::CompareItem(REFGUID key, REFPROPVARIANT value, BOOL* result) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->CompareItem(key, value, result); });
}

HRESULT RvMediaSource::Compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE type, BOOL* result) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->Compare(theirs, type, result); });
}

HRESULT RvMediaSource::GetUINT32(REFGUID key, UINT32* value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetUINT32(key, value); });
}

HRESULT RvMediaSource::GetUINT64(REFGUID key, UINT64* value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetUINT64(key, value); });
}

HRESULT RvMediaSource::GetDouble(REFGUID key, double* value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetDouble(key, value); });
}

HRESULT RvMediaSource::GetGUID(REFGUID key, GUID* value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetGUID(key, value); });
}

HRESULT RvMediaSource::GetStringLength(REFGUID key, UINT32* length) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetStringLength(key, length); });
}

HRESULT RvMediaSource::GetString(REFGUID key, LPWSTR value, UINT32 size, UINT32* length) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetString(key, value, size, length); });
}

HRESULT RvMediaSource::GetAllocatedString(REFGUID key, LPWSTR* value, UINT32* length) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetAllocatedString(key, value, length); });
}

HRESULT RvMediaSource::GetBlobSize(REFGUID key, UINT32* size) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetBlobSize(key, size); });
}

HRESULT RvMediaSource::GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* blobSize) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetBlob(key, buffer, bufferSize, blobSize); });
}

HRESULT RvMediaSource::GetAllocatedBlob(REFGUID key, UINT8** buffer, UINT32* size) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetAllocatedBlob(key, buffer, size); });
}

HRESULT RvMediaSource::GetUnknown(REFGUID key, REFIID riid, LPVOID* object) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetUnknown(key, riid, object); });
}

HRESULT RvMediaSource::SetItem(REFGUID key, REFPROPVARIANT value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->SetItem(key, value); });
}

HRESULT RvMediaSource::DeleteItem(REFGUID key) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->DeleteItem(key); });
}

HRESULT RvMediaSource::DeleteAllItems() noexcept {
    return OnStore([](IMFAttributes* store) { return store->DeleteAllItems(); });
}

HRESULT RvMediaSource::SetUINT32(REFGUID key, UINT32 value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->SetUINT32(key, value); });
}

HRESULT RvMediaSource::SetUINT64(REFGUID key, UINT64 value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->SetUINT64(key, value); });
}

HRESULT RvMediaSource::SetDouble(REFGUID key, double value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->SetDouble(key, value); });
}

HRESULT RvMediaSource::SetGUID(REFGUID key, REFGUID value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->SetGUID(key, value); });
}

HRESULT RvMediaSource::SetString(REFGUID key, LPCWSTR value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->SetString(key, value); });
}

HRESULT RvMediaSource::SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->SetBlob(key, buffer, size); });
}

HRESULT RvMediaSource::SetUnknown(REFGUID key, IUnknown* object) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->SetUnknown(key, object); });
}

HRESULT RvMediaSource::LockStore() noexcept {
    return OnStore([](IMFAttributes* store) { return store->LockStore(); });
}

HRESULT RvMediaSource::UnlockStore() noexcept {
    return OnStore([](IMFAttributes* store) { return store->UnlockStore(); });
}

HRESULT RvMediaSource::GetCount(UINT32* count) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetCount(count); });
}

HRESULT RvMediaSource::GetItemByIndex(UINT32 index, GUID* key, PROPVARIANT* value) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->GetItemByIndex(index, key, value); });
}

HRESULT RvMediaSource::CopyAllItems(IMFAttributes* destination) noexcept {
    return OnStore([&](IMFAttributes* store) { return store->CopyAllItems(destination); });
}

}  // namespace ravlo
