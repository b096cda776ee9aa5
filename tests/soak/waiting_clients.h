// Clients of a camera that are in the middle of waiting for something when it ends.
#pragma once

#include "soak/process_state.h"
#include "support/com.h"
#include "support/import_hooks.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <mfobjects.h>

#include <atomic>
#include <functional>
#include <utility>

namespace ravlo::test {

/// A client that waits for an event of the generator that it gave as the state of its request. Not on the heap: whoever
/// still holds it afterwards is found by its count.
class WaitingCallback final : public IMFAsyncCallback {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        if (riid != IID_IUnknown && riid != IID_IMFAsyncCallback) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        *object = this;
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++m_references); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(--m_references); }
    STDMETHODIMP GetParameters(DWORD*, DWORD*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(IMFAsyncResult* result) override {
        ComPtr<IUnknown> generator;
        ComPtr<IMFMediaEvent> event;
        EXPECT_EQ(S_OK, result->GetState(generator.Put()));
        generator.As<IMFMediaEventGenerator>()->EndGetEvent(result, event.Put());
        return S_OK;
    }

    long References() const { return m_references.load(); }

private:
    std::atomic<long> m_references{1};
};

/// Shortens what a life only waits for: the reader's look at its stop event while it listens, and the gate thread's
/// period, for which that thread alone gets a clock that is as much faster. Both are recognised by their length. Now
/// and then the gate thread takes its time to end once it is told to.
class ShortWaits {
public:
    explicit ShortWaits(HMODULE module)
        : m_waits(module, "WaitForSingleObject", &Wait), m_ticks(module, "GetTickCount64", &Ticks) {}

private:
    static constexpr DWORD kListenMs = 100;
    static constexpr DWORD kGatePeriodMs = 500;
    static constexpr DWORD kFactor = 50;
    static constexpr unsigned kSlowEnds = 4;
    static constexpr DWORD kSlowEndMs = 40;
    static inline const DWORD s_onGateThread = TlsAlloc();
    static inline std::atomic<unsigned> s_ends{0};

    static DWORD WINAPI Wait(HANDLE object, DWORD timeoutMs) {
        if (timeoutMs == kGatePeriodMs) {
            TlsSetValue(s_onGateThread, object);
        }
        const bool shorten = timeoutMs == kGatePeriodMs || timeoutMs == kListenMs;
        const DWORD result = WaitForSingleObject(object, shorten ? kGatePeriodMs / kFactor : timeoutMs);
        if (timeoutMs == kGatePeriodMs && result == WAIT_OBJECT_0 && ++s_ends % kSlowEnds == 0) {
            Sleep(kSlowEndMs);  // a teardown that did not wait for its threads would be over long before this one
        }
        return result;
    }
    static ULONGLONG WINAPI Ticks() {
        return TlsGetValue(s_onGateThread) ? GetTickCount64() * kFactor : GetTickCount64();
    }

    ScopedHook<decltype(WaitForSingleObject)> m_waits;
    ScopedHook<decltype(GetTickCount64)> m_ticks;
};

/// Asks for something, on a thread of its own, until it is refused; the refusal is the last answer.
class Asking {
public:
    explicit Asking(std::function<HRESULT()> ask)
        : m_thread([this, ask = std::move(ask)] {
              while (SUCCEEDED(m_last = ask())) {}
          }) {}

    /// Waits for the refusal.
    HRESULT Last() {
        m_thread.Join();
        return m_last;
    }

private:
    HRESULT m_last = S_OK;
    PlainThread m_thread;
};

}  // namespace ravlo::test
