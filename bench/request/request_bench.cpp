// RequestSample of the module, live, with a producer in another process. One run a size yields these figures:
//
// request_own        product: one call's wall time without waiting, arming, platform allocation, fill and log writes,
//                    each taken by a hook around it. There is no floor: the figure is an amount, the same at every
//                    size. Each hook leaves about one reading of the clock behind; "hooks_us" says how much that is,
//                    and it is not taken off.
// request_own_awake  product: the same for calls that found their sample due and so waited for nothing, each right
//                    after another: what the work takes while caches and page tables still know it.
// wake_up            product: return of a call's last wait against the sample's due time. Floor: one bare wait on the
//                    same grid (see live_run.h).
// delivery_lateness  product: sample in the event queue against its due time. Floor: the bare wait and a bare sample.
#include <functional>

#include "harness/bench_main.h"
#include "harness/median.h"
#include "harness/report.h"
#include "request/live_run.h"

namespace ravlo::bench {
namespace {

/// The last percent of the waits is what is judged: some dozens of values there take thousands in all. Large frames are
/// limited by other things.
constexpr RunLength kFull{75, 60, 200};
constexpr RunLength kFullLarge{25, 60, 200};
constexpr RunLength kQuick{1, 15, 10};
constexpr double kUnitsPerUs = 10.0;

const RunLength& LengthFor(const FrameSize& size, bool quick) {
    const bool large = FrameBytes(size.geometry) > 8'000'000;
    return quick ? kQuick : large ? kFullLarge : kFull;
}

double LatenessUs(std::int64_t time, std::int64_t due) {
    return static_cast<double>(time - due) / kUnitsPerUs;
}

void ReportOwnTime(const FrameSize& size, const RunResult& result) {
    const auto medianOf = [&](const std::function<double(const CallRecord&)>& value) {
        std::vector<double> values;
        for (const Delivery& delivery : result.product) {
            values.push_back(value(delivery.call));
        }
        return Median(std::move(values));
    };
    const auto medianSpan = [&](Span span) {
        return medianOf([span](const CallRecord& call) { return call.Of(span); });
    };

    Measurement own{.row = "request_own", .size = size.name, .unit = "us", .floor = {}, .product = {}};
    for (const Delivery& delivery : result.product) {
        own.product.push_back(delivery.call.OwnUs());
    }
    own.context = {
        {"wait_us", medianSpan(Span::Wait)},
        {"arm_us", medianSpan(Span::Arm)},
        {"allocation_us", medianSpan(Span::Allocate)},
        {"fill_us", medianSpan(Span::Fill)},
        {"log_us", medianSpan(Span::Log)},
        {"platform_calls_us", medianSpan(Span::Platform)},
        {"own_without_platform_calls_us",
         medianOf([](const CallRecord& call) { return call.OwnUs() - call.Of(Span::Platform); })},
        {"own_with_arming_us", medianOf([](const CallRecord& call) { return call.OwnUs() + call.Of(Span::Arm); })},
        {"hooks_us", medianOf([&](const CallRecord& call) { return call.hooks * result.hookCostUs; })},
        {"waits", medianOf([](const CallRecord& call) { return static_cast<double>(call.waits); })},
    };
    Report(own);

    Measurement awake{.row = "request_own_awake", .size = size.name, .unit = "us", .floor = {}, .product = {}};
    for (const CallRecord& call : result.unwaited) {
        awake.product.push_back(call.OwnUs());
    }
    Report(awake);
}

void ReportWakeUp(const FrameSize& size, const RunResult& result) {
    Measurement wakeUp{.row = "wake_up", .size = size.name, .unit = "us", .floor = {}, .product = {}};
    double unwaited = 0;
    double unwaitedFloor = 0;
    for (const Delivery& delivery : result.product) {
        if (delivery.call.wokenAt != 0) {
            wakeUp.product.push_back(LatenessUs(delivery.call.wokenAt, delivery.due));
        } else {
            ++unwaited;
        }
    }
    for (const BareDelivery& delivery : result.floor) {
        if (delivery.wokenAt != 0) {
            wakeUp.floor.push_back(LatenessUs(delivery.wokenAt, delivery.due));
        } else {
            ++unwaitedFloor;
        }
    }
    wakeUp.context = {{"product_without_wait", unwaited},
                      {"floor_without_wait", unwaitedFloor},
                      {"short_blocks", static_cast<double>(result.shortBlocks)}};
    Report(wakeUp);
}

void ReportDelivery(const FrameSize& size, const RunResult& result) {
    Measurement lateness{.row = "delivery_lateness", .size = size.name, .unit = "us", .floor = {}, .product = {}};
    double patterns = 0;
    for (const Delivery& delivery : result.product) {
        lateness.product.push_back(LatenessUs(delivery.call.queuedAt, delivery.due));
        patterns += delivery.live ? 0 : 1;
    }
    for (const BareDelivery& delivery : result.floor) {
        lateness.floor.push_back(LatenessUs(delivery.builtAt, delivery.due));
    }
    lateness.context = {{"pattern_samples", patterns}};
    Report(lateness);
}

}  // namespace

void RunBench(const BenchOptions& options) {
    const bool own = options.Wants("request_own") || options.Wants("request_own_awake");
    const bool wakeUp = options.Wants("wake_up");
    const bool delivery = options.Wants("delivery_lateness");
    if (!own && !wakeUp && !delivery) {
        return;
    }
    for (const FrameSize& size : options.sizes) {
        const RunResult result = TakeLiveRun(size, LengthFor(size, options.quick));
        if (own) {
            ReportOwnTime(size, result);
        }
        if (wakeUp) {
            ReportWakeUp(size, result);
        }
        if (delivery) {
            ReportDelivery(size, result);
        }
    }
}

}  // namespace ravlo::bench
