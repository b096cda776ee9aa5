// Stand-ins for platform objects that the module gets through an import: everything passes to the real object
// behind them, unless a test watches or answers a call.
#pragma once

#include "support/com.h"
#include "support/counted.h"

#include <windows.h>

#include <mfidl.h>
#include <mfobjects.h>

#include <bit>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ravlo::test {

/// One operation of an attribute store, its arguments as numbers: pointers and references as addresses.
struct StoreCall {
    std::string operation;
    std::vector<std::uint64_t> arguments;

    bool operator==(const StoreCall&) const = default;
};

namespace detail {

template <class T>
std::uint64_t AsNumber(T* pointer) {
    return reinterpret_cast<std::uint64_t>(pointer);
}
inline std::uint64_t AsNumber(double value) {
    return std::bit_cast<std::uint64_t>(value);
}
template <class T>
std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>, std::uint64_t> AsNumber(T value) {
    return static_cast<std::uint64_t>(value);
}

}  // namespace detail

/// The call that StoreProxy reports for these arguments.
template <class... A>
StoreCall MakeStoreCall(std::string operation, A... arguments) {
    return {std::move(operation), {detail::AsNumber(arguments)...}};
}

/// An attribute store. `answer` is asked first, on the thread of the call; what it returns ends the call.
class StoreProxy final : public Counted<IMFAttributes> {
public:
    using Answer = std::function<std::optional<HRESULT>(const StoreCall& call)>;

    StoreProxy(ComPtr<IMFAttributes> inner, Answer answer) : m_inner(std::move(inner)), m_answer(std::move(answer)) {}

    // clang-format off
    STDMETHODIMP GetItem(REFGUID k, PROPVARIANT* v) override { return Run("GetItem", [&] { return m_inner->GetItem(k, v); }, &k, v); }
    STDMETHODIMP GetItemType(REFGUID k, MF_ATTRIBUTE_TYPE* t) override { return Run("GetItemType", [&] { return m_inner->GetItemType(k, t); }, &k, t); }
    STDMETHODIMP CompareItem(REFGUID k, REFPROPVARIANT v, BOOL* r) override { return Run("CompareItem", [&] { return m_inner->CompareItem(k, v, r); }, &k, &v, r); }
    STDMETHODIMP Compare(IMFAttributes* o, MF_ATTRIBUTES_MATCH_TYPE t, BOOL* r) override { return Run("Compare", [&] { return m_inner->Compare(o, t, r); }, o, t, r); }
    STDMETHODIMP GetUINT32(REFGUID k, UINT32* v) override { return Run("GetUINT32", [&] { return m_inner->GetUINT32(k, v); }, &k, v); }
    STDMETHODIMP GetUINT64(REFGUID k, UINT64* v) override { return Run("GetUINT64", [&] { return m_inner->GetUINT64(k, v); }, &k, v); }
    STDMETHODIMP GetDouble(REFGUID k, double* v) override { return Run("GetDouble", [&] { return m_inner->GetDouble(k, v); }, &k, v); }
    STDMETHODIMP GetGUID(REFGUID k, GUID* v) override { return Run("GetGUID", [&] { return m_inner->GetGUID(k, v); }, &k, v); }
    STDMETHODIMP GetStringLength(REFGUID k, UINT32* n) override { return Run("GetStringLength", [&] { return m_inner->GetStringLength(k, n); }, &k, n); }
    STDMETHODIMP GetString(REFGUID k, LPWSTR v, UINT32 s, UINT32* n) override { return Run("GetString", [&] { return m_inner->GetString(k, v, s, n); }, &k, v, s, n); }
    STDMETHODIMP GetAllocatedString(REFGUID k, LPWSTR* v, UINT32* n) override { return Run("GetAllocatedString", [&] { return m_inner->GetAllocatedString(k, v, n); }, &k, v, n); }
    STDMETHODIMP GetBlobSize(REFGUID k, UINT32* n) override { return Run("GetBlobSize", [&] { return m_inner->GetBlobSize(k, n); }, &k, n); }
    STDMETHODIMP GetBlob(REFGUID k, UINT8* b, UINT32 s, UINT32* n) override { return Run("GetBlob", [&] { return m_inner->GetBlob(k, b, s, n); }, &k, b, s, n); }
    STDMETHODIMP GetAllocatedBlob(REFGUID k, UINT8** b, UINT32* n) override { return Run("GetAllocatedBlob", [&] { return m_inner->GetAllocatedBlob(k, b, n); }, &k, b, n); }
    STDMETHODIMP GetUnknown(REFGUID k, REFIID i, LPVOID* o) override { return Run("GetUnknown", [&] { return m_inner->GetUnknown(k, i, o); }, &k, &i, o); }
    STDMETHODIMP SetItem(REFGUID k, REFPROPVARIANT v) override { return Run("SetItem", [&] { return m_inner->SetItem(k, v); }, &k, &v); }
    STDMETHODIMP DeleteItem(REFGUID k) override { return Run("DeleteItem", [&] { return m_inner->DeleteItem(k); }, &k); }
    STDMETHODIMP DeleteAllItems() override { return Run("DeleteAllItems", [&] { return m_inner->DeleteAllItems(); }); }
    STDMETHODIMP SetUINT32(REFGUID k, UINT32 v) override { return Run("SetUINT32", [&] { return m_inner->SetUINT32(k, v); }, &k, v); }
    STDMETHODIMP SetUINT64(REFGUID k, UINT64 v) override { return Run("SetUINT64", [&] { return m_inner->SetUINT64(k, v); }, &k, v); }
    STDMETHODIMP SetDouble(REFGUID k, double v) override { return Run("SetDouble", [&] { return m_inner->SetDouble(k, v); }, &k, v); }
    STDMETHODIMP SetGUID(REFGUID k, REFGUID v) override { return Run("SetGUID", [&] { return m_inner->SetGUID(k, v); }, &k, &v); }
    STDMETHODIMP SetString(REFGUID k, LPCWSTR v) override { return Run("SetString", [&] { return m_inner->SetString(k, v); }, &k, v); }
    STDMETHODIMP SetBlob(REFGUID k, const UINT8* b, UINT32 s) override { return Run("SetBlob", [&] { return m_inner->SetBlob(k, b, s); }, &k, b, s); }
    STDMETHODIMP SetUnknown(REFGUID k, IUnknown* o) override { return Run("SetUnknown", [&] { return m_inner->SetUnknown(k, o); }, &k, o); }
    STDMETHODIMP LockStore() override { return Run("LockStore", [&] { return m_inner->LockStore(); }); }
    STDMETHODIMP UnlockStore() override { return Run("UnlockStore", [&] { return m_inner->UnlockStore(); }); }
    STDMETHODIMP GetCount(UINT32* n) override { return Run("GetCount", [&] { return m_inner->GetCount(n); }, n); }
    STDMETHODIMP GetItemByIndex(UINT32 i, GUID* k, PROPVARIANT* v) override { return Run("GetItemByIndex", [&] { return m_inner->GetItemByIndex(i, k, v); }, i, k, v); }
    STDMETHODIMP CopyAllItems(IMFAttributes* d) override { return Run("CopyAllItems", [&] { return m_inner->CopyAllItems(d); }, d); }
    // clang-format on

private:
    template <class Operation, class... A>
    HRESULT Run(const char* name, Operation operation, A... arguments) {
        const std::optional<HRESULT> answer = m_answer(MakeStoreCall(name, arguments...));
        return answer ? *answer : operation();
    }

    ComPtr<IMFAttributes> m_inner;
    Answer m_answer;
};

/// An event about to be queued.
struct QueuedEvent {
    MediaEventType type;
    GUID extendedType;
    HRESULT status;
    const PROPVARIANT* value;  ///< valid during the call
};

/// An event queue. `onQueue` is asked before an event goes in, on the thread of the call; what it returns
/// ends the call.
class QueueProxy final : public Counted<IMFMediaEventQueue> {
public:
    using Answer = std::function<std::optional<HRESULT>(const QueuedEvent& event)>;

    QueueProxy(ComPtr<IMFMediaEventQueue> inner, Answer onQueue)
        : m_inner(std::move(inner)), m_onQueue(std::move(onQueue)) {}

    STDMETHODIMP GetEvent(DWORD flags, IMFMediaEvent** event) override { return m_inner->GetEvent(flags, event); }
    STDMETHODIMP BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) override {
        return m_inner->BeginGetEvent(callback, state);
    }
    STDMETHODIMP EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) override {
        return m_inner->EndGetEvent(result, event);
    }
    STDMETHODIMP QueueEvent(IMFMediaEvent* event) override { return m_inner->QueueEvent(event); }
    STDMETHODIMP QueueEventParamVar(MediaEventType type, REFGUID extended, HRESULT status,
                                    const PROPVARIANT* value) override {
        const std::optional<HRESULT> answer = m_onQueue({type, extended, status, value});
        return answer ? *answer : m_inner->QueueEventParamVar(type, extended, status, value);
    }
    STDMETHODIMP QueueEventParamUnk(MediaEventType type, REFGUID extended, HRESULT status, IUnknown* object) override {
        return m_inner->QueueEventParamUnk(type, extended, status, object);
    }
    STDMETHODIMP Shutdown() override { return m_inner->Shutdown(); }

private:
    ComPtr<IMFMediaEventQueue> m_inner;
    Answer m_onQueue;
};

}  // namespace ravlo::test
