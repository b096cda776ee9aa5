// What every sample of a camera must be, whatever its producers do.
#pragma once

#include "soak/sent_frames.h"
#include "soak/stall_meter.h"
#include "support/frames.h"
#include "support/media.h"
#include "support/pattern.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace ravlo::test {

/// The camera of the long runs: small, so that frames are cheap, and with a rate whose period is no whole number.
inline constexpr std::uint32_t kWidth = 160;
inline constexpr std::uint32_t kHeight = 90;
inline constexpr wchar_t kGeometry[] = L"160x90@60/1";
inline constexpr LONGLONG kPeriod = 166'666;  ///< 100 ns
inline constexpr double kPeriodMs = 16.6666;

/// A sample and when it was asked for and came, by both clocks.
struct PulledSample {
    Sample sample;
    double askedMs = 0;     ///< NowMs before the request
    double cameMs = 0;      ///< NowMs when it had come
    LONGLONG cameTime = 0;  ///< MFGetSystemTime when it had come, 100 ns
};

template <class... Arguments>
std::string Printed(const char* format, Arguments... arguments) {
    char text[512];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

/// Judges the samples of one start of a camera, in their order.
class SampleJudge {
public:
    /// How long a request may take beyond the period, when the machine itself is in time. A request that waited for a
    /// producer, or for anything that the pipe does, would take longer: producers make pauses of more than a second.
    static constexpr double kWaitBoundMs = 200;
    /// A request that takes longer than this beyond the period is late. Only few may be.
    static constexpr double kLateMs = 60;
    /// A frame is shown for 1000 ms; the tick that tells its age has steps of 16 ms.
    static constexpr double kFreshMs = 1000;
    static constexpr double kTickStepsMs = 40;
    /// The timer, the server, the event queue: what a request waits for.
    static constexpr unsigned kHandOvers = 3;

    /// `startedTime` is MFGetSystemTime before the start. What is passed must outlive the judge.
    SampleJudge(SentFrames& sent, const StallMeter& stalls, LONGLONG startedTime)
        : m_sent(sent), m_stalls(stalls), m_startedTime(startedTime) {
        for (std::uint32_t shift = 0; shift < m_patterns.size(); ++shift) {
            m_patterns[shift] = TestPattern(shift * kSamplesPerShift, kWidth, kHeight);
        }
    }

    /// What is wrong with the next sample; empty when nothing is.
    std::string Judge(const PulledSample& pulled) {
        std::string wrong = JudgeTimes(pulled) + JudgeWait(pulled) + JudgePicture(pulled);
        if (!wrong.empty()) {
            wrong = Printed("sample %llu: ", static_cast<unsigned long long>(m_samples)) + wrong;
        }
        ++m_samples;
        m_lastCameMs = pulled.cameMs;
        return wrong;
    }

    /// The signature of the newest frame delivered so far; 0 before the first.
    std::uint32_t Newest() const { return m_newest; }
    std::uint64_t Samples() const { return m_samples; }
    std::uint64_t Patterns() const { return m_patternSamples; }
    /// Requests that were late without the machine's being so.
    std::uint64_t Late() const { return m_late; }
    /// The longest request (ms).
    double LongestWaitMs() const { return m_longestWaitMs; }

private:
    static constexpr std::uint32_t kSamplesPerShift = 8;

    std::string JudgeTimes(const PulledSample& pulled) {
        std::string wrong;
        const LONGLONG time = pulled.sample.time;
        if (m_samples == 0) {
            m_baseTime = time;
            if (time < m_startedTime || time > pulled.cameTime) {
                wrong += Printed("the first time %lld is not the start's, which was between %lld and %lld; ", time,
                                 m_startedTime, pulled.cameTime);
            }
        }
        const LONGLONG due = m_baseTime + static_cast<LONGLONG>(m_samples) * kPeriod;
        if (time != due) {
            wrong += Printed("its time is %lld off the grid; ", time - due);
        }
        if (pulled.sample.duration != kPeriod || pulled.sample.cleanPoint != 1) {
            wrong += Printed("duration %lld, clean point %u; ", pulled.sample.duration, pulled.sample.cleanPoint);
        }
        if (pulled.cameTime < time) {
            wrong += Printed("it came %lld before its time; ", time - pulled.cameTime);
        }
        // A camera that fell behind by more than four periods lets the lost ones go; otherwise it keeps its pace.
        const double lagMs = static_cast<double>(pulled.cameTime - time) / 10'000;
        const double gapMs = m_samples == 0 ? lagMs : pulled.cameMs - m_lastCameMs;
        if (gapMs > 3 * kPeriodMs) {
            m_allowedLagMs += gapMs + kPeriodMs;
        }
        if (lagMs > m_allowedLagMs &&
            lagMs > m_allowedLagMs + m_stalls.AllowanceBetween(pulled.askedMs, pulled.cameMs, kHandOvers)) {
            wrong += Printed("it came %.1f ms behind its time, %.1f ms can be explained; ", lagMs, m_allowedLagMs);
        }
        return wrong;
    }

    std::string JudgeWait(const PulledSample& pulled) {
        const double waitedMs = pulled.cameMs - pulled.askedMs;
        m_longestWaitMs = std::max(m_longestWaitMs, waitedMs);
        if (waitedMs <= kPeriodMs + kLateMs) {
            return {};
        }
        const double stalledMs = m_stalls.AllowanceBetween(pulled.askedMs, pulled.cameMs, kHandOvers);
        m_late += waitedMs > kPeriodMs + kLateMs + stalledMs ? 1 : 0;
        if (waitedMs <= kPeriodMs + kWaitBoundMs + stalledMs) {
            return {};
        }
        return Printed("the consumer waited %.1f ms for it, %.1f ms of them can be the machine's; ", waitedMs,
                       stalledMs);
    }

    std::string JudgePicture(const PulledSample& pulled) {
        const std::vector<std::uint8_t>& bytes = pulled.sample.bytes;
        if (bytes == m_patterns[m_samples / kSamplesPerShift % m_patterns.size()]) {
            ++m_patternSamples;
            return JudgePattern(pulled);
        }
        const std::optional<std::uint32_t> signature = SignatureOf(bytes, kWidth, kHeight);
        return signature ? JudgeFrame(*signature, pulled) : DescribeMixture(bytes);
    }

    /// The pattern is right only where no frame that is known to have arrived is still fresh.
    std::string JudgePattern(const PulledSample& pulled) {
        const std::optional<double> sentMs = m_sent.SentAt(m_newest);
        if (m_newest == 0 || !sentMs || pulled.cameMs - *sentMs > kFreshMs - kTickStepsMs) {
            return {};
        }
        return Printed("the pattern was shown %.1f ms after frame %u was sent, which had been shown already; ",
                       pulled.cameMs - *sentMs, m_newest);
    }

    std::string JudgeFrame(std::uint32_t signature, const PulledSample& pulled) {
        if (!m_sent.SentAt(signature)) {
            return Printed("frame %u was shown, which no producer has sent to its end in this shape; ", signature);
        }
        if (signature < m_newest) {
            return Printed("frame %u was shown after frame %u; ", signature, m_newest);
        }
        if (signature > m_newest) {
            m_newest = signature;
            m_newestCameMs = pulled.cameMs;
            m_sent.MarkShown(signature);
            return {};
        }
        const double ageMs = pulled.askedMs - m_newestCameMs;
        if (ageMs > kFreshMs + kTickStepsMs) {
            return Printed("frame %u was asked for %.1f ms after it was first shown; ", signature, ageMs);
        }
        return {};
    }

    static std::string DescribeMixture(const std::vector<std::uint8_t>& bytes) {
        if (bytes.size() != Nv12Size(kWidth, kHeight)) {
            return Printed("it holds %zu bytes; ", bytes.size());
        }
        const std::uint32_t head =
            bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 | std::uint32_t{bytes[3]} << 24;
        const std::vector<std::uint8_t> frame = MakeFrame(kWidth, kHeight, head);
        const auto differs = std::mismatch(bytes.begin(), bytes.end(), frame.begin()).first;
        const std::optional<unsigned> shift = TestPatternShift(bytes, kWidth, kHeight);
        if (shift) {
            return Printed("it is the pattern of another sample, shifted by %u bars; ", *shift);
        }
        return Printed("it is neither a sent frame nor the pattern: frame %u up to byte %td; ", head,
                       differs - bytes.begin());
    }

    SentFrames& m_sent;
    const StallMeter& m_stalls;
    const LONGLONG m_startedTime;
    std::array<std::vector<std::uint8_t>, 8> m_patterns;
    std::uint64_t m_samples = 0;
    std::uint64_t m_patternSamples = 0;
    std::uint64_t m_late = 0;
    std::uint32_t m_newest = 0;
    double m_newestCameMs = 0;
    LONGLONG m_baseTime = 0;
    double m_lastCameMs = 0;
    double m_longestWaitMs = 0;
    double m_allowedLagMs = 6 * kPeriodMs;
};

}  // namespace ravlo::test
