// A camera that is started but that nobody feeds and nobody reads: its two threads wait, look, and wait again. Counted
// are the returns from waits that could block, the allocations, and the processor time of the process, which holds
// nothing but this camera; the thread that measures sleeps all the while.
#include <windows.h>

#include <malloc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "footprint/footprint.h"
#include "harness/live_camera.h"
#include "harness/measuring_child.h"
#include "harness/processor_time.h"
#include "harness/report.h"
#include "harness/stopwatch.h"

namespace ravlo::bench {
namespace {

constexpr FrameGeometry kGeometry{1920, 1080, 60, 1};
/// The gate pipe follows the frame pipe within one period of the gate; the C library's first-use allocations go too.
constexpr DWORD kSettleMs = 3000;
constexpr DWORD kQuickSettleMs = 1000;

std::atomic<unsigned> g_wakeups{0};
std::atomic<unsigned> g_allocations{0};

DWORD WINAPI CountedWaitForSingleObject(HANDLE object, DWORD timeoutMs) {
    const DWORD result = WaitForSingleObject(object, timeoutMs);
    g_wakeups += timeoutMs != 0 ? 1 : 0;
    return result;
}
DWORD WINAPI CountedWaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL all, DWORD timeoutMs) {
    const DWORD result = WaitForMultipleObjects(count, objects, all, timeoutMs);
    g_wakeups += timeoutMs != 0 ? 1 : 0;
    return result;
}
void WINAPI CountedSleep(DWORD timeoutMs) {
    Sleep(timeoutMs);
    ++g_wakeups;
}
// NOLINTBEGIN(cppcoreguidelines-no-malloc): these stand in for the very functions
void* CountedMalloc(std::size_t bytes) {
    ++g_allocations;
    return std::malloc(bytes);
}
void* CountedCalloc(std::size_t count, std::size_t size) {
    ++g_allocations;
    return std::calloc(count, size);
}
void* CountedRealloc(void* block, std::size_t bytes) {
    ++g_allocations;
    return std::realloc(block, bytes);
}
void* CountedAlignedMalloc(std::size_t bytes, std::size_t alignment) {
    ++g_allocations;
    return _aligned_malloc(bytes, alignment);
}
// NOLINTEND(cppcoreguidelines-no-malloc)
void* WINAPI CountedHeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
    ++g_allocations;
    return HeapAlloc(heap, flags, bytes);
}
HLOCAL WINAPI CountedLocalAlloc(UINT flags, SIZE_T bytes) {
    ++g_allocations;
    return LocalAlloc(flags, bytes);
}
void* WINAPI CountedVirtualAlloc(void* address, SIZE_T bytes, DWORD type, DWORD protection) {
    ++g_allocations;
    return VirtualAlloc(address, bytes, type, protection);
}

/// The waits and allocations of a module, counted while the object lives. What the module does not import it cannot
/// call.
class Counters {
public:
    explicit Counters(HMODULE module) {
        for (Entry& entry : m_entries) {
            entry.slot.Install(module, entry.function, entry.hook);
        }
        // The ones that every build of the module uses: without them nothing would be counted.
        if (!m_entries[0].slot.IsInstalled() || !m_entries[3].slot.IsInstalled()) {
            throw std::runtime_error("the module imports no wait or no allocation");
        }
    }
    ~Counters() {
        for (Entry& entry : m_entries) {
            entry.slot.Restore();
        }
    }
    Counters(const Counters&) = delete;
    Counters& operator=(const Counters&) = delete;

private:
    struct Entry {
        const char* function;
        void* hook;
        test::ImportSlot slot;
    };
    Entry m_entries[10] = {
        {"WaitForSingleObject", reinterpret_cast<void*>(&CountedWaitForSingleObject), {}},
        {"WaitForMultipleObjects", reinterpret_cast<void*>(&CountedWaitForMultipleObjects), {}},
        {"Sleep", reinterpret_cast<void*>(&CountedSleep), {}},
        {"malloc", reinterpret_cast<void*>(&CountedMalloc), {}},
        {"calloc", reinterpret_cast<void*>(&CountedCalloc), {}},
        {"realloc", reinterpret_cast<void*>(&CountedRealloc), {}},
        {"_aligned_malloc", reinterpret_cast<void*>(&CountedAlignedMalloc), {}},
        {"HeapAlloc", reinterpret_cast<void*>(&CountedHeapAlloc), {}},
        {"LocalAlloc", reinterpret_cast<void*>(&CountedLocalAlloc), {}},
        {"VirtualAlloc", reinterpret_cast<void*>(&CountedVirtualAlloc), {}},
    };
};

/// Arguments: a mark, ms to settle, ms to watch.
RAVLO_ROLE(IdleCamera) {
    const auto settleMs = static_cast<DWORD>(std::stoul(arguments.at(1)));
    const auto watchMs = static_cast<DWORD>(std::stoul(arguments.at(2)));
    const CameraGround ground;
    const test::ModuleUnderTest module;
    const Counters counters(module.Handle());
    test::Camera camera(module, {GeometryText(kGeometry)});
    camera.Start();
    if (g_allocations == 0 || !test::WaitForPipe(camera.PipeName()) ||
        !test::WaitForPipe(camera.PipeName() + L".gate")) {
        std::fputs("the camera does not come up\n", stderr);
        return 1;
    }
    const ProcessorTime processor(std::string(arguments.at(0).begin(), arguments.at(0).end()),
                                  ProcessorTime::Threads::AllButFirst);
    Sleep(settleMs);

    const double coarseBefore = ProcessorTime::CoarseMicroseconds();
    const double before = processor.Microseconds();
    g_wakeups = 0;
    g_allocations = 0;
    const Stopwatch watch;
    Sleep(watchMs);
    const double us = watch.Microseconds();
    const unsigned wakeups = g_wakeups;
    const unsigned allocations = g_allocations;
    const double used = processor.Microseconds() - before;
    const double coarseUsed = ProcessorTime::CoarseMicroseconds() - coarseBefore;
    std::printf("%.6f %u %u %.3f %.3f %d\n", us / 1e6, wakeups, allocations, used, coarseUsed,
                processor.IsExact() ? 1 : 0);
    return 0;
}

}  // namespace

void MeasureIdleCamera(const BenchOptions& options) {
    const DWORD settleMs = options.quick ? kQuickSettleMs : kSettleMs;
    const DWORD watchMs = options.quick ? 2000 : 60000;
    test::ChildProcess child =
        test::StartRole("IdleCamera", {UniqueMark(), std::to_wstring(settleMs), std::to_wstring(watchMs)});
    std::istringstream output(OutputOf(child, "the camera", settleMs + watchMs + 30000));
    double seconds = 0;
    double wakeups = 0;
    double allocations = 0;
    double usedUs = 0;
    double coarseUs = 0;
    double exact = 0;
    if (!(output >> seconds >> wakeups >> allocations >> usedUs >> coarseUs >> exact)) {
        throw std::runtime_error("the idle camera's process wrote no figures");
    }
    if (options.Wants("idle_wakeups")) {
        Report({"idle_wakeups", "", "1/s", {}, {wakeups / seconds}, {{"seconds", seconds}, {"wakeups", wakeups}}});
    }
    if (options.Wants("idle_core")) {
        Report({"idle_core",
                "",
                "%",
                {},
                {100 * usedUs / (seconds * 1e6)},
                {{"seconds", seconds},
                 {"used_us", usedUs},
                 {"used_us_in_clock_ticks", coarseUs},
                 {"exact_clock", exact},
                 {"us_per_wakeup", wakeups > 0 ? usedUs / wakeups : 0}}});
    }
    if (options.Wants("idle_allocations")) {
        Report({"idle_allocations", "", "", {}, {allocations}, {{"seconds", seconds}}});
    }
}

}  // namespace ravlo::bench
