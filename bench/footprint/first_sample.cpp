// From the call of ActivateObject to the first picture at hand, with no producer: the camera then serves its pattern
// when the first period after Start has passed, so one period of the time is the clock's and the rest the product's.
// Every repetition has a source of its own, with its own two threads, its own 25 MB of slots and its own pipe name.
#include <windows.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "footprint/footprint.h"
#include "harness/live_camera.h"
#include "harness/median.h"
#include "harness/report.h"
#include "harness/stopwatch.h"

namespace ravlo::bench {
namespace {

constexpr double kUsPerMs = 1000;

/// The parts of one repetition, in ms.
struct FirstSampleTimes {
    double activate = 0;
    double start = 0;    ///< descriptor, Start and the events that lead to the stream
    double request = 0;  ///< RequestSample and its event
    double shutdown = 0;

    double Total() const noexcept { return activate + start + request; }
};

test::ComPtr<IMFMediaStream> StartStream(IMFMediaSource* source) {
    const auto presentation = test::PresentationOf(source);
    const test::PropVariant position;
    test::Require(source->Start(presentation.Get(), nullptr, position.Get()), "IMFMediaSource::Start");
    const auto newStream = test::NextEvent(source);
    auto stream = newStream ? newStream->Object<IMFMediaStream>() : nullptr;
    const auto sourceStarted = test::NextEvent(source);
    if (!stream || !sourceStarted || sourceStarted->type != MESourceStarted) {
        throw std::runtime_error("the source did not start");
    }
    const auto streamStarted = test::NextEvent(stream.Get());
    if (!streamStarted || streamStarted->type != MEStreamStarted) {
        throw std::runtime_error("the stream did not start");
    }
    return stream;
}

FirstSampleTimes TimeFirstSample(const test::ModuleUnderTest& module, const FrameGeometry& geometry) {
    FirstSampleTimes times;
    const auto activate = module.CreateSource<IMFActivate>();
    test::Require(activate->SetString(test::kGeometryAttribute, GeometryText(geometry).c_str()), "SetString");
    test::Require(activate->SetString(test::kPipeNameAttribute, test::UniquePipeName().c_str()), "SetString");

    const Stopwatch watch;
    test::ComPtr<IMFMediaSource> source;
    test::Require(activate->ActivateObject(__uuidof(IMFMediaSource), source.PutVoid()), "ActivateObject");
    const double activated = watch.Microseconds();
    const auto stream = StartStream(source.Get());
    const double started = watch.Microseconds();
    const auto sample = PullSample(stream.Get());
    const double sampled = watch.Microseconds();

    if (StampOfSample(sample.Get(), geometry).number != 0) {
        throw std::runtime_error("the first sample is not the test pattern");
    }
    const Stopwatch ending;
    test::Require(source->Shutdown(), "IMFMediaSource::Shutdown");
    times.shutdown = ending.Microseconds() / kUsPerMs;
    times.activate = activated / kUsPerMs;
    times.start = (started - activated) / kUsPerMs;
    times.request = (sampled - started) / kUsPerMs;
    return times;
}

double MedianOf(const std::vector<FirstSampleTimes>& all, double FirstSampleTimes::*part) {
    std::vector<double> values;
    values.reserve(all.size());
    for (const FirstSampleTimes& times : all) {
        values.push_back(times.*part);
    }
    return Median(std::move(values));
}

}  // namespace

void MeasureFirstSample(const BenchOptions& options) {
    const CameraGround ground;
    const test::MediaFoundation mediaFoundation;
    const test::ModuleUnderTest module;
    const int repetitions = options.quick ? 5 : 200;
    for (const FrameSize& size : options.sizes) {
        TimeFirstSample(module, size.geometry);  // what is done once in a process
        std::vector<FirstSampleTimes> all;
        Measurement measurement{"first_sample", size.name, "ms", {}, {}};
        for (int i = 0; i < repetitions; ++i) {
            all.push_back(TimeFirstSample(module, size.geometry));
            measurement.product.push_back(all.back().Total());
        }
        measurement.context = {
            {"period_ms", 1000.0 * size.geometry.rateDenominator / size.geometry.rateNumerator},
            {"activate_ms", MedianOf(all, &FirstSampleTimes::activate)},
            {"start_ms", MedianOf(all, &FirstSampleTimes::start)},
            {"request_ms", MedianOf(all, &FirstSampleTimes::request)},
            {"shutdown_ms", MedianOf(all, &FirstSampleTimes::shutdown)},
        };
        Report(measurement);
    }
}

}  // namespace ravlo::bench
