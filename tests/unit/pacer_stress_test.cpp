#include "stream/pacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "stream/frame_pool.h"
#include "unit/checked_frame.h"

// Pacer and frame pool together, the way the stream uses them: the pacer under the pacing lock, which comes before the
// state lock, the pool without any. One thread publishes, four ask for samples, and one starts and stops all the while.
// Time is a counter that every look moves on, so nobody ever sleeps, and a wait is a look that comes too early.
namespace ravlo {
namespace {

constexpr FrameGeometry kGeometry{32, 16, 30, 1};
constexpr std::size_t kFrameBytes = 32 * 24;
constexpr std::uint64_t kFreshness = 1000;
constexpr std::int64_t kPeriod = 400;
constexpr std::int64_t kLook = 37;
constexpr int kRequesters = 4;
constexpr auto kDuration = std::chrono::milliseconds(1000);
/// How long a busy machine may take to do the least that counts.
constexpr auto kPatience = std::chrono::seconds(20);
constexpr int kLeastRuns = 20;
constexpr std::uint64_t kLeastCopied = 50;
constexpr std::uint64_t kLeastPatterns = 5;

/// What went wrong; each of them is to stay 0.
struct Faults {
    std::atomic<int> grid{0};     ///< a sample off the grid of its run, out of its turn, or before its time
    std::atomic<int> clamped{0};  ///< the pacer had to keep time from standing still
    std::atomic<int> frame{0};    ///< a consumed frame that was not whole
    std::atomic<int> older{0};    ///< or older than the pacer's choice
};

class PacedStream {
public:
    PacedStream() { EXPECT_TRUE(m_pool.Allocate(kFrameBytes)); }

    FramePool& Pool() { return m_pool; }
    std::int64_t Look() { return m_clock.fetch_add(kLook) + kLook; }
    std::int64_t Clock() const { return m_clock.load(); }
    void Jump(std::int64_t time) { m_clock.fetch_add(time); }

    void Start() {
        const std::int64_t now = Look();
        std::unique_lock pacing(m_pacingLock);
        std::unique_lock state(m_stateLock);
        m_samplesOfRuns += m_pacer.Samples();
        m_clampsOfRuns += m_pacer.Clamps();
        m_pacer.Reset(now, kPeriod);
        m_base = now;
        m_expectedIndex = 0;
        const std::uint32_t generation = ++m_generation;
        m_started = false;
        state.unlock();
        pacing.unlock();
        // The moment between the reset and the first accepted request.
        std::this_thread::yield();
        const std::scoped_lock both(m_pacingLock, m_stateLock);
        m_started = m_generation == generation;
    }

    void Stop() {
        const std::lock_guard pacing(m_pacingLock);
        const std::lock_guard state(m_stateLock);
        m_started = false;
        ++m_generation;
    }

    /// Waits for the next due sample. Nothing when the stream does not run, or was stopped or started meanwhile.
    std::optional<PacingDecision> Pace(std::uint64_t tick, Faults& faults) {
        std::optional<std::uint32_t> generation;
        for (;;) {
            const std::int64_t now = Look();
            const std::lock_guard pacing(m_pacingLock);
            const std::lock_guard state(m_stateLock);
            if (!m_started || (generation && *generation != m_generation)) {
                return std::nullopt;
            }
            generation = m_generation;
            std::uint64_t stamp = 0;
            const bool fresh = m_pool.Peek(tick, kFreshness, stamp);
            const PacingDecision decision = m_pacer.Decide(now, fresh, stamp);
            if (decision.kind != PacingKind::Wait) {
                m_pacer.Commit(decision);
                Judge(decision, faults);
                return decision;
            }
        }
    }

    /// Samples of all runs, when nobody asks any more.
    std::uint64_t Samples() const { return m_samplesOfRuns + m_pacer.Samples(); }
    std::uint64_t Clamps() const { return m_clampsOfRuns + m_pacer.Clamps(); }

private:
    /// Under both locks: samples of a run come one period apart from its start on, each in its turn.
    void Judge(const PacingDecision& decision, Faults& faults) {
        const std::int64_t time = m_base + static_cast<std::int64_t>(m_expectedIndex) * kPeriod;
        // Only a first sample may come at once, and only when it is a live one.
        const std::int64_t earliest = m_expectedIndex > 0 ? time : m_base + kPeriod;
        const bool early = decision.now < earliest && (m_expectedIndex > 0 || decision.kind != PacingKind::Live);
        if (decision.sampleIndex != m_expectedIndex || decision.sampleTime != time || early ||
            m_pacer.LastSampleTime() != time) {
            ++faults.grid;
        }
        faults.clamped += decision.clamped ? 1 : 0;
        ++m_expectedIndex;
    }

    FramePool m_pool;
    std::atomic<std::int64_t> m_clock{1'000'000};
    std::mutex m_pacingLock;
    std::mutex m_stateLock;
    // Everything below under both locks.
    Pacer m_pacer;
    bool m_started = false;
    std::uint32_t m_generation = 0;
    std::int64_t m_base = 0;
    std::uint32_t m_expectedIndex = 0;
    std::uint64_t m_samplesOfRuns = 0;
    std::uint64_t m_clampsOfRuns = 0;
};

/// What one requester got.
struct Delivered {
    std::atomic<std::uint64_t> samples{0};
    std::atomic<std::uint64_t> copied{0};
    std::atomic<std::uint64_t> patterns{0};

    bool Enough() const { return copied.load() >= kLeastCopied && patterns.load() >= kLeastPatterns; }
};

void Request(PacedStream& stream, Delivered& delivered, const std::atomic<std::uint64_t>& newest,
             const std::atomic<bool>& over, Faults& faults) {
    std::vector<std::uint8_t> picture(kFrameBytes);
    const CopyDescriptor copy = DescribeCopy(kGeometry, picture.data(), static_cast<std::uint32_t>(kFrameBytes), 32);
    for (std::uint64_t request = 0; !over.load(); ++request) {
        // Every eighth request takes itself to be so late that no frame is fresh any more.
        const std::uint64_t tick = newest.load() + (request % 8 == 0 ? kFreshness + 1'000'000 : 0);
        const std::optional<PacingDecision> decision = stream.Pace(tick, faults);
        if (!decision) {
            std::this_thread::yield();
            continue;
        }
        ++delivered.samples;
        if (decision->kind == PacingKind::Pattern) {
            ++delivered.patterns;
        } else if (stream.Pool().Consume(tick, kFreshness, decision->liveStamp, kFrameBytes, copy)) {
            ++delivered.copied;
            const std::uint64_t number = CheckedFrame::NumberOf(picture.data());
            faults.older += number < decision->liveStamp ? 1 : 0;
            faults.frame += CheckedFrame::IsWhole(picture.data(), kGeometry, 32, 0, number) ? 0 : 1;
        }
    }
}

void Publish(PacedStream& stream, std::atomic<std::uint64_t>& newest, const std::atomic<bool>& over) {
    std::vector<std::uint8_t> frame(kFrameBytes);
    for (std::uint64_t stamp = 1; !over.load(); ++stamp) {
        CheckedFrame::Fill(frame.data(), frame.size(), stamp);
        if (stream.Pool().Publish({frame.data(), frame.size()}, stamp)) {
            newest.store(stamp);
        }
        if (stamp % 4 == 0) {
            std::this_thread::yield();
        }
    }
}

/// Runs of 1 to 40 periods; in every fifth the consumers fall so far behind that the pacer lets the missed samples go.
template <class Condition>
int StartAndStop(PacedStream& stream, Condition haveRequestersEnough) {
    int runs = 0;
    const auto begin = std::chrono::steady_clock::now();
    const auto elapsed = [begin] { return std::chrono::steady_clock::now() - begin; };
    while (elapsed() < kPatience && (elapsed() < kDuration || runs < kLeastRuns || !haveRequestersEnough())) {
        stream.Start();
        ++runs;
        const std::int64_t until = stream.Clock() + (1 + runs * 7 % 40) * kPeriod;
        while (stream.Clock() < until && elapsed() < kPatience) {
            std::this_thread::yield();
        }
        if (runs % 5 == 0) {
            stream.Jump(20 * kPeriod);
            std::this_thread::yield();
        }
        // Every third run ends in the next Start.
        if (runs % 3 != 0) {
            stream.Stop();
        }
    }
    return runs;
}

TEST(PacerStress, EverySampleOfEveryRunIsOnItsGridAndDeliveredOnce) {
    PacedStream stream;
    Faults faults;
    std::atomic<std::uint64_t> newest{0};
    std::atomic<bool> over{false};
    std::array<Delivered, kRequesters> delivered;
    std::vector<std::thread> threads;
    for (Delivered& mine : delivered) {
        threads.emplace_back([&] { Request(stream, mine, newest, over, faults); });
    }
    threads.emplace_back([&] { Publish(stream, newest, over); });
    const int runs = StartAndStop(stream, [&delivered] {
        return std::all_of(delivered.begin(), delivered.end(), [](const Delivered& mine) { return mine.Enough(); });
    });
    // Whoever still waits for a sample gets it, because every look moves the time on.
    over.store(true);
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::uint64_t samples = 0;
    for (const Delivered& mine : delivered) {
        EXPECT_GE(mine.copied.load(), kLeastCopied);
        EXPECT_GE(mine.patterns.load(), kLeastPatterns);
        samples += mine.samples.load();
    }
    EXPECT_EQ(faults.grid, 0);
    EXPECT_EQ(faults.clamped, 0);
    EXPECT_EQ(faults.frame, 0);
    EXPECT_EQ(faults.older, 0);
    EXPECT_EQ(stream.Samples(), samples) << "one delivery for each sample that the pacer counts";
    EXPECT_EQ(stream.Clamps(), 0U);
    EXPECT_GE(runs, kLeastRuns);
    RecordProperty("runs", runs);
    RecordProperty("samples", std::to_string(samples));
}

}  // namespace
}  // namespace ravlo
