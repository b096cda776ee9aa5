#include "cameras/camera_host.h"

#include <windows.h>

#include <mfapi.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "harness/live_camera.h"
#include "harness/measuring_child.h"
#include "harness/processor_time.h"
#include "harness/stopwatch.h"

namespace ravlo::bench {
namespace {

constexpr FrameGeometry kGeometry{640, 360, kAskedRate, 1};
constexpr DWORD kPatienceMs = 30'000;
constexpr DWORD kSettleMs = 400;

/// The number of the producer's frame that the sample holds, 0 for none. Looks at two lines of it only: a whole check
/// would be a cost of the measurement among those of the product.
std::uint64_t FrameNumberOf(IMFSample* sample) {
    return LookAtSample(sample, [](const BYTE* bytes, DWORD) {
        FrameStamp stamp{};
        std::memcpy(&stamp, bytes, sizeof stamp);
        std::uint64_t last = 0;
        std::memcpy(&last, bytes + FrameBytes(kGeometry) - sizeof last, sizeof last);
        return stamp.number == last ? stamp.number : std::uint64_t{0};
    });
}

/// One camera and the thread that pulls from it.
class PulledCamera {
public:
    PulledCamera(const test::ModuleUnderTest& module, const std::wstring& pipe)
        : m_camera(module, {GeometryText(kGeometry), pipe}) {
        m_lateness.reserve(100'000);
        m_camera.Start();
        m_thread = std::thread([this] { Pull(); });
    }
    ~PulledCamera() { Stop(); }
    PulledCamera(const PulledCamera&) = delete;
    PulledCamera& operator=(const PulledCamera&) = delete;

    void Stop() {
        m_stop = true;
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    std::uint64_t Samples() const noexcept { return m_samples; }
    std::uint64_t LiveSamples() const noexcept { return m_live; }
    /// Samples that showed a frame for the first time.
    std::uint64_t Frames() const noexcept { return m_frames; }
    bool HasFailed() const noexcept { return m_failed; }
    /// From now on lateness is kept.
    void BeginMeasuring() noexcept { m_measuring = true; }
    void EndMeasuring() noexcept { m_measuring = false; }
    /// After Stop.
    const std::vector<double>& LatenessMs() const noexcept { return m_lateness; }

private:
    void Pull() noexcept {
        std::uint64_t last = 0;
        try {
            while (!m_stop) {
                const test::ComPtr<IMFSample> sample = PullSample(m_camera.Stream());
                const std::int64_t now = MFGetSystemTime();
                LONGLONG time = 0;
                test::Require(sample->GetSampleTime(&time), "GetSampleTime");
                if (m_measuring && m_lateness.size() < m_lateness.capacity()) {
                    // But for the first of a stream a sample is due at its own time.
                    m_lateness.push_back(static_cast<double>(now - time) / 10'000.0);
                }
                const std::uint64_t number = FrameNumberOf(sample.Get());
                m_live += number != 0 ? 1 : 0;
                m_frames += number > last ? 1 : 0;
                last = std::max(last, number);
                ++m_samples;
            }
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            m_failed = true;
        }
    }

    test::Camera m_camera;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_measuring{false};
    std::atomic<bool> m_failed{false};
    std::atomic<std::uint64_t> m_samples{0};
    std::atomic<std::uint64_t> m_live{0};
    std::atomic<std::uint64_t> m_frames{0};
    std::vector<double> m_lateness;
    std::thread m_thread;
};

using Cameras = std::vector<std::unique_ptr<PulledCamera>>;

/// The sums of everything that a block is made of, at one moment.
struct Look {
    double hostUs;
    double serverUs;
    double busyUs;
    double capacityUs;
    double seconds;
    double samples;
    double live;
    double frames;
};

Look LookNow(const ProcessorTime& processor, const Stopwatch& watch, const Cameras& cameras) {
    Look look{};
    FILETIME idle;
    FILETIME kernel;
    FILETIME user;
    GetSystemTimes(&idle, &kernel, &user);  // the kernel's time contains the idle time
    look.capacityUs = static_cast<double>(FileTimeTicks(kernel) + FileTimeTicks(user)) / 10.0;
    look.busyUs = look.capacityUs - static_cast<double>(FileTimeTicks(idle)) / 10.0;
    look.seconds = watch.Microseconds() / 1e6;
    for (const auto& camera : cameras) {
        look.samples += static_cast<double>(camera->Samples());
        look.live += static_cast<double>(camera->LiveSamples());
        look.frames += static_cast<double>(camera->Frames());
    }
    look.serverUs = ProcessorTime::ServerMicroseconds();
    look.hostUs = processor.Microseconds();
    return look;
}

void PrintBlock(const Look& from, const Look& to) {
    const double samples = to.samples - from.samples;
    std::printf("block %.3f %.3f %.3f %.3f %.6f %.0f %.0f %.0f\n", to.hostUs - from.hostUs, to.serverUs - from.serverUs,
                to.busyUs - from.busyUs, to.capacityUs - from.capacityUs, to.seconds - from.seconds, samples,
                samples - (to.live - from.live), to.frames - from.frames);
}

/// Arguments: a mark, blocks, ms of a block, and a pipe for each camera.
int HostCameras(const test::Arguments& arguments) {
    const auto blocks = static_cast<unsigned>(std::stoul(arguments.at(1)));
    const auto blockMs = static_cast<DWORD>(std::stoul(arguments.at(2)));
    const CameraGround ground;
    const test::MediaFoundation mediaFoundation;
    const test::ModuleUnderTest module;
    const ProcessorTime processor(std::string(arguments.at(0).begin(), arguments.at(0).end()),
                                  ProcessorTime::Threads::AllButFirst);
    Cameras cameras;
    for (std::size_t i = 3; i < arguments.size(); ++i) {
        cameras.push_back(std::make_unique<PulledCamera>(module, arguments[i]));
    }
    const auto allLive = [&] {
        for (const auto& camera : cameras) {
            if (camera->LiveSamples() < 3) {
                return false;
            }
        }
        return true;
    };
    if (!test::WaitUntil(allLive, kPatienceMs, 20)) {
        std::fputs("a camera got no frames\n", stderr);
        return 1;
    }
    Sleep(kSettleMs);
    std::printf("clock %d\n", processor.IsExact() ? 1 : 0);
    for (const auto& camera : cameras) {
        camera->BeginMeasuring();
    }
    const Stopwatch watch;
    Look before = LookNow(processor, watch, cameras);
    for (unsigned i = 0; i < blocks; ++i) {
        Sleep(blockMs);
        const Look after = LookNow(processor, watch, cameras);
        PrintBlock(before, after);
        before = after;
    }
    for (const auto& camera : cameras) {
        camera->EndMeasuring();
    }
    for (const auto& camera : cameras) {
        camera->Stop();
        if (camera->HasFailed()) {
            return 1;
        }
        for (const double lateness : camera->LatenessMs()) {
            std::printf("late %.4f\n", lateness);
        }
    }
    std::puts("done");
    return 0;
}

RAVLO_ROLE(CameraHost) {
    return HostCameras(arguments);
}

HostResult ParseResult(const std::string& output) {
    HostResult result;
    std::istringstream lines(output);
    std::string word;
    while (lines >> word) {
        if (word == "clock") {
            lines >> result.exact;
        } else if (word == "block") {
            HostBlock block;
            lines >> block.hostUs >> block.serverUs >> block.machineUs >> block.machineCapacityUs >> block.seconds >>
                block.samples >> block.patterns >> block.frames;
            result.blocks.push_back(block);
        } else if (word == "late") {
            double lateness = 0;
            lines >> lateness;
            result.latenessMs.push_back(lateness);
        }
    }
    return result;
}

}  // namespace

HostResult RunCameraHost(const HostOrders& orders) {
    test::Arguments arguments{UniqueMark(), std::to_wstring(orders.blocks), std::to_wstring(orders.blockMs)};
    std::vector<test::ChildProcess> writers;
    for (unsigned i = 0; i < orders.cameras; ++i) {
        const std::wstring pipe = test::UniquePipeName();
        arguments.push_back(pipe);
        WriterOrders writer;
        writer.pipes = {pipe};
        writer.geometry = kGeometry;
        writers.push_back(StartWriter(writer));
    }
    test::ChildProcess host = test::StartRole("CameraHost", arguments);
    HostResult result = ParseResult(OutputOf(host, "the camera", 2 * kPatienceMs + orders.blocks * orders.blockMs));
    if (result.blocks.size() != orders.blocks) {
        throw std::runtime_error("the process with the cameras measured too little");
    }
    for (const HostBlock& block : result.blocks) {
        if (block.frames <= 0) {
            throw std::runtime_error("the cameras delivered no frames");
        }
    }
    return result;
}

}  // namespace ravlo::bench
