#include "faults/residence.h"

#include "faults/gates.h"
#include "faults/ledger.h"
#include "faults/sites.h"
#include "support/handles.h"
#include "support/wait.h"

#include "ravlo/ids.h"

#include <objbase.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <utility>

namespace ravlo::faults {
namespace {

HMODULE LoadBeside(const wchar_t* name) {
    wchar_t path[MAX_PATH]{};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring text = path;
    text.resize(text.rfind(L'\\') + 1);
    const HMODULE module = LoadLibraryExW((text + name).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (module == nullptr) {
        throw std::runtime_error("a module beside this program does not load, error " + std::to_string(GetLastError()));
    }
    return module;
}

template <class F>
F Export(HMODULE module, const char* name) {
    const auto function = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    if (function == nullptr) {
        throw std::runtime_error(std::string("a module does not export ") + name);
    }
    return function;
}

/// Runs `action` on this thread and then on two others that live at the same time, as the module's two threads do: the
/// runtime keeps a record of each thread that ever threw, and uses those of ended threads again.
template <class Action>
void OnThreeThreads(Action action) {
    struct Start {
        Action& action;
        std::atomic<int> done{0};
    } start{action};
    const auto routine = [](void* parameter) -> DWORD {
        auto& shared = *static_cast<Start*>(parameter);
        shared.action();
        ++shared.done;
        test::WaitUntil([&] { return shared.done.load() == 2; });
        return 0;
    };
    action();
    HANDLE threads[2];
    for (HANDLE& thread : threads) {
        thread = CreateThread(nullptr, 0, routine, &start, 0, nullptr);
    }
    WaitForMultipleObjects(2, threads, TRUE, INFINITE);
    for (const HANDLE thread : threads) {
        CloseHandle(thread);
    }
}

Remains RemainsSince(std::size_t handlesBefore) {
    const std::size_t handles = test::SettledHandles();
    return {handles > handlesBefore ? handles - handlesBefore : 0, g_moduleHeap.Count()};
}

}  // namespace

Remains MeasureControl() {
    constexpr wchar_t kName[] = L"ravlo_fault_control.dll";
    const ImportGates gates(kName);
    g_moduleHeap.Clear();
    const std::size_t handlesBefore = test::SettledHandles();
    const HMODULE module = LoadBeside(kName);
    const auto throwOnce = Export<int (*)()>(module, "RavloControlThrow");
    std::atomic<int> caught{0};
    OnThreeThreads([&] { caught += throwOnce(); });
    if (caught != 3) {
        throw std::runtime_error("the control module caught nothing");
    }
    FreeLibrary(module);
    const Remains remains = RemainsSince(handlesBefore);
    g_moduleHeap.Clear();
    SetModuleImage(nullptr);
    return remains;
}

Residence::Residence() {
    g_moduleHeap.Clear();
    m_handlesBefore = test::SettledHandles();
    m_module = LoadBeside(L"rvmediasource.dll");
    using GetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
    const auto getClassObject = Export<GetClassObject>(m_module, "DllGetClassObject");
    std::atomic<int> noticed{0};
    OnThreeThreads([&] {
        static SRWLOCK lock = SRWLOCK_INIT;  // one staged failure at a time
        AcquireSRWLockExclusive(&lock);
        void* factory = nullptr;
        FailNextHeapCallHere();
        noticed += getClassObject(kMediaSourceClassId, IID_IClassFactory, &factory) == E_OUTOFMEMORY ? 1 : 0;
        ReleaseSRWLockExclusive(&lock);
    });
    if (noticed != 3) {
        throw std::runtime_error("the module did not notice that there was no memory");
    }
}

Residence::~Residence() {
    if (m_module != nullptr) {
        FreeLibrary(m_module);
    }
}

Remains Residence::Leave() {
    FreeLibrary(std::exchange(m_module, nullptr));
    return RemainsSince(m_handlesBefore);
}

}  // namespace ravlo::faults
