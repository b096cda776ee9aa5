// One camera after the other through a random sequence of producer lives, while a consumer pulls all the time.
//
// RAVLO_LIVES sets how many (60), RAVLO_SEED repeats a run; the seed of a run is printed.
#include "soak/seeded_run.h"
#include "soak/complaints.h"
#include "soak/holdings.h"
#include "soak/judged_camera.h"
#include "soak/killed_producer.h"
#include "soak/life_deck.h"
#include "soak/life_table.h"
#include "soak/listen_watch.h"
#include "soak/producer_player.h"
#include "soak/sent_frames.h"
#include "soak/stall_meter.h"
#include "support/fixtures.h"
#include "support/heap_faults.h"
#include "support/watchdog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <initializer_list>
#include <optional>
#include <string>
#include <thread>

namespace ravlo::test {
namespace {

constexpr unsigned long kUsualLives = 60;
constexpr unsigned kHeaderBytes = sizeof(WireHeader);
constexpr unsigned kFrameBytes = kWidth * kHeight * 3 / 2;
/// A camera shows a frame this long (ms) after its producer came with it, one period counted in.
constexpr double kRecoveryMs = kPeriodMs + 150;
/// On that way lie the end of the producer before, the new listen, the connection, header and payload, the consumer.
constexpr unsigned kRecoveryHandOvers = 8;
/// The locks of the watch over the tests, and of GoogleTest, each make an event when two threads first meet at them.
constexpr std::size_t kHandleSlack = 2;
constexpr std::size_t kCommitSlackBytes = 4U << 20;

class ProducerLives : public ModuleTest {
protected:
    ProducerLives() { NewCamera(); }

    void PlayLife(unsigned long number) {
        const LifeKind kind = m_deck.Deal(m_choices);
        m_complaints.SetScene(Printed("seed %lu, life %lu of %lu (%s)", m_seed, number, m_lives, KindNamed(kind).name));
        m_table.Begin(kind, m_sent.Next());
        Play(kind);
        // A quarter of the lives follow each other without a good frame in between.
        const bool spoilsListens = kind == LifeKind::BeforeFirstListen || kind == LifeKind::RefusedListen;
        if (number <= LifeDeck::kFirstRound || number == m_lives || spoilsListens || !m_choices.Once(4)) {
            ExpectRecovery();
        }
        const unsigned failed = m_listens.TakeFailed();
        if (failed != 0 && !spoilsListens) {
            m_complaints.Add(Printed("%u of the camera's listens failed", failed));
        }
    }

    void Play(LifeKind kind) {
        switch (kind) {
            case LifeKind::WellBehaved:
                return PlayWellBehaved();
            case LifeKind::Dribbling:
                return ExpectShown(
                    Producer().DribbleFrame(m_choices.Once(5) ? kFrameBytes - 1 : 100 + m_choices.Below(1000)));
            case LifeKind::StandingStill:
                return ExpectShown(Producer().SendFrameWithPause(m_choices.Below(kHeaderBytes + kFrameBytes),
                                                                 50 + m_choices.Below(250)));
            case LifeKind::CutHeader:
                Producer().SendBeginning(m_headerCuts.Deal(m_choices));
                return Producer().SendBeginning(m_headerCuts.Deal(m_choices));
            case LifeKind::CutPayload: {
                ProducerPlayer producer = Producer();
                SendFrames(producer, m_choices.Below(3));
                return producer.SendBeginning(kHeaderBytes + m_choices.Below(kFrameBytes));
            }
            case LifeKind::Oversized:
            case LifeKind::WrongByteCount:
            case LifeKind::WrongField:
                return PlayRefusedHeader(kind);
            case LifeKind::WrongGeometry:
                return PlayWrongGeometry();
            case LifeKind::Garbage:
                return Producer().SendGarbage(1 + m_choices.Below(OneOf<unsigned>({kHeaderBytes, 400, 100000})));
            case LifeKind::Silent:
                return PlaySilent();
            case LifeKind::ComingAndGoing:
                for (unsigned left = 1 + m_choices.Below(40); left != 0; --left) {
                    Producer();
                }
                return;
            case LifeKind::BeforeFirstListen:
                return PlayBeforeFirstListen();
            case LifeKind::Killed:
                return PlayKilled();
            case LifeKind::RefusedListen:
                return PlayRefusedListen();
        }
    }

    ProducerPlayer Producer() { return {m_pipeName, m_sent, m_stalls, m_choices, m_complaints}; }

    std::uint32_t SendFrames(ProducerPlayer& producer, unsigned count, unsigned longestPauseMs = 17) {
        std::uint32_t last = 0;
        for (; count != 0; --count) {
            last = producer.SendFrame();
            m_table.AddSent(1);
            Sleep(m_choices.Below(longestPauseMs + 1));
        }
        return last;
    }
    void PlayWellBehaved() {
        ProducerPlayer producer = Producer();
        // Sometimes far more often than anybody asks. What the pipe holds then must be read before the next life.
        const bool floods = m_choices.Once(3);
        AwaitShown(SendFrames(producer, floods ? 200 : 3 + m_choices.Below(18), floods ? 0 : 17));
    }
    /// For a frame that was sent in an unusual way, but whole.
    void ExpectShown(std::uint32_t signature) {
        m_table.AddSent(1);
        AwaitShown(signature);
    }
    void AwaitShown(std::uint32_t signature) {
        if (!m_camera->WaitForFrame(signature, kPatienceMs)) {
            m_complaints.Add(Printed("frame %u is not shown", signature));
        }
    }

    void PlayRefusedHeader(LifeKind kind) {
        ProducerPlayer producer = Producer();
        SendFrames(producer, m_choices.Below(3));
        producer.SendRefused(RefusedHeader(kind), m_choices.Below(60000));
    }
    WireHeader RefusedHeader(LifeKind kind) {
        WireHeader header = HeaderFor(kWidth, kHeight, 1);
        if (kind == LifeKind::Oversized) {
            return OneOf<WireHeader>({HeaderFor(162, 90, 1), HeaderFor(160, 92, 1), HeaderFor(320, 180, 1),
                                      HeaderFor(16384, 2, 1), HeaderFor(16384, 16384, 1)});
        }
        if (kind == LifeKind::WrongByteCount) {
            header.bytes = OneOf<std::uint32_t>(
                {0, 1, kFrameBytes - 1, kFrameBytes + 1, 2 * kFrameBytes, 0x80000000 + kFrameBytes, 0xFFFFFFFF});
            return header;
        }
        switch (m_choices.Below(5)) {
            case 0:
                header.magic ^= 1U << m_choices.Below(32);
                break;
            case 1:
                header.version = OneOf<std::uint32_t>({0, 1, 3, 0xFFFFFFFF});
                break;
            case 2:
                header.format ^= 1U << m_choices.Below(32);
                break;
            case 3:
                header.width = OneOf<std::uint32_t>({0, 159, 161, 16386, 0xFFFFFFFE});
                break;
            default:
                header.height = OneOf<std::uint32_t>({0, 89, 91, 16386, 0xFFFFFFFE});
                break;
        }
        return header;
    }

    void PlayWrongGeometry() {
        struct Shape {
            std::uint32_t width;
            std::uint32_t height;
        };
        ProducerPlayer producer = Producer();
        for (unsigned left = 1 + m_choices.Below(5); left != 0; --left) {
            // The first two have the camera's number of bytes.
            const Shape shape = OneOf<Shape>({{90, 160}, {240, 60}, {160, 88}, {64, 36}, {2, 2}});
            producer.SendForeignFrame(shape.width, shape.height);
        }
        if (m_choices.Once(2)) {
            ExpectShown(producer.SendFrame());
        }
    }

    void PlaySilent() {
        const ProducerPlayer silent = Producer();
        // It keeps the one place for as long as it stays.
        const HANDLE other =
            CreateFileW(m_pipeName.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
        if (other != INVALID_HANDLE_VALUE || GetLastError() != ERROR_PIPE_BUSY) {
            m_complaints.Add(Printed("beside a silent producer another one gets %lu", GetLastError()));
            CloseHandle(other);
        }
        // Sometimes until no frame is fresh any more.
        Sleep(m_choices.Once(3) ? 1100 + m_choices.Below(300) : 50 + m_choices.Below(350));
    }

    void PlayBeforeFirstListen() {
        EndCamera();
        if (++m_firstListens % 2 != 0) {
            m_listens.ComeAndGoBeforeNextListen(m_pipeName);
            return NewCamera();
        }
        std::atomic<bool> stop{false};
        std::atomic<unsigned> visits{0};
        std::thread visitor([&] {
            while (!stop) {
                const HANDLE pipe =
                    CreateFileW(m_pipeName.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
                if (pipe != INVALID_HANDLE_VALUE) {
                    CloseHandle(pipe);
                    ++visits;
                }
            }
        });
        NewCamera();
        if (!WaitUntil([&] { return visits >= 10; })) {
            m_complaints.Add("a new camera lets no producer in");
        }
        stop = true;
        visitor.join();
    }

    void PlayKilled() {
        const bool amidFrames = m_choices.Once(2);
        const std::uint32_t frames = amidFrames ? 400 : 1 + m_choices.Below(6);
        const auto afterMs = amidFrames ? std::optional<DWORD>(m_choices.Below(60)) : std::nullopt;
        const std::uint32_t first = m_sent.Take(frames + 1);
        m_sent.MarkSent(first, frames, NowMs());
        const std::optional<std::uint32_t> last = LiveUntilKilled(m_pipeName, first, frames, afterMs);
        if (!last) {
            return m_complaints.Add("the producer in a process of its own has not sent a frame");
        }
        m_table.AddSent(*last - first + 1);
        AwaitShown(*last);
    }

    void PlayRefusedListen() {
        ProducerPlayer producer = Producer();
        SendFrames(producer, 1 + m_choices.Below(3));
        // It is when this producer goes that the camera listens again.
        m_listens.RefuseNext(2);
    }

    /// A producer that comes now is seen in time, or in time after the reader's pause where the system refused it.
    void ExpectRecovery() {
        const double begin = NowMs();
        ProducerPlayer producer = Producer();
        const std::uint32_t signature = producer.SendFrame();
        m_table.AddSent(1);
        const std::optional<double> shown = m_camera->WaitForFrame(signature, kPatienceMs);
        if (!shown) {
            return m_complaints.Add(Printed("the camera shows no new producer within %lu ms", kPatienceMs));
        }
        const double recovery = *shown - std::max(begin, m_listens.BackOffEndsMs());
        m_table.AddRecovery(recovery);
        if (recovery > kRecoveryMs &&
            recovery > kRecoveryMs + m_stalls.AllowanceBetween(begin, *shown, kRecoveryHandOvers)) {
            m_complaints.Add(Printed("the camera shows a new producer only after %.1f ms", recovery));
        }
    }

    /// A camera is complete when its gate is there too, which may come half a second after all else.
    Holdings LookAround() {
        if (!WaitForPipe(m_pipeName + L".gate")) {
            m_complaints.Add("a camera has no gate");
        }
        return LookAtHoldings(m_heap);
    }
    void NewCamera() { m_camera.emplace(m_module, m_pipeName, m_sent, m_stalls, m_complaints); }
    void EndCamera() {
        const PullStatistics statistics = m_camera->Statistics();
        m_camera.reset();
        m_past.samples += statistics.samples;
        m_past.patterns += statistics.patterns;
        m_past.late += statistics.late;
        m_past.longestWaitMs = std::max(m_past.longestWaitMs, statistics.longestWaitMs);
    }

    template <class T>
    T OneOf(std::initializer_list<T> items) {
        return items.begin()[m_choices.Below(static_cast<unsigned>(items.size()))];
    }

    void PrintTable(double seconds) const {
        m_table.Print(m_sent);
        std::printf(
            "%llu samples, %llu of them patterns, %llu late; longest wait for one %.1f ms; longest stall of the machine "
            "%.1f ms; %.1f s\n",
            m_past.samples, m_past.patterns, m_past.late, m_past.longestWaitMs, m_stalls.Worst(), seconds);
    }

    const unsigned long m_lives = NumberFromEnvironment("RAVLO_LIVES", kUsualLives);
    const unsigned long m_seed = SeedOfThisRun();
    const std::wstring m_pipeName = UniquePipeName();
    Choices m_choices{m_seed};
    LifeDeck m_deck;
    NumberDeck m_headerCuts{kHeaderBytes};
    unsigned m_firstListens = 0;
    LifeTable m_table;
    PullStatistics m_past;
    Complaints m_complaints;
    SentFrames m_sent;
    StallMeter m_stalls;
    HeapFaults m_heap{m_module.Handle()};
    ListenWatch m_listens{m_module.Handle()};
    std::optional<JudgedCamera> m_camera;
};

TEST_F(ProducerLives, NoneOfThemStallsTheCameraSpoilsAPictureOrLeavesAnythingBehind) {
    std::printf("RAVLO_SEED=%lu RAVLO_LIVES=%lu\n", m_seed, m_lives);
    std::fflush(stdout);
    const double begin = NowMs();
    Holdings before;
    for (unsigned long number = 1; number <= m_lives && m_complaints.Count() == 0; ++number) {
        SetTestTimeout(kTestTimeout);
        PlayLife(number);
        if (number == LifeDeck::kFirstRound) {
            before = LookAround();
        }
        if (number % 100 == 0) {
            std::printf("%lu lives after %.0f s\n", number, (NowMs() - begin) / 1000);
            std::fflush(stdout);
        }
    }
    const Holdings after = LookAround();
    EndCamera();
    PrintTable((NowMs() - begin) / 1000);

    ASSERT_EQ(0u, m_complaints.Count()) << m_complaints.Text();
    EXPECT_LE(m_past.late, m_past.LateAllowed());
    ASSERT_GE(m_lives, LifeDeck::kFirstRound) << "too few lives for every kind to come";
    std::printf("handles %zu -> %zu, blocks of the module %ld -> %ld, committed KiB %zu -> %zu\n", before.handles,
                after.handles, before.blocks, after.blocks, before.bytes / 1024, after.bytes / 1024);
    EXPECT_LE(after.handles, before.handles + kHandleSlack) << before.types << "\n" << after.types;
    EXPECT_LE(after.blocks, before.blocks);
    EXPECT_LE(after.bytes, before.bytes + kCommitSlackBytes);
    if (m_lives >= kUsualLives) {
        EXPECT_GE(m_headerCuts.Dealt(), kHeaderBytes) << "a producer has been cut at every byte of a header";
    }
}

}  // namespace
}  // namespace ravlo::test
