// Rewriting the import table of a loaded module, to stage failures and to watch what it asks of the platform.
//
// Only calls that the module makes through its own static imports are seen: not those inside system DLLs, and
// not those through pointers from GetProcAddress (hook GetProcAddress itself for these).
//
//     RAVLO_HOOK(CreateNamedPipeW) pipes(module.Handle());
//     pipes.FailCall(1, INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);   // the next call fails, later ones pass
//     ...
//     EXPECT_EQ(1u, std::get<3>(pipes.Calls().at(0)));                // fourth argument: instances
//
// For calls made at process attach the hook must be there before DllMain runs:
//
//     LoadHooks loading;
//     RAVLO_HOOK(GetSecurityInfo) owners(loading);
//     ModuleUnderTest module(loading);
#pragma once

#include "support/load_notice.h"
#include "support/wait.h"

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace ravlo::test {

/// Points the import `function` of `module` at `hook` and returns what was there; nullptr when it is not
/// imported.
void* PatchImport(HMODULE module, const char* function, void* hook);

/// As PatchImport, typed. Nothing restores the entry: see ScopedHook and Intercept.
template <class F>
F* HookImport(HMODULE module, const char* function, F* hook) {
    return reinterpret_cast<F*>(PatchImport(module, function, reinterpret_cast<void*>(hook)));
}

/// One patched entry of an import table. Restoring is safe when the module has been unloaded meanwhile.
class ImportSlot {
public:
    /// False when `module` does not import `function`.
    bool Install(HMODULE module, const char* function, void* hook);
    void Restore();
    bool IsInstalled() const { return m_entry.load() != nullptr; }
    /// What the entry held before; stays valid after Restore, for calls still on their way through a hook.
    void* Original() const { return m_original.load(); }

private:
    std::atomic<void*> m_original{nullptr};
    std::atomic<void**> m_entry{nullptr};
    void* m_hook = nullptr;
};

/// A plain function in place of an import, for the life of the object.
/// Throws std::runtime_error when the module does not import the function.
template <class F>
class ScopedHook {
public:
    ScopedHook(HMODULE module, const char* function, F* hook) {
        if (!m_slot.Install(module, function, reinterpret_cast<void*>(hook))) {
            throw std::runtime_error(std::string("the module does not import ") + function);
        }
    }
    ~ScopedHook() { m_slot.Restore(); }
    ScopedHook(const ScopedHook&) = delete;
    ScopedHook& operator=(const ScopedHook&) = delete;

    F* Original() const { return reinterpret_cast<F*>(m_slot.Original()); }

private:
    ImportSlot m_slot;
};

/// Installs hooks into a module while it is being loaded: after its imports are bound, before its DllMain
/// runs. One object serves every load of that module during its life. Declare it before the hooks, the hooks
/// before the module.
class LoadHooks {
public:
    explicit LoadHooks(std::wstring moduleName = L"rvmediasource.dll");
    LoadHooks(const LoadHooks&) = delete;
    LoadHooks& operator=(const LoadHooks&) = delete;

    void Add(ImportSlot* slot, const char* function, void* hook);
    void Remove(ImportSlot* slot);

    /// How often the module was loaded since construction.
    int Loads() const { return m_loads.load(); }
    /// Names of hooked functions which the last loaded module does not import, separated by blanks; empty is
    /// good.
    std::string Missing() const;

private:
    struct Entry {
        ImportSlot* slot;
        const char* function;
        void* hook;
    };
    void OnLoaded(HMODULE module);

    std::vector<Entry> m_entries;
    std::string m_missing;
    std::atomic<int> m_loads{0};
    mutable SRWLOCK m_lock = SRWLOCK_INIT;
    LoadNotice m_notice;  ///< the first to go: it calls into all the others
};

/// A function's name as a template argument.
template <std::size_t N>
struct FunctionName {
    char text[N]{};
    constexpr FunctionName(const char (&name)[N]) {
        for (std::size_t i = 0; i < N; ++i) {
            text[i] = name[i];
        }
    }
};

namespace detail {

/// What a recorded argument is kept as: texts by copy, references by value, everything else as it was passed.
template <class A>
struct Recorded {
    using Type = std::decay_t<A>;
    static Type From(const std::decay_t<A>& argument) { return argument; }
};
template <>
struct Recorded<LPCWSTR> {
    using Type = std::wstring;
    static Type From(LPCWSTR text) { return reinterpret_cast<ULONG_PTR>(text) > 0xFFFF ? text : L""; }
};
template <>
struct Recorded<LPCSTR> {
    using Type = std::string;
    static Type From(LPCSTR text) { return reinterpret_cast<ULONG_PTR>(text) > 0xFFFF ? text : ""; }
};

struct SrwGuard {
    explicit SrwGuard(SRWLOCK& lock) : m_lock(lock) { AcquireSRWLockExclusive(&m_lock); }
    ~SrwGuard() { ReleaseSRWLockExclusive(&m_lock); }
    SrwGuard(const SrwGuard&) = delete;
    SrwGuard& operator=(const SrwGuard&) = delete;
    SRWLOCK& m_lock;
};

}  // namespace detail

template <FunctionName kName, class F>
class Intercept;

/// Stands in for one imported function: records every call, and passes it on, fails it or hands it to the
/// test. At most one object per function lives at a time. Any thread of the module may call; the object's own
/// methods may be used from any thread too. Spell the type with RAVLO_HOOK(Function).
template <FunctionName kName, class R, class... A>
class Intercept<kName, R(A...)> {
public:
    /// One recorded call. LPCWSTR and LPCSTR arguments are copied into strings (null gives an empty one).
    using Call = std::tuple<typename detail::Recorded<A>::Type...>;

    /// Hooks a loaded module. Throws std::runtime_error when the module does not import the function.
    explicit Intercept(HMODULE module) {
        Begin();
        if (!S().slot.Install(module, kName.text, reinterpret_cast<void*>(&Thunk))) {
            S().inUse = false;
            throw std::runtime_error(std::string("the module does not import ") + kName.text);
        }
    }
    /// Hooks the module that `loading` waits for, at each of its loads.
    explicit Intercept(LoadHooks& loading) : m_loading(&loading) {
        Begin();
        loading.Add(&S().slot, kName.text, reinterpret_cast<void*>(&Thunk));
    }
    /// Restores the import. A Replace or FailWhen lambda may still be running on a thread of the module: shut
    /// the source down first, or let the lambda capture by value.
    ~Intercept() {
        if (m_loading) {
            m_loading->Remove(&S().slot);
        }
        S().slot.Restore();
        PassOn();
        S().inUse = false;
    }
    Intercept(const Intercept&) = delete;
    Intercept& operator=(const Intercept&) = delete;

    /// Calls the real function, past the hook.
    static R CallOriginal(A... arguments) { return reinterpret_cast<R (*)(A...)>(S().slot.Original())(arguments...); }

    /// The n-th call from now (1 is the next one) returns `result`, with `lastError` set when given, and does
    /// not reach the platform; all others pass.
    template <class T = R>
    void FailCall(int n, T result, std::optional<DWORD> lastError = {}) {
        auto left = std::make_shared<std::atomic<int>>(n);
        FailWhen([left](const A&...) { return left->fetch_sub(1) == 1; }, result, lastError);
    }
    /// Every call from now on fails, until PassOn.
    template <class T = R>
    void FailEvery(T result, std::optional<DWORD> lastError = {}) {
        FailWhen([](const A&...) { return true; }, result, lastError);
    }
    /// Calls for whose arguments `condition` is true fail; the others pass.
    template <class T = R>
    void FailWhen(std::function<bool(const A&...)> condition, T result, std::optional<DWORD> lastError = {}) {
        static_assert(!std::is_void_v<R>, "a function without a result cannot fail");
        const R converted = static_cast<R>(result);
        Replace([condition = std::move(condition), converted, lastError](A... arguments) -> R {
            if (!condition(arguments...)) {
                return CallOriginal(arguments...);
            }
            if (lastError) {
                SetLastError(*lastError);
            }
            return converted;
        });
    }
    /// Every call from now on goes to `action` instead, which may use CallOriginal.
    void Replace(std::function<R(A...)> action) {
        auto shared = std::make_shared<const std::function<R(A...)>>(std::move(action));
        const detail::SrwGuard guard(S().lock);
        S().action = std::move(shared);
    }
    /// Calls pass to the platform again (as they do at first). They are still recorded.
    void PassOn() {
        const detail::SrwGuard guard(S().lock);
        S().action.reset();
    }

    /// False while a LoadHooks has not seen the module, and when that module lacks the import.
    bool IsInstalled() const { return S().slot.IsInstalled(); }
    /// The calls so far, oldest first (a copy).
    std::vector<Call> Calls() const {
        const detail::SrwGuard guard(S().lock);
        return S().calls;
    }
    std::size_t Count() const {
        const detail::SrwGuard guard(S().lock);
        return S().calls.size();
    }
    void ForgetCalls() {
        const detail::SrwGuard guard(S().lock);
        S().calls.clear();
    }
    /// Waits until at least `count` calls were recorded.
    bool WaitForCalls(std::size_t count, DWORD timeoutMs = kPatienceMs) const {
        return WaitUntil([&] { return Count() >= count; }, timeoutMs);
    }

private:
    struct State {
        ImportSlot slot;
        SRWLOCK lock = SRWLOCK_INIT;
        std::vector<Call> calls;
        std::shared_ptr<const std::function<R(A...)>> action;
        std::atomic<bool> inUse{false};
    };
    // Never destroyed: a thread of the module may be on its way through the thunk when the hook is taken
    // away.
    static State& S() {
        static State* const state = new State;
        return *state;
    }
    void Begin() {
        if (S().inUse.exchange(true)) {
            throw std::runtime_error(std::string(kName.text) + " is hooked already");
        }
        ForgetCalls();
    }
    static R Thunk(A... arguments) {
        const DWORD lastError = GetLastError();
        std::shared_ptr<const std::function<R(A...)>> action;
        {
            const detail::SrwGuard guard(S().lock);
            S().calls.emplace_back(detail::Recorded<A>::From(arguments)...);
            action = S().action;
        }
        SetLastError(lastError);
        if (action) {
            return (*action)(arguments...);
        }
        return CallOriginal(arguments...);
    }

    LoadHooks* m_loading = nullptr;
};

/// The Intercept type of a function that is declared in a platform header: RAVLO_HOOK(CreateEventW)
/// events(...); Inside another macro's argument give it a name first (`using Events =
/// RAVLO_HOOK(CreateEventW);`). The heap's functions carry compiler attributes that a type cannot hold: see
/// HeapFaults.
#define RAVLO_HOOK(function) ::ravlo::test::Intercept<#function, decltype(::function)>

}  // namespace ravlo::test
