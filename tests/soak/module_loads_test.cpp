// The module comes and goes many times, used differently each time, and leaves no thread, no handle, no address and no
// memory behind but what the runtime that is linked into it keeps in any DLL. As the measure of that runtime serves the
// stand-in for the library of sensor profiles: another DLL of the same compiler with the same static runtime.
//
// RAVLO_LOADS sets how many (200).
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/pipe_client.h"
#include "support/watchdog.h"

#include "soak/seeded_run.h"
#include "soak/process_state.h"

#include <cstdio>
#include <cstdlib>

namespace ravlo::test {
namespace {

constexpr unsigned long kUsualLoads = 200;
constexpr unsigned long kControlLoads = 8;
/// What the process's heaps may gain beyond the measure in a whole run: less than one block in ten loads.
constexpr std::size_t kSlackBlocks = 16;
constexpr std::size_t kSlackBytes = 16384;

/// The blocks that a DLL takes from the C heap from the moment its imports are bound until it is gone.
class LoadedBlocks {
public:
    explicit LoadedBlocks(const wchar_t* moduleName) : m_loading(moduleName) {
        m_loading.Add(&m_slots[0], "malloc", reinterpret_cast<void*>(&Malloc));
        m_loading.Add(&m_slots[1], "calloc", reinterpret_cast<void*>(&Calloc));
        m_loading.Add(&m_slots[2], "realloc", reinterpret_cast<void*>(&Realloc));
        m_loading.Add(&m_slots[3], "free", reinterpret_cast<void*>(&Free));
        s_live = 0;
        s_taken = 0;
    }
    ~LoadedBlocks() {
        for (ImportSlot& slot : m_slots) {
            m_loading.Remove(&slot);
            slot.Restore();
        }
    }
    LoadedBlocks(const LoadedBlocks&) = delete;
    LoadedBlocks& operator=(const LoadedBlocks&) = delete;

    int Loads() const { return m_loading.Loads(); }
    /// Blocks taken less blocks given back.
    static long Live() { return s_live.load(); }
    static long Taken() { return s_taken.load(); }

private:
    static void* Counted(void* block) {
        s_live += block ? 1 : 0;
        ++s_taken;
        return block;
    }
    static void* Malloc(std::size_t bytes) { return Counted(std::malloc(bytes)); }
    static void* Calloc(std::size_t count, std::size_t bytes) { return Counted(std::calloc(count, bytes)); }
    static void* Realloc(void* block, std::size_t bytes) {
        void* const moved = std::realloc(block, bytes);
        return block ? moved : Counted(moved);
    }
    static void Free(void* block) {
        s_live -= block ? 1 : 0;
        std::free(block);
    }

    static inline std::atomic<long> s_live{0};
    static inline std::atomic<long> s_taken{0};
    LoadHooks m_loading;
    std::array<ImportSlot, 4> m_slots;
};

/// Thread-local slots that the process can still hand out.
std::size_t FreeThreadLocalSlots() {
    std::vector<DWORD> slots;
    slots.reserve(2048);
    for (DWORD slot = TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = TlsAlloc()) {
        slots.push_back(slot);
    }
    for (const DWORD slot : slots) {
        TlsFree(slot);
    }
    return slots.size();
}

bool IsInModule(std::uintptr_t address) {
    HMODULE module = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              reinterpret_cast<LPCWSTR>(address), &module) != FALSE;
}

/// Exceptions and threads go through what modules have registered with the process; what a module left registered
/// when it went would be called now.
void RaiseAndThread() {
    bool caught = false;
    try {
        throw std::runtime_error("after the module");
    } catch (const std::runtime_error&) {
        caught = true;
    }
    EXPECT_TRUE(caught);
    PlainThread([] {}).Join();
}

class ModuleLoads : public AnchoredTest {
protected:
    static constexpr unsigned kUses = 6;

    void Serve(const ModuleUnderTest& module) {
        Camera camera(module, {.geometry = L"64x36@200/1"});
        PipeClient producer;
        ASSERT_TRUE(producer.Connect(camera.PipeName())) << m_log.Text();
        camera.Start();
        camera.Pull();
        ASSERT_TRUE(producer.SendFrame(64, 36, 7));
        EXPECT_TRUE(camera.PullUntil([](const Sample& sample) { return SignatureOf(sample.bytes, 64, 36) == 7u; }));
        EXPECT_TRUE(WaitUntil([&] { return ThreadsOf(ModuleRange(module.Handle())) == 2; }));
        EXPECT_EQ(S_OK, camera.Shutdown());
    }

    void Use(const ModuleUnderTest& module, unsigned use) {
        switch (use) {
            case 0:
                break;
            case 1:
                EXPECT_TRUE(module.Factory());
                break;
            case 2:
                EXPECT_EQ(S_OK, module.CreateSource<IMFMediaSource>()->Shutdown());
                break;
            case 3:
                EXPECT_EQ(S_OK, module.RegisterServer());
                EXPECT_EQ(S_OK, module.UnregisterServer());
                break;
            case 4:
                PlainThread([&] { Serve(module); }).Join();
                break;
            default:
                Serve(module);
                break;
        }
    }

    /// Loads, uses and unloads; the addresses that the module had.
    ModuleRange LoadOnce(unsigned use) {
        const ModuleUnderTest module;
        const ModuleRange range(module.Handle());
        Use(module, use);
        EXPECT_EQ(0u, ThreadsOf(range));
        return range;
    }

    /// What the runtime alone leaves at each load: blocks of its own, and all that the heaps gain.
    void MeasureRuntime() {
        wchar_t path[MAX_PATH];
        ASSERT_NE(0u, GetSystemDirectoryW(path, MAX_PATH));
        const std::wstring control = std::wstring(path) + L"\\mfsensorgroup.dll";
        const auto load = [&] {
            const HMODULE module = LoadLibraryW(control.c_str());
            ASSERT_TRUE(module);
            ASSERT_TRUE(FreeLibrary(module));
            ASSERT_FALSE(GetModuleHandleW(L"mfsensorgroup.dll"));
        };
        load();
        load();
        const LoadedBlocks blocks(L"mfsensorgroup.dll");
        const HeapUse before = TakenFromHeaps();
        for (unsigned long i = 0; i < kControlLoads; ++i) {
            load();
        }
        const HeapUse after = TakenFromHeaps();
        ASSERT_EQ(static_cast<int>(kControlLoads), blocks.Loads());
        ASSERT_GT(blocks.Taken(), 0);
        m_runtimeBlocks = (blocks.Live() + static_cast<long>(kControlLoads) - 1) / static_cast<long>(kControlLoads);
        m_runtimeHeap.blocks = (after.blocks - before.blocks + kControlLoads - 1) / kControlLoads;
        m_runtimeHeap.bytes = (after.bytes - before.bytes + kControlLoads - 1) / kControlLoads;
        // The module keeps this library for good, once a source was created. From here on it is there anyway.
        ASSERT_TRUE(LoadLibraryW(control.c_str()));
    }

    const MediaFoundation m_platform;  // its own start and end change the heaps by a few blocks, up and down
    long m_runtimeBlocks = 0;
    HeapUse m_runtimeHeap;
};

TEST_F(ModuleLoads, EveryLoadLeavesNoMoreThanItsRuntimeDoes) {
    const unsigned long loads = NumberFromEnvironment("RAVLO_LOADS", kUsualLoads);
    SetTestTimeout(std::chrono::seconds(60 + loads / 4));
    ASSERT_NO_FATAL_FAILURE(MeasureRuntime());
    for (unsigned use = 0; use < 2 * kUses; ++use) {
        LoadOnce(use % kUses);
        RaiseAndThread();
    }
    m_log.Restart();
    const std::size_t handles = SettledHandles();
    const std::size_t threads = ThreadStarts().size();
    const std::size_t slots = FreeThreadLocalSlots();
    const LoadedBlocks blocks(L"rvmediasource.dll");
    const HeapUse before = TakenFromHeaps();
    for (unsigned long number = 0; number < loads; ++number) {
        SCOPED_TRACE("load " + std::to_string(number));
        const long live = blocks.Live();
        const ModuleRange range = LoadOnce(static_cast<unsigned>(number % kUses));
        ASSERT_FALSE(HasFailure()) << m_log.Text();
        ASSERT_FALSE(GetModuleHandleW(L"rvmediasource.dll"));
        ASSERT_FALSE(IsInModule(range.begin));
        ASSERT_EQ(0u, ThreadsOf(range));
        ASSERT_LE(blocks.Live() - live, m_runtimeBlocks);
        RaiseAndThread();
        ASSERT_TRUE(WaitUntil([&] { return CountHandles() == handles && ThreadStarts().size() == threads; }))
            << handles << " handles and " << threads << " threads before, " << CountHandles() << " and "
            << ThreadStarts().size() << " now";
        m_log.Restart();
    }
    const HeapUse after = TakenFromHeaps();
    EXPECT_EQ(static_cast<int>(loads), blocks.Loads());
    EXPECT_GT(blocks.Taken(), static_cast<long>(loads));
    EXPECT_LE(after.blocks, before.blocks + loads * m_runtimeHeap.blocks + kSlackBlocks);
    EXPECT_LE(after.bytes, before.bytes + loads * m_runtimeHeap.bytes + kSlackBytes);
    EXPECT_EQ(slots, FreeThreadLocalSlots());
    std::printf(
        "[     LEFT ] %lu loads: %ld blocks of the module, %zu blocks and %zu bytes in the heaps; the runtime "
        "alone: %ld, %zu and %zu a load\n",
        loads, blocks.Live(), after.blocks - before.blocks, after.bytes - before.bytes, m_runtimeBlocks,
        m_runtimeHeap.blocks, m_runtimeHeap.bytes);
}

}  // namespace
}  // namespace ravlo::test
