#include "delivery/end_to_end.h"

#include "delivery/role_talk.h"
#include "harness/frame_writer.h"
#include "harness/measuring_child.h"
#include "harness/report.h"
#include "support/camera.h"

// A producer at the camera's rate in one process, the camera and its consumer in another, for a minute: counts of what
// must not happen at all. There is no floor: each of these counts is to be 0. What may happen without anybody being at
// fault (a frame shown twice or never, because producer and camera have clocks of their own; a producer that the
// machine held up) stands beside them.
namespace ravlo::bench {
namespace {

constexpr std::uint32_t kSeconds = 60;
constexpr std::uint32_t kQuickSeconds = 2;
/// Frames behind the counted ones: the producer is still at work when the last sample is taken.
constexpr std::uint32_t kSpareSeconds = 1;
constexpr DWORD kPatienceMs = 120000;

constexpr const char* kRows[] = {"pattern", "torn", "grid", "clamps"};
constexpr const char* kContext[] = {"samples",         "skipped_frames", "repeated_frames", "backward_frames",
                                    "torn_read_lines", "latency_p50_ms", "latency_p99_ms",  "latency_max_ms"};

bool WantsAny(const BenchOptions& options) {
    for (const char* row : kRows) {
        if (options.Wants(std::string("end_to_end_") + row)) {
            return true;
        }
    }
    return false;
}

void MeasureSize(const BenchOptions& options, const FrameSize& size) {
    const FrameGeometry& geometry = size.geometry;
    const std::uint32_t perSecond = geometry.rateNumerator / geometry.rateDenominator;
    const std::uint32_t seconds = options.quick ? kQuickSeconds : kSeconds;
    const std::uint32_t frames = (seconds + kSpareSeconds) * perSecond;
    const std::wstring pipe = test::UniquePipeName();

    test::Arguments arguments = GeometryArguments(geometry);
    arguments.insert(arguments.end(), {std::to_wstring(seconds * perSecond), pipe});
    test::ChildProcess camera = test::StartRole("CountedCamera", arguments);
    test::ChildProcess writer = StartWriter({.pipes = {pipe}, .geometry = geometry, .frames = frames});
    const std::string written = OutputOf(writer, "the producer", seconds * 1000 + kPatienceMs);
    const std::string counted = OutputOf(camera, "the camera", kPatienceMs);

    for (const char* row : kRows) {
        Measurement measurement{std::string("end_to_end_") + row, size.name, "samples", {}, {ToldValue(counted, row)}};
        for (const char* key : kContext) {
            measurement.context.emplace_back(key, ToldValue(counted, key));
        }
        measurement.context.emplace_back("frames_written", frames);
        measurement.context.emplace_back("frames_begun_late", LateFrames(written));
        if (options.Wants(measurement.row)) {
            Report(measurement);
        }
    }
}

}  // namespace

void MeasureEndToEnd(const BenchOptions& options) {
    if (!WantsAny(options)) {
        return;
    }
    for (const FrameSize& size : options.sizes) {
        if (size.geometry.height >= 1080) {
            MeasureSize(options, size);
        }
    }
}

}  // namespace ravlo::bench
