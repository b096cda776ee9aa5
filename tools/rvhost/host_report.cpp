#include "rvhost/host_report.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>

#include "common/clock.h"

namespace ravlo {
namespace {

constexpr std::size_t kHistogramColumns = 40;

template <class... Values>
std::string Print(const char* format, Values... values) {
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::string CountLine(const char* label, std::uint64_t count) {
    return Print("%-18s%llu\n", label, static_cast<unsigned long long>(count));
}

std::string Bar(std::uint64_t count, std::uint64_t most) {
    // What is there at all is seen.
    const std::uint64_t length = count == 0 ? 0 : std::max<std::uint64_t>(1, count * kHistogramColumns / most);
    return std::string(static_cast<std::size_t>(length), '#');
}

/// One line a bar, up to the last one that holds anything.
std::string HistogramText(const std::vector<DelayBucket>& buckets) {
    std::uint64_t most = 0;
    std::size_t lines = 0;
    for (std::size_t i = 0; i < buckets.size(); ++i) {
        most = std::max(most, buckets[i].count);
        lines = buckets[i].count == 0 ? lines : i + 1;
    }
    std::string text;
    for (std::size_t i = 0; i < lines; ++i) {
        const auto& [below, count] = buckets[i];
        // The last bar goes on where the one before it ends.
        const std::string bound =
            below == kNoBound ? Print("  >=%6.1f ms", Ms(buckets[i - 1].below)) : Print("  < %6.1f ms", Ms(below));
        const std::string bar = Bar(count, most);
        text += bound + Print("%9llu", static_cast<unsigned long long>(count)) + (bar.empty() ? "" : "  " + bar) + "\n";
    }
    return text;
}

std::string StampText(const StampReport& stamps) {
    if (stamps.stamped == 0) {
        return {};
    }
    const std::string latency =
        stamps.timed == 0 ? "unknown: the stamps are older than ten seconds, or of another machine's clock"
                          : Print("p50 %.1f ms, p90 %.1f ms, p99 %.1f ms, max %.1f ms", Ms(stamps.latency.p50),
                                  Ms(stamps.latency.p90), Ms(stamps.latency.p99), Ms(stamps.latency.max));
    return "latency:          " + latency + "\n" +
           Print("stamped samples:  %llu (repeated frames %llu, skipped frames %llu)\n",
                 static_cast<unsigned long long>(stamps.stamped), static_cast<unsigned long long>(stamps.repeated),
                 static_cast<unsigned long long>(stamps.skipped));
}

}  // namespace

std::string ReportText(const HostReport& report) {
    const FrameGeometry& geometry = report.geometry;
    std::string text = Print("geometry:         %ux%u at %u/%u\n", geometry.width, geometry.height,
                             geometry.rateNumerator, geometry.rateDenominator);
    text += CountLine("samples:", report.samples) + CountLine("live:", report.live);
    text += CountLine("pattern:", report.pattern) + CountLine("grid errors:", report.gridErrors);
    text += CountLine("skipped periods:", report.skippedPeriods);
    text += CountLine("dropped pictures:", report.droppedPictures);
    if (report.y4m) {
        text += Print("Y4M frames:       %llu (dropped %llu)\n", static_cast<unsigned long long>(report.y4m->frames),
                      static_cast<unsigned long long>(report.y4m->dropped));
    }
    text += Print("rate:             %.2f fps\n", report.meanRate);
    text += StampText(report.stamps);
    text += Print("lateness:         p50 %.1f ms, p90 %.1f ms, p99 %.1f ms, max %.1f ms\n", Ms(report.lateness.p50),
                  Ms(report.lateness.p90), Ms(report.lateness.p99), Ms(report.lateness.max));
    return text + HistogramText(report.latenessBuckets);
}

std::string StatusText(const HostReport& report) {
    std::string text =
        Print("%lld s  samples %llu  live %llu  pattern %llu  %.1f fps  lateness p99 %.1f ms",
              static_cast<long long>(report.elapsed / kTicksPerSecond), static_cast<unsigned long long>(report.samples),
              static_cast<unsigned long long>(report.live), static_cast<unsigned long long>(report.pattern),
              report.recentRate, Ms(report.lateness.p99));
    if (report.stamps.timed != 0) {
        text += Print("  latency p50 %.1f ms", Ms(report.stamps.latency.p50));
    }
    return text;
}

}  // namespace ravlo
