#include "request/live_run.h"

#include <mfapi.h>
#include <mfidl.h>

#include <stdexcept>
#include <utility>

#include "harness/live_camera.h"
#include "request/bare_delivery.h"
#include "support/wait.h"

namespace ravlo::bench {
namespace {

/// The camera begins a new grid when it is more than four periods late; a block ends before that, with the late sample
/// as its last. The floor begins a new grid then.
constexpr std::int64_t kPeriodsBehind = 3;
constexpr DWORD kFirstFrameMs = 10000;

class LiveRun {
public:
    LiveRun(const FrameSize& size, const RunLength& length)
        : m_geometry(size.geometry),
          m_period(SampleDuration(size.geometry)),
          m_length(length),
          m_camera(m_module, {.geometry = GeometryText(size.geometry)}),
          m_writer(StartWriter({.pipes = {m_camera.PipeName()}, .geometry = size.geometry})),
          m_spans(m_module.Handle()),
          m_bareSample(size.geometry) {}

    RunResult Run() {
        AwaitLiveFrames();
        const std::size_t wanted = std::size_t{m_length.blocks} * m_length.framesABlock;
        while (m_result.product.size() < wanted) {
            RunFloorBlock(RunCameraBlock());
        }
        for (unsigned i = 0; i < m_length.bursts; ++i) {
            RunBurst();
        }
        m_writer.Kill();
        m_result.hookCostUs = m_spans.HookCostUs();
        return std::move(m_result);
    }

private:
    void AwaitLiveFrames() {
        if (!m_writer.WaitForOutput("connected")) {
            throw std::runtime_error("the producer does not connect: " + m_writer.Output());
        }
        m_camera.Start();
        const test::Deadline deadline(kFirstFrameMs);
        while (StampOfSample(PullSample(m_camera.Stream()).Get(), m_geometry).number == 0) {
            if (deadline.Passed()) {
                throw std::runtime_error("no frame of the producer comes out of the camera");
            }
        }
    }

    bool IsFarBehind(std::int64_t time, std::int64_t due) const { return time - due > kPeriodsBehind * m_period; }

    /// Restarts the camera and takes its first sample. Where that took so long that the grid began anew already, the
    /// sample times say nothing about what is due, and it is done again.
    void StartGrid() {
        LONGLONG first = 0;
        const test::Deadline deadline(kFirstFrameMs);
        do {
            if (deadline.Passed()) {
                throw std::runtime_error("the camera does not get to its first sample in time: the machine is busy");
            }
            m_camera.Stop();
            m_camera.Start();
            test::Require(PullSample(m_camera.Stream())->GetSampleTime(&first), "GetSampleTime");
        } while (IsFarBehind(MFGetSystemTime(), first));
    }

    /// Returns the number of frames, fewer than a block's when the camera fell behind so far that it may leave its
    /// grid.
    unsigned RunCameraBlock() {
        StartGrid();
        IMFMediaStream* const stream = m_camera.Stream();
        for (unsigned frames = 1;; ++frames) {
            HRESULT hr = E_FAIL;
            Delivery delivery{};
            delivery.call = m_spans.Measure([&] { hr = stream->RequestSample(nullptr); });
            test::Require(hr, "RequestSample");
            const test::ComPtr<IMFSample> sample = TakeSample(stream);
            test::Require(sample->GetSampleTime(&delivery.due), "GetSampleTime");
            delivery.live = StampOfSample(sample.Get(), m_geometry).number != 0;
            m_lastDue = delivery.due;
            m_result.product.push_back(delivery);
            const bool isFarBehind = IsFarBehind(delivery.call.queuedAt, delivery.due);
            m_result.shortBlocks += isFarBehind ? 1 : 0;
            if (isFarBehind || frames == m_length.framesABlock) {
                return frames;
            }
        }
    }

    void RunFloorBlock(unsigned frames) {
        for (unsigned i = 0; i < frames; ++i) {
            BareDelivery delivery{};
            m_lastDue += m_period;
            delivery.due = m_lastDue;
            delivery.wokenAt = m_bareWait.WaitUntil(delivery.due, CallSpans::WaitedFor());
            const test::ComPtr<IMFSample> sample = m_bareSample.Build(delivery.due);
            delivery.builtAt = MFGetSystemTime();
            m_bareSample.RenewFrame(sample.Get());
            m_result.floor.push_back(delivery);
            if (IsFarBehind(delivery.builtAt, delivery.due)) {
                m_lastDue = delivery.builtAt;
            }
        }
    }

    /// Lets a few samples become due and takes them at once. What a call costs whose thread was not asleep before shows
    /// the second of them.
    void RunBurst() {
        constexpr std::int64_t kUnitsPerMs = 10'000;
        StartGrid();
        Sleep(static_cast<DWORD>((2 * m_period + m_period / 2) / kUnitsPerMs));
        for (int i = 0; i < 2; ++i) {
            HRESULT hr = E_FAIL;
            const CallRecord call = m_spans.Measure([&] { hr = m_camera.Stream()->RequestSample(nullptr); });
            test::Require(hr, "RequestSample");
            (void)TakeSample(m_camera.Stream());
            if (i == 1 && call.waits == 0) {
                m_result.unwaited.push_back(call);
            }
        }
    }

    const FrameGeometry m_geometry;
    const std::int64_t m_period;
    const RunLength m_length;
    const CameraGround m_ground;
    const test::ModuleUnderTest m_module;
    test::Camera m_camera;
    test::ChildProcess m_writer;
    CallSpans m_spans;
    BareWait m_bareWait;
    BareSample m_bareSample;
    std::int64_t m_lastDue = 0;
    RunResult m_result;
};

}  // namespace

RunResult TakeLiveRun(const FrameSize& size, const RunLength& length) {
    return LiveRun(size, length).Run();
}

}  // namespace ravlo::bench
