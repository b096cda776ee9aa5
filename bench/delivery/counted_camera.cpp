#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include "delivery/process_log.h"
#include "delivery/role_talk.h"
#include "harness/live_camera.h"
#include "harness/page_buffer.h"
#include "harness/performance_counter.h"
#include "support/wait.h"

// The camera process of the rows end_to_end_*: pulls samples, judges each where it lies, and tells the counts.
namespace ravlo::bench {
namespace {

constexpr DWORD kFirstFramePatienceMs = 40000;
constexpr DWORD kEndPatienceMs = 60000;

/// No level of the test pattern is below this; a writer's frames hold 1 wherever they hold no stamp.
constexpr BYTE kDarkestOfPattern = 16;

enum class Picture { Frame, Pattern, Torn };

/// What bytes without a whole stamp are: those of the test pattern alone, in every row of both planes, or a mixture.
Picture JudgeUnstamped(const BYTE* bytes, std::size_t length, const FrameGeometry& geometry) {
    bool pattern = length == FrameBytes(geometry);
    for (std::size_t offset = geometry.width / 2; pattern && offset < length; offset += geometry.width) {
        pattern = bytes[offset] >= kDarkestOfPattern;
    }
    return pattern ? Picture::Pattern : Picture::Torn;
}

Picture JudgeUnstamped(IMFSample* sample, const FrameGeometry& geometry) {
    return LookAtSample(sample,
                        [&](const BYTE* bytes, DWORD length) { return JudgeUnstamped(bytes, length, geometry); });
}

/// Counts of nothing are worth something only when what is counted would be seen: a frame whose lower rows are those of
/// the next one is neither whole nor the pattern.
void RequireThatTornFramesShow(const FrameGeometry& geometry) {
    PageBuffer upper(FrameBytes(geometry));
    PageBuffer lower(FrameBytes(geometry));
    StampFrame(upper.Data(), geometry, {1, 1});
    StampFrame(lower.Data(), geometry, {2, 2});
    const bool wholeSeen = ReadStamp(upper.Data(), geometry).number == 1;
    const std::size_t rows = std::size_t{geometry.height / 2} * geometry.width;
    std::copy(lower.Data() + rows, lower.Data() + lower.Size(), upper.Data() + rows);
    if (!wholeSeen || ReadStamp(upper.Data(), geometry).number != 0 ||
        JudgeUnstamped(upper.Data(), upper.Size(), geometry) != Picture::Torn) {
        throw std::runtime_error("a torn frame would not be noticed");
    }
}

struct Pulled {
    Picture picture;
    FrameStamp stamp;
    double latencyMs;  ///< of a frame: from its first byte written to the sample in the consumer's hand
};

/// Pulls samples and holds each against the grid of sample times that the first one began.
class JudgingConsumer {
public:
    JudgingConsumer(IMFMediaStream* stream, const FrameGeometry& geometry) : m_stream(stream), m_geometry(geometry) {}

    Pulled Pull() {
        const test::ComPtr<IMFSample> sample = PullSample(m_stream);
        const std::int64_t now = CounterNow();
        m_onGrid = IsOnGrid(sample.Get());
        const FrameStamp stamp = StampOfSample(sample.Get(), m_geometry);
        if (stamp.number == 0) {
            return {JudgeUnstamped(sample.Get(), m_geometry), stamp, 0};
        }
        return {Picture::Frame, stamp, CounterMicroseconds(now - stamp.writtenAt) / 1000};
    }

    /// Whether time and duration of the last sample were exactly what its place in the row of samples makes them.
    bool WasOnGrid() const noexcept { return m_onGrid; }

private:
    bool IsOnGrid(IMFSample* sample) {
        const LONGLONG period = SampleDuration(m_geometry);
        LONGLONG time = 0;
        LONGLONG duration = 0;
        test::Require(sample->GetSampleTime(&time), "GetSampleTime");
        test::Require(sample->GetSampleDuration(&duration), "GetSampleDuration");
        if (m_samples == 0) {
            m_base = time;
        }
        return time == m_base + m_samples++ * period && duration == period;
    }

    IMFMediaStream* m_stream;
    const FrameGeometry m_geometry;
    LONGLONG m_base = 0;
    LONGLONG m_samples = 0;
    bool m_onGrid = true;
};

struct Counts {
    std::uint32_t samples = 0;
    std::uint32_t pattern = 0;
    std::uint32_t torn = 0;
    std::uint32_t offGrid = 0;
    std::uint64_t skipped = 0;
    std::uint32_t repeated = 0;
    std::uint32_t backward = 0;
    std::vector<double> latencies;
    std::uint64_t lastNumber = 0;

    void Add(const Pulled& pulled, bool onGrid) {
        ++samples;
        offGrid += onGrid ? 0U : 1U;
        pattern += pulled.picture == Picture::Pattern ? 1U : 0U;
        torn += pulled.picture == Picture::Torn ? 1U : 0U;
        if (pulled.picture != Picture::Frame) {
            return;
        }
        const std::uint64_t number = pulled.stamp.number;
        repeated += number == lastNumber ? 1U : 0U;
        backward += number < lastNumber ? 1U : 0U;
        skipped += lastNumber != 0 && number > lastNumber ? number - lastNumber - 1 : 0;
        lastNumber = std::max(lastNumber, number);
        latencies.push_back(pulled.latencyMs);
    }

    /// The latency that `share` of the frames do not exceed.
    double Latency(double share) {
        if (latencies.empty()) {
            return 0;
        }
        std::sort(latencies.begin(), latencies.end());
        return latencies[static_cast<std::size_t>(share * static_cast<double>(latencies.size() - 1))];
    }
};

/// Samples before the first frame do not count, but their times begin the grid.
Pulled AwaitFirstFrame(JudgingConsumer& consumer) {
    const test::Deadline deadline(kFirstFramePatienceMs);
    for (;;) {
        const Pulled pulled = consumer.Pull();
        if (pulled.picture != Picture::Pattern) {
            return pulled;
        }
        if (deadline.Passed()) {
            throw std::runtime_error("no frame of the producer came");
        }
    }
}

/// Lets the producer finish: it would fail if the camera went away before its last frame. The camera listens again when
/// it has gone.
void AwaitEndOfProducer(const std::wstring& pipe) {
    if (!test::WaitUntil([&] { return WaitNamedPipeW(pipe.c_str(), 1) != FALSE; }, kEndPatienceMs, 10)) {
        throw std::runtime_error("the producer does not end");
    }
}

/// How often the camera moved a sample's time, by its own account at the end, and how often it said that a frame was
/// overwritten under a copy.
void TellLines(const ProcessLog& log) {
    int stopLines = 0;
    double clamps = 0;
    double tornLines = 0;
    for (const std::string& message : log.Messages()) {
        unsigned long long fired = 0;
        if (std::sscanf(message.c_str(), "TS publish-tick clamp fired %llu of", &fired) == 1) {
            ++stopLines;
            clamps += static_cast<double>(fired);
        }
        tornLines += message.find("read attempt(s) that this thread overwrote") != std::string::npos ? 1 : 0;
    }
    if (stopLines != 1) {
        throw std::runtime_error("the log does not tell how many sample times were moved");
    }
    Tell("clamps", clamps);
    Tell("torn_read_lines", tornLines);
}

RAVLO_ROLE(CountedCamera) {
    RoleArguments next(arguments);
    const FrameGeometry geometry = next.Geometry();
    const std::uint32_t lastCounted = next.Number();
    const std::wstring pipe = next.Text();

    RequireThatTornFramesShow(geometry);
    const CameraGround ground;
    const test::ModuleUnderTest module;
    const ProcessLog log(module.Handle());
    test::Camera camera(module, {.geometry = GeometryText(geometry), .pipeName = pipe});
    camera.Start();
    JudgingConsumer consumer(camera.Stream(), geometry);
    Counts counts;
    counts.latencies.reserve(2 * std::size_t{lastCounted});
    counts.Add(AwaitFirstFrame(consumer), consumer.WasOnGrid());
    // Up to a frame, not a number of samples: a consumer that the machine held up must not outlast the producer.
    const test::Deadline deadline(2 * 1000 * lastCounted / (geometry.rateNumerator / geometry.rateDenominator) +
                                  kFirstFramePatienceMs);
    while (counts.lastNumber < lastCounted) {
        if (deadline.Passed()) {
            throw std::runtime_error("the producer's last frame does not come");
        }
        const Pulled pulled = consumer.Pull();
        counts.Add(pulled, consumer.WasOnGrid());
    }
    AwaitEndOfProducer(pipe);
    camera.Stop();

    Tell("samples", counts.samples);
    Tell("pattern", counts.pattern);
    Tell("torn", counts.torn);
    Tell("grid", counts.offGrid);
    Tell("skipped_frames", static_cast<double>(counts.skipped));
    Tell("repeated_frames", counts.repeated);
    Tell("backward_frames", counts.backward);
    Tell("latency_p50_ms", counts.Latency(0.50));
    Tell("latency_p99_ms", counts.Latency(0.99));
    Tell("latency_max_ms", counts.Latency(1));
    TellLines(log);
    return 0;
}

}  // namespace
}  // namespace ravlo::bench
