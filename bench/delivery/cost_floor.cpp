#include <mfapi.h>

#include <iterator>
#include <stdexcept>

#include "delivery/cost_meter.h"
#include "delivery/floor_frames.h"
#include "delivery/process_log.h"
#include "delivery/role_talk.h"
#include "delivery/sample_front.h"
#include "harness/bare_log.h"
#include "harness/bare_sample.h"
#include "harness/live_camera.h"
#include "platform/timer_flags.h"
#include "stream/object_event.h"

// The floor's camera process of the row frame_cost: what nobody who delivers frames by these means can do without. One
// thread reads and copies (floor_frames.h). The other waits for each time of its grid, copies the newest frame into a
// new sample, passes it through an event queue to the consumer, and puts into a log as many bytes in as many lines as
// the module does meanwhile. Nothing is formatted, checked, counted or guarded.
namespace ravlo::bench {
namespace {

/// The lines of one sample, of every second and of every 300th sample, as the module writes them when PullSample pulls.
constexpr const char* kLinesOfSample[] = {"RET STM.RequestSample hr=0x00000000", "CALL STM.GetEvent dwFlags=0x00000001",
                                          "RET STM.GetEvent hr=0x00000000"};
constexpr const char kLineOfSecond[] = "STM.RequestSample observed 1000 total calls (rate-limited to <=1 line/s)";
constexpr const char kLineOf300[] = "TS pacing clamp fired 0 of 3000 samples (0.0%; expected 0)";

/// A log beside the module's own, so that both are opened through the same directories.
class FloorLog {
public:
    FloorLog() : m_path(ProcessLog(nullptr).Path()) {
        m_path.insert(m_path.find_last_of(L'\\') + 1, L"floor-" + std::to_wstring(GetCurrentProcessId()) + L"-");
        m_prefix = "[" + std::to_string(GetCurrentProcessId()) + ":" + std::to_string(GetCurrentThreadId()) +
                   " bench_delivery.exe] 12:34:56.789 ";
        for (std::size_t i = 0; i < std::size(kLinesOfSample); ++i) {
            m_linesOfSample[i] = m_prefix + kLinesOfSample[i] + "\r\n";
        }
        m_lineOfSecond = m_prefix + kLineOfSecond + "\r\n";
        m_lineOf300 = m_prefix + kLineOf300 + "\r\n";
    }
    ~FloorLog() { DeleteFileW(m_path.c_str()); }
    FloorLog(const FloorLog&) = delete;
    FloorLog& operator=(const FloorLog&) = delete;

    void WriteRequestLines(std::uint64_t sample, std::uint64_t samplesPerSecond) {
        if (sample % samplesPerSecond == 0) {
            Append(m_lineOfSecond);
        }
        if (sample % 300 == 0) {
            Append(m_lineOf300);
        }
        Append(m_linesOfSample[0]);
    }
    void WriteEventLines() {
        Append(m_linesOfSample[1]);
        Append(m_linesOfSample[2]);
    }
    std::uint64_t Lines() const noexcept { return m_lines; }

private:
    void Append(const std::string& line) {
        AppendLine(m_path.c_str(), line);
        ++m_lines;
    }

    std::wstring m_path;
    std::string m_prefix;
    std::string m_linesOfSample[std::size(kLinesOfSample)];
    std::string m_lineOfSecond;
    std::string m_lineOf300;
    std::uint64_t m_lines = 0;
};

/// The bare half that hands frames out.
class FloorCamera {
public:
    FloorCamera(const FloorFrames& frames, const FrameGeometry& geometry)
        : m_frames(frames),
          m_geometry(geometry),
          m_period(SampleDuration(geometry)),
          m_samplesPerSecond(geometry.rateNumerator / geometry.rateDenominator),
          m_timer(CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION,
                                         SYNCHRONIZE | TIMER_MODIFY_STATE)) {
        test::Require(MFCreateEventQueue(m_queue.Put()), "MFCreateEventQueue");
    }

    /// The grid of due times begins now, as it does when a consumer that has rested comes back.
    void BeginGrid() { m_due = MFGetSystemTime(); }

    test::ComPtr<IMFSample> Pull() {
        AwaitDueTime();
        test::ComPtr<IMFSample> sample = BuildBareSample(m_geometry, m_frames.Newest(), m_due);
        test::Require(QueueObjectEvent(m_queue.Get(), MEMediaSample, sample.Get()), "QueueEventParamVar");
        sample.Reset();
        m_log.WriteRequestLines(++m_samples, m_samplesPerSecond);
        test::ComPtr<IMFMediaEvent> event;
        test::Require(m_queue->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.Put()), "GetEvent");
        m_log.WriteEventLines();
        test::PropVariant value;
        test::Require(event->GetValue(value.Put()), "IMFMediaEvent::GetValue");
        return test::ComPtr<IUnknown>::Share(value->punkVal).As<IMFSample>();
    }

    std::uint64_t Lines() const noexcept { return m_log.Lines(); }

private:
    void AwaitDueTime() {
        m_due += m_period;
        for (std::int64_t left = m_due - MFGetSystemTime(); left > 0; left = m_due - MFGetSystemTime()) {
            LARGE_INTEGER relative{};
            relative.QuadPart = -left;
            if (!SetWaitableTimer(m_timer.Get(), &relative, 0, nullptr, nullptr, FALSE) ||
                WaitForSingleObject(m_timer.Get(), 1000) != WAIT_OBJECT_0) {
                throw std::runtime_error("the floor cannot wait");
            }
        }
    }

    const FloorFrames& m_frames;
    const FrameGeometry m_geometry;
    const std::int64_t m_period;
    const std::uint64_t m_samplesPerSecond;
    const UniqueObject m_timer;
    FloorLog m_log;
    test::ComPtr<IMFMediaEventQueue> m_queue;
    std::int64_t m_due = 0;
    std::uint64_t m_samples = 0;
};

RAVLO_ROLE(CostFloor) {
    RoleArguments next(arguments);
    BlockPlan plan{};
    plan.geometry = next.Geometry();
    plan.turn = next.Number();
    plan.blocks = next.Number();
    plan.firstOfBlocks = plan.turn + 1;

    // The log's location is chosen by the anchor, as the module's is.
    const CameraGround ground;
    const test::MediaFoundation mediaFoundation;
    const std::wstring pipe = next.Text();
    const std::wstring mark = next.Text();
    FloorFrames frames(pipe, plan.geometry);
    FloorCamera camera(frames, plan.geometry);
    CostMeter meter(plan, std::string(mark.begin(), mark.end()));
    frames.AwaitFirst();
    do {
        camera.BeginGrid();
        while (meter.Delivered(StampInFront(camera.Pull().Get()))) {}
    } while (meter.AwaitNextBlock());

    meter.TellAll();
    Tell("lines_per_sample", static_cast<double>(camera.Lines()) / static_cast<double>(meter.Samples()));
    return 0;
}

}  // namespace
}  // namespace ravlo::bench
