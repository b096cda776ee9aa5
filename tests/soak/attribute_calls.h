// Calls of the activation face's attribute store. Each caller writes keys of its own, so it knows what it must read.
#pragma once

#include "soak/caller.h"

#include <mfapi.h>

namespace ravlo::test {

/// LockStore, a look, UnlockStore. A shutdown in between leaves nobody to unlock through, so the caller holds the store
/// itself as well, or its other users would wait for ever.
inline void CallLockedStore(Caller& caller) {
    const ComPtr<IMFAttributes> store = caller.Get<IMFAttributes>(
        Op::GetSourceAttributes, [&](IMFAttributes** out) { return caller.source->GetSourceAttributes(out); });
    const HRESULT locked = caller.Do(Op::AttributeLock, [&] { return caller.activate->LockStore(); });
    caller.record.Expect(FAILED(locked) || store, "there is a store to lock although there was none to hold");
    const HRESULT unlocked = caller.Do(Op::AttributeUnlock, [&] { return caller.activate->UnlockStore(); });
    if (SUCCEEDED(locked) && FAILED(unlocked) && store) {
        store->UnlockStore();
    }
}

inline void ReadBack(Caller& caller) {
    UINT32 value = 0;
    const HRESULT hr = caller.Do(Op::AttributeRead, [&] { return caller.activate->GetUINT32(caller.key, &value); });
    if (hr != MF_E_SHUTDOWN) {
        caller.record.Expect(
            hr == (caller.written ? S_OK : MF_E_ATTRIBUTENOTFOUND) && value == caller.written.value_or(0),
            "what was written is not what is read");
    }
}

/// False when `op` is none of these.
inline bool CallAttributes(Caller& caller, Op op) {
    IMFActivate* const store = caller.activate.Get();
    GUID second = caller.key;
    second.Data2 = 0x0002;
    switch (op) {
        case Op::AttributeWrite: {
            const UINT32 value = caller.Below(1'000'000) + 1;
            if (SUCCEEDED(caller.Do(op, [&] { return store->SetUINT32(caller.key, value); }))) {
                caller.written = value;
            }
            return true;
        }
        case Op::AttributeRead:
            ReadBack(caller);
            return true;
        case Op::AttributeMissing: {
            UINT32 value = 0;
            caller.Do(op, [&] { return store->GetUINT32(GUID{0x52564CFF, 0, 0, {}}, &value); });
            return true;
        }
        case Op::AttributeText:
            caller.Do(op, [&] { return store->SetString(second, L"a text"); });
            return true;
        case Op::AttributeDelete:
            caller.Do(op, [&] { return store->DeleteItem(second); });
            return true;
        case Op::AttributeCount: {
            UINT32 count = 0;
            const HRESULT hr = caller.Do(op, [&] { return store->GetCount(&count); });
            caller.record.Expect(FAILED(hr) || count >= 3, "the attributes of every source are not all there");
            return true;
        }
        case Op::AttributeItem: {
            GUID key{};
            PropVariant value;
            caller.Do(op, [&] { return store->GetItemByIndex(0, &key, value.Put()); });
            return true;
        }
        case Op::AttributeCopy: {
            ComPtr<IMFAttributes> copy;
            Require(MFCreateAttributes(copy.Put(), 4), "MFCreateAttributes");
            caller.Do(op, [&] { return store->CopyAllItems(copy.Get()); });
            return true;
        }
        case Op::AttributeLock:
        case Op::AttributeUnlock:
            CallLockedStore(caller);
            return true;
        default:
            return false;
    }
}

}  // namespace ravlo::test
