// What one running camera adds to the private bytes of its process.
//
// The floor is what its work needs at any moment: two slots for the largest frame, the buffer into which a frame is
// received, and one sample on its way to the consumer. The difference is taken in a process of its own, against the
// moment before the camera's source exists but after everything that a process pays once: Media Foundation, the module,
// and a small camera that has run and gone. The producer runs in another process; its frames come at the camera's rate.
//
// The figure is the larger of two counts, because each alone could hide something: committed private pages, touched or
// not, and anonymous pages that were touched. From both is taken what two threads of the same process that do nothing
// commit and touch: under Wine a thread commits the stack reserve that the program's header names, 3 MB and more in
// all, and touches 1 MB before it begins. None of that is the camera's; under Windows it is next to nothing.
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "footprint/footprint.h"
#include "harness/live_camera.h"
#include "harness/measuring_child.h"
#include "harness/report.h"
#include "platform/unique_handle.h"
#include "support/committed_memory.h"

namespace ravlo::bench {
namespace {

constexpr double kSlotBytes = 12'441'600;
constexpr unsigned kFramesBetweenLooks = 3;
constexpr DWORD kPatienceMs = 20'000;
constexpr DWORD kThreadStartMs = 100;
constexpr FrameGeometry kFirstGeometry{320, 180, 30, 1};

/// A camera that comes and goes, so that what stays behind of a first one is no cost of the next.
void RunFirstCamera(const test::ModuleUnderTest& module) {
    test::Camera camera(module, {GeometryText(kFirstGeometry)});
    camera.Start();
    for (int i = 0; i < 3; ++i) {
        PullSample(camera.Stream());
    }
}

/// A thread that waits for the event that it is given.
DWORD WINAPI WaitThread(void* event) {
    WaitForSingleObject(event, kPatienceMs);
    return 0;
}

/// Under Wine, the bytes of anonymous pages that were ever touched and not given back. Under Windows, the commit charge.
double TouchedBytes() noexcept {
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)
               ? static_cast<double>(counters.PagefileUsage)
               : 0;
}

/// Private memory by both counts.
struct Bytes {
    double committed = static_cast<double>(test::CommittedBytes());
    double touched = TouchedBytes();

    Bytes Since(const Bytes& before) const noexcept {
        Bytes difference(*this);
        difference.committed -= before.committed;
        difference.touched -= before.touched;
        return difference;
    }
};

/// What the platform takes for two threads that do nothing.
Bytes BytesOfTwoThreads() {
    const UniqueObject end(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const Bytes before;
    const UniqueObject threads[] = {UniqueObject(CreateThread(nullptr, 0, &WaitThread, end.Get(), 0, nullptr)),
                                    UniqueObject(CreateThread(nullptr, 0, &WaitThread, end.Get(), 0, nullptr))};
    Sleep(kThreadStartMs);
    const Bytes bytes = Bytes().Since(before);
    SetEvent(end.Get());
    for (const UniqueObject& thread : threads) {
        WaitForSingleObject(thread.Get(), kPatienceMs);
    }
    return bytes;
}

/// Arguments: width, height, numerator, denominator, frames until the camera counts as settled, looks.
/// Prints two numbers a line, committed and touched bytes: of two bare threads, and then of the camera at each look.
RAVLO_ROLE(MemoryOfCamera) {
    const auto number = [&](std::size_t i) { return static_cast<std::uint32_t>(std::stoul(arguments.at(i))); };
    const FrameGeometry geometry{number(0), number(1), number(2), number(3)};
    const std::uint32_t settleFrames = number(4);
    const std::uint32_t looks = number(5);
    const CameraGround ground;
    const test::MediaFoundation mediaFoundation;
    const test::ModuleUnderTest module;
    RunFirstCamera(module);
    WriterOrders orders;
    orders.pipes = {test::UniquePipeName()};
    orders.geometry = geometry;
    const test::ChildProcess writer = StartWriter(orders);
    const Bytes threads = BytesOfTwoThreads();
    std::printf("%.0f %.0f\n", threads.committed, threads.touched);
    const Bytes before;

    test::Camera camera(module, {GeometryText(geometry), orders.pipes[0]});
    camera.Start();
    const test::Deadline deadline(kPatienceMs);
    std::uint32_t live = 0;
    for (std::uint32_t looked = 0; looked < looks;) {
        if (deadline.Passed()) {
            std::fputs("too few frames came\n", stderr);
            return 1;
        }
        const auto sample = PullSample(camera.Stream());
        live += StampOfSample(sample.Get(), geometry).number != 0 ? 1 : 0;
        if (live > settleFrames && live % kFramesBetweenLooks == 0) {
            // With the sample still in the consumer's hands.
            const Bytes bytes = Bytes().Since(before);
            std::printf("%.0f %.0f\n", bytes.committed, bytes.touched);
            ++looked;
        }
    }
    return 0;
}

}  // namespace

void MeasureMemory(const BenchOptions& options) {
    const unsigned settleFrames = options.quick ? 5 : 60;
    const unsigned looks = options.quick ? 5 : 50;
    for (const FrameSize& size : options.sizes) {
        const FrameGeometry& geometry = size.geometry;
        test::Arguments arguments;
        for (const unsigned value :
             {geometry.width, geometry.height, geometry.rateNumerator, geometry.rateDenominator, settleFrames, looks}) {
            arguments.push_back(std::to_wstring(value));
        }
        test::ChildProcess child = test::StartRole("MemoryOfCamera", arguments);
        std::istringstream output(OutputOf(child, "the camera", 2 * kPatienceMs));
        Measurement measurement{"memory", size.name, "bytes", {}, {}};
        Bytes threads;
        Bytes camera;
        output >> threads.committed >> threads.touched;
        while (output >> camera.committed >> camera.touched) {
            const Bytes own = camera.Since(threads);
            measurement.product.push_back(std::max(own.committed, own.touched));
        }
        if (measurement.product.size() != looks) {
            throw std::runtime_error("the camera's memory was looked at too seldom");
        }
        const auto frame = static_cast<double>(FrameBytes(geometry));
        measurement.floor = {2 * kSlotBytes + 2 * frame};
        measurement.context = {{"slots", 2 * kSlotBytes},
                               {"receive_buffer", frame},
                               {"sample", frame},
                               {"committed", camera.committed},
                               {"touched", camera.touched},
                               {"two_threads_committed", threads.committed},
                               {"two_threads_touched", threads.touched}};
        Report(measurement);
    }
}

}  // namespace ravlo::bench
