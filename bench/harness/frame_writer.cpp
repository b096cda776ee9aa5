#include "harness/frame_writer.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "harness/page_buffer.h"
#include "harness/performance_counter.h"
#include "platform/unique_handle.h"
#include "support/pipe_client.h"
#include "support/wait.h"

namespace ravlo::bench {
namespace {

constexpr DWORD kConnectPatienceMs = 20000;
constexpr DWORD kSettleMs = 500;
/// Behind the stamp a row's number stands at an offset where the picture's edge is, away from what a stamp occupies.
constexpr std::size_t kRowNumberOffset = sizeof(FrameStamp);

UniqueFile OpenPipe(const std::wstring& name) {
    const test::Deadline deadline(kConnectPatienceMs);
    for (;;) {
        UniqueFile pipe(CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                    SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
        if (pipe || deadline.Passed()) {
            return pipe;
        }
        Sleep(5);
    }
}

bool WriteAll(HANDLE pipe, const void* bytes, DWORD size) {
    DWORD written = 0;
    return WriteFile(pipe, bytes, size, &written, nullptr) && written == size;
}

/// Waits for points in time: asleep for most of the way, because a producer that spins takes the processor from what is
/// measured, and looking at the clock for the last of it, because sleeping ends late.
class Pace {
public:
    explicit Pace(std::int64_t frequency)
        : m_frequency(frequency), m_timer(CreateWaitableTimerW(nullptr, TRUE, nullptr)) {}

    void WaitUntil(std::int64_t due) {
        constexpr std::int64_t kUnitsPerSecond = 10'000'000;  // of 100 ns
        constexpr std::int64_t kAwakeUnits = 3'000;
        for (std::int64_t left = due - CounterNow(); left > 0; left = due - CounterNow()) {
            const std::int64_t units = left * kUnitsPerSecond / m_frequency;
            LARGE_INTEGER sleep;
            sleep.QuadPart = kAwakeUnits - units;  // negative: relative to now
            if (units > kAwakeUnits && SetWaitableTimer(m_timer.Get(), &sleep, 0, nullptr, nullptr, FALSE)) {
                WaitForSingleObject(m_timer.Get(), INFINITE);
            } else {
                YieldProcessor();
            }
        }
    }

private:
    std::int64_t m_frequency;
    UniqueObject m_timer;
};

int WriteFrames(const WriterOrders& orders) {
    std::vector<UniqueFile> pipes;
    for (const std::wstring& name : orders.pipes) {
        pipes.push_back(OpenPipe(name));
        if (!pipes.back()) {
            return 1;
        }
    }
    std::puts("connected");
    std::fflush(stdout);

    const FrameGeometry& geometry = orders.geometry;
    PageBuffer payload(FrameBytes(geometry));
    test::WireHeader header = test::HeaderFor(geometry.width, geometry.height, 0);
    const std::int64_t frequency = CounterFrequency();
    const std::int64_t period = frequency * geometry.rateDenominator / geometry.rateNumerator;
    Pace pace(frequency);
    std::uint64_t late = 0;
    Sleep(kSettleMs);
    const std::int64_t begin = CounterNow();
    for (std::uint64_t number = 1; orders.frames == 0 || number <= orders.frames; ++number) {
        header.seq = number;
        StampFrame(payload.Data(), geometry, {0, number});
        if (orders.paced) {
            const std::int64_t due = begin + static_cast<std::int64_t>(number) * period;
            pace.WaitUntil(due);
            late += CounterNow() - due > period / 4 ? 1 : 0;
        }
        const FrameStamp stamp{CounterNow(), number};
        std::memcpy(payload.Data(), &stamp, sizeof stamp);
        const HANDLE pipe = pipes[(number - 1) / orders.turn % pipes.size()].Get();
        if (!WriteAll(pipe, &header, sizeof header) ||
            !WriteAll(pipe, payload.Data(), static_cast<DWORD>(payload.Size()))) {
            return 1;
        }
    }
    std::printf("late %llu of %u\n", static_cast<unsigned long long>(late), orders.frames);
    return 0;
}

RAVLO_ROLE(FrameWriter) {
    if (arguments.size() < 7) {
        return 2;
    }
    const auto number = [&](std::size_t i) { return static_cast<std::uint32_t>(std::stoul(arguments[i])); };
    WriterOrders orders;
    orders.geometry = {number(0), number(1), number(2), number(3)};
    orders.paced = number(4) != 0;
    orders.turn = number(5);
    orders.frames = number(6);
    orders.pipes.assign(arguments.begin() + 7, arguments.end());
    return WriteFrames(orders);
}

}  // namespace

test::ChildProcess StartWriter(const WriterOrders& orders) {
    test::Arguments arguments;
    for (const std::uint32_t value :
         {orders.geometry.width, orders.geometry.height, orders.geometry.rateNumerator, orders.geometry.rateDenominator,
          orders.paced ? 1U : 0U, orders.turn, orders.frames}) {
        arguments.push_back(std::to_wstring(value));
    }
    arguments.insert(arguments.end(), orders.pipes.begin(), orders.pipes.end());
    return test::StartRole("FrameWriter", arguments);
}

double LateFrames(const std::string& output) {
    unsigned long long late = 0;
    const std::size_t words = output.find("late ");
    if (words == std::string::npos || std::sscanf(output.c_str() + words, "late %llu", &late) != 1) {
        throw std::runtime_error("the writer does not say how it kept its pace");
    }
    return static_cast<double>(late);
}

void StampFrame(std::uint8_t* payload, const FrameGeometry& geometry, const FrameStamp& stamp) {
    for (std::size_t row = 0; row < geometry.height; ++row) {
        std::memcpy(payload + row * geometry.width + kRowNumberOffset, &stamp.number, sizeof stamp.number);
    }
    std::memcpy(payload, &stamp, sizeof stamp);
    std::memcpy(payload + FrameBytes(geometry) - sizeof stamp.number, &stamp.number, sizeof stamp.number);
}

FrameStamp ReadStamp(const std::uint8_t* payload, const FrameGeometry& geometry) {
    FrameStamp stamp{};
    std::memcpy(&stamp, payload, sizeof stamp);
    std::uint64_t number = 0;
    std::memcpy(&number, payload + FrameBytes(geometry) - sizeof number, sizeof number);
    bool whole = number == stamp.number;
    for (std::size_t row = 0; row < geometry.height; ++row) {
        std::memcpy(&number, payload + row * geometry.width + kRowNumberOffset, sizeof number);
        whole = whole && number == stamp.number;
    }
    return whole ? stamp : FrameStamp{};
}

}  // namespace ravlo::bench
