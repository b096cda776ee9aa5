#include "request/call_spans.h"

#include <mfapi.h>
#include <mfidl.h>
#include <mfobjects.h>
#include <x86intrin.h>

#include <atomic>

#include "harness/performance_counter.h"
#include "support/com.h"
#include "support/import_hooks.h"

namespace ravlo::bench {
namespace {

using test::ComPtr;
using test::Require;

/// The call under way. Written by the measured thread alone; others compare their id with g_thread and pass.
struct Ledger {
    std::int64_t begin = 0;
    std::int64_t locked = 0;
    std::array<std::int64_t, kSpanKinds> ticks{};
    unsigned waits = 0;
    unsigned hooks = 0;
    std::int64_t wokenAt = 0;
    std::int64_t queuedAt = 0;
};
constinit Ledger g_ledger{};
constinit std::atomic<DWORD> g_thread{0};
/// Of the measured thread's last wait with a timer.
constinit std::array<HANDLE, 2> g_waitedFor{};

/// The processor's own counter: about a tenth of what a reading of the performance counter costs, and it is read some
/// forty times a call.
std::int64_t TicksNow() noexcept {
    return static_cast<std::int64_t>(__rdtsc());
}

bool IsMeasured() noexcept {
    return GetCurrentThreadId() == g_thread.load(std::memory_order_relaxed);
}

std::int64_t& TicksOf(Span span) noexcept {
    return g_ledger.ticks[static_cast<std::size_t>(span)];
}

/// What a hook does besides adding up the time. Inside belongs to the time that is taken off.
struct Nothing {
    template <class... A>
    static void Called(const A&...) noexcept {}
    static void Began(std::int64_t) noexcept {}
    static void Inside() noexcept {}
    static void Ended(std::int64_t) noexcept {}
};
struct NoteWake : Nothing {
    static void Called(DWORD count, const HANDLE* handles, BOOL, DWORD) noexcept {
        if (count == 3) {
            g_waitedFor = {handles[0], handles[1]};
        }
    }
    static void Inside() noexcept {
        g_ledger.wokenAt = MFGetSystemTime();
        ++g_ledger.waits;
    }
};
struct NoteQueued : Nothing {
    static void Inside() noexcept { g_ledger.queuedAt = MFGetSystemTime(); }
};
struct BeginFill : Nothing {
    static void Ended(std::int64_t time) noexcept { g_ledger.locked = time; }
};
struct EndFill : Nothing {
    static void Began(std::int64_t time) noexcept {
        if (g_ledger.locked != 0) {
            TicksOf(Span::Fill) += time - g_ledger.locked;
            g_ledger.locked = 0;
        }
    }
};

/// Stands in for one function. `Tag` tells functions of one signature apart.
template <class Tag, Span kSpan, class Extra, class F>
struct Timed;

template <class Tag, Span kSpan, class Extra, class R, class... A>
struct Timed<Tag, kSpan, Extra, R(A...)> {
    static inline R (*s_original)(A...) = nullptr;

    static R Call(A... arguments) {
        if (!IsMeasured()) {
            return s_original(arguments...);
        }
        Extra::Called(arguments...);
        const std::int64_t began = TicksNow();
        Extra::Began(began);
        R result = s_original(arguments...);
        Extra::Inside();
        const std::int64_t ended = TicksNow();
        TicksOf(kSpan) += ended - began;
        ++g_ledger.hooks;
        Extra::Ended(ended);
        return result;
    }
};

/// An import of the module. The original is known before the hook is in place: threads of the module call at once.
template <class Tag, Span kSpan, class F, class Extra = Nothing>
class TimedImport {
    using Hook = Timed<Tag, kSpan, Extra, F>;

public:
    TimedImport(HMODULE module, const char* name, F* original)
        : m_slot((Hook::s_original = original, module), name, &Hook::Call) {}

private:
    test::ScopedHook<F> m_slot;
};

/// A method of a class of the platform, by its place in the table of methods.
template <class Tag, Span kSpan, class F, class Extra = Nothing>
class TimedMethod;

template <class Tag, Span kSpan, class Extra, class... A>
class TimedMethod<Tag, kSpan, HRESULT(A...), Extra> {
    using Hook = Timed<Tag, kSpan, Extra, HRESULT(void*, A...)>;

public:
    TimedMethod(IUnknown* object, std::size_t place) : m_entry(*reinterpret_cast<void***>(object) + place) {
        Hook::s_original = reinterpret_cast<HRESULT (*)(void*, A...)>(*m_entry);
        Put(reinterpret_cast<void*>(&Hook::Call));
    }
    ~TimedMethod() { Put(reinterpret_cast<void*>(Hook::s_original)); }
    TimedMethod(const TimedMethod&) = delete;
    TimedMethod& operator=(const TimedMethod&) = delete;

private:
    void Put(void* method) {
        DWORD protection = 0;
        VirtualProtect(m_entry, sizeof *m_entry, PAGE_READWRITE, &protection);
        *m_entry = method;
        VirtualProtect(m_entry, sizeof *m_entry, protection, &protection);
    }

    void** m_entry;
};

// Places in the tables of methods: after IUnknown's three, after IMFAttributes' thirty more.
constexpr std::size_t kLock = 3;
constexpr std::size_t kUnlock = 4;
constexpr std::size_t kSetCurrentLength = 6;
constexpr std::size_t kQueueEventParamVar = 7;
constexpr std::size_t kSetUint32 = 21;
constexpr std::size_t kSetSampleTime = 36;
constexpr std::size_t kSetSampleDuration = 38;
constexpr std::size_t kAddBuffer = 42;

ComPtr<IMFMediaBuffer> AnyBuffer() {
    ComPtr<IMFMediaBuffer> buffer;
    Require(MFCreateMemoryBuffer(64, buffer.Put()), "MFCreateMemoryBuffer");
    return buffer;
}

ComPtr<IMFSample> AnySample() {
    ComPtr<IMFSample> sample;
    Require(MFCreateSample(sample.Put()), "MFCreateSample");
    return sample;
}

ComPtr<IMFMediaEventQueue> AnyQueue() {
    ComPtr<IMFMediaEventQueue> queue;
    Require(MFCreateEventQueue(queue.Put()), "MFCreateEventQueue");
    return queue;
}

}  // namespace

// The tables belong to the classes: one object of each class leads to them.
struct CallSpans::Hooks {
    explicit Hooks(HMODULE module)
        : wait(module, "WaitForMultipleObjects", &WaitForMultipleObjects),
          arm(module, "SetWaitableTimer", &SetWaitableTimer),
          createSample(module, "MFCreateSample", &MFCreateSample),
          createBuffer(module, "MFCreateMemoryBuffer", &MFCreateMemoryBuffer),
          openLog(module, "CreateFileW", &CreateFileW),
          writeLog(module, "WriteFile", &WriteFile),
          closeLog(module, "CloseHandle", &CloseHandle) {}

    ComPtr<IMFMediaBuffer> buffer = AnyBuffer();
    ComPtr<IMFSample> sample = AnySample();
    ComPtr<IMFMediaEventQueue> queue = AnyQueue();

    TimedImport<struct WaitTag, Span::Wait, decltype(WaitForMultipleObjects), NoteWake> wait;
    TimedImport<struct ArmTag, Span::Arm, decltype(SetWaitableTimer)> arm;
    TimedImport<struct CreateSampleTag, Span::Allocate, decltype(MFCreateSample)> createSample;
    TimedImport<struct CreateBufferTag, Span::Allocate, decltype(MFCreateMemoryBuffer)> createBuffer;
    TimedImport<struct OpenLogTag, Span::Log, decltype(CreateFileW)> openLog;
    TimedImport<struct WriteLogTag, Span::Log, decltype(WriteFile)> writeLog;
    TimedImport<struct CloseLogTag, Span::Log, decltype(CloseHandle)> closeLog;

    TimedMethod<struct LockTag, Span::Platform, HRESULT(BYTE**, DWORD*, DWORD*), BeginFill> lock{buffer.Get(), kLock};
    TimedMethod<struct UnlockTag, Span::Platform, HRESULT(), EndFill> unlock{buffer.Get(), kUnlock};
    TimedMethod<struct LengthTag, Span::Platform, HRESULT(DWORD)> setLength{buffer.Get(), kSetCurrentLength};
    TimedMethod<struct AddTag, Span::Platform, HRESULT(IMFMediaBuffer*)> addBuffer{sample.Get(), kAddBuffer};
    TimedMethod<struct TimeTag, Span::Platform, HRESULT(LONGLONG)> setTime{sample.Get(), kSetSampleTime};
    TimedMethod<struct DurationTag, Span::Platform, HRESULT(LONGLONG)> setDuration{sample.Get(), kSetSampleDuration};
    TimedMethod<struct Uint32Tag, Span::Platform, HRESULT(const GUID*, UINT32)> setUint32{sample.Get(), kSetUint32};
    TimedMethod<struct QueueTag, Span::Platform, HRESULT(MediaEventType, const GUID*, HRESULT, const PROPVARIANT*),
                NoteQueued>
        queueEvent{queue.Get(), kQueueEventParamVar};
};

CallSpans::CallSpans(HMODULE module)
    : m_hooks(std::make_unique<Hooks>(module)), m_ticksAtBegin(TicksNow()), m_counterAtBegin(CounterNow()) {
}

CallSpans::~CallSpans() = default;

void CallSpans::Begin() noexcept {
    g_ledger = {};
    g_thread.store(GetCurrentThreadId());
    g_ledger.begin = TicksNow();
}

CallRecord CallSpans::End() const noexcept {
    const std::int64_t ended = TicksNow();
    g_thread.store(0);
    // The counter's rate is known better the longer this object lives; a camera has run for a while at its first call.
    const double elapsedUs = CounterMicroseconds(CounterNow() - m_counterAtBegin);
    const double ticksAUs = static_cast<double>(TicksNow() - m_ticksAtBegin) / elapsedUs;
    CallRecord record;
    record.wallUs = static_cast<double>(ended - g_ledger.begin) / ticksAUs;
    for (std::size_t kind = 0; kind < kSpanKinds; ++kind) {
        record.spanUs[kind] = static_cast<double>(g_ledger.ticks[kind]) / ticksAUs;
    }
    record.waits = g_ledger.waits;
    record.hooks = g_ledger.hooks;
    record.wokenAt = g_ledger.wokenAt;
    record.queuedAt = g_ledger.queuedAt;
    return record;
}

std::array<HANDLE, 2> CallSpans::WaitedFor() noexcept {
    return g_waitedFor;
}

double CallSpans::HookCostUs() const {
    using Hook = Timed<struct CostTag, Span::Platform, Nothing, HRESULT(void*)>;
    Hook::s_original = [](void*) -> HRESULT { return S_OK; };
    HRESULT (*volatile const hooked)(void*) = &Hook::Call;
    constexpr int kCalls = 20000;
    Begin();
    for (int i = 0; i < kCalls; ++i) {
        hooked(nullptr);
    }
    const CallRecord record = End();
    // What the hook itself saw of its call is taken off where spans are taken off; only the rest stays behind.
    return (record.wallUs - record.Of(Span::Platform)) / kCalls;
}

}  // namespace ravlo::bench
