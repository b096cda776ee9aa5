#pragma once

#include <windows.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace ravlo::bench {

/// What a RequestSample call spends time on that is not its own work, and what is the platform's inside the rest.
enum class Span : std::size_t {
    Wait,      ///< WaitForMultipleObjects
    Arm,       ///< SetWaitableTimer, which arms that wait
    Allocate,  ///< MFCreateSample and MFCreateMemoryBuffer
    Fill,      ///< from Lock's return to Unlock's call: the picture
    Log,       ///< opening, writing and closing the log
    Platform,  ///< methods of the platform's sample, buffer and event queue
};
inline constexpr std::size_t kSpanKinds = 6;

/// One call, taken apart. Spans are in microseconds; times are MFGetSystemTime's, 100 ns.
struct CallRecord {
    double wallUs = 0;
    std::array<double, kSpanKinds> spanUs{};
    unsigned waits = 0;         ///< how often it waited
    unsigned hooks = 0;         ///< calls that went through a hook
    std::int64_t wokenAt = 0;   ///< return of the last wait; 0 when there was none
    std::int64_t queuedAt = 0;  ///< the sample was in the event queue

    double Of(Span span) const { return spanUs[static_cast<std::size_t>(span)]; }
    /// What is left of the call without waiting, allocation, fill and log.
    double OwnUs() const {
        return wallUs - Of(Span::Wait) - Of(Span::Arm) - Of(Span::Allocate) - Of(Span::Fill) - Of(Span::Log);
    }
};

/// Hooks around what the module under test calls: its imports, and the methods of the platform's objects in the
/// classes' own tables. They read clocks before and after and change nothing else; only the thread inside Measure is
/// measured, so the module's own threads do not disturb. One object at a time.
class CallSpans {
public:
    explicit CallSpans(HMODULE module);
    ~CallSpans();
    CallSpans(const CallSpans&) = delete;
    CallSpans& operator=(const CallSpans&) = delete;

    /// Runs `call` on this thread and takes it apart.
    template <class Call>
    CallRecord Measure(Call&& call) {
        Begin();
        call();
        return End();
    }

    /// What the last measured call's wait for its due time waited for beside the timer: the events of a stream that
    /// does not run and of a frame that arrived. Null before the first such wait.
    static std::array<HANDLE, 2> WaitedFor() noexcept;

    /// What one hook adds to the time around it, in microseconds: the mean of many hooked calls that do nothing.
    double HookCostUs() const;

private:
    struct Hooks;

    static void Begin() noexcept;
    CallRecord End() const noexcept;

    std::unique_ptr<Hooks> m_hooks;
    std::int64_t m_ticksAtBegin;    ///< the processor's counter
    std::int64_t m_counterAtBegin;  ///< the performance counter, which tells its rate
};

}  // namespace ravlo::bench
