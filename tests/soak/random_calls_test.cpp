// Eight threads call whatever they like of source and stream, for RAVLO_SECONDS seconds from the seed RAVLO_SEED: no
// deadlock, no crash, no answer and no event that the state table does not allow, and nothing left behind.
#include "soak/episode.h"
#include "soak/jitter.h"
#include "soak/seeded_run.h"
#include "support/fixtures.h"
#include "support/handles.h"
#include "support/heap_faults.h"
#include "support/watchdog.h"

#include <chrono>
#include <cstdio>
#include <random>

namespace ravlo::test {
namespace {

constexpr std::chrono::seconds kEpisodeTimeout{60};
constexpr std::uint64_t kDefaultSeconds = 20;
/// Runs of this length must have called every method in every state.
constexpr std::uint64_t kSecondsForAll = 20;
/// A busy machine gets so many times the time to see everything.
constexpr std::uint64_t kPatience = 3;
constexpr unsigned kWarmUpEpisodes = 12;
/// Handles that the platform opens for itself now and then; a leak of one per episode passes any bound soon.
constexpr std::size_t kHandleSlack = 6;

/// Where the module's lines go: nowhere, or into a file of this program's own, which is emptied after each episode.
/// The log itself would grow by megabytes a second.
class PrivateLog {
public:
    explicit PrivateLog(HMODULE module) : m_hook(module, "CreateFileW", &Open) {
        s_original = m_hook.Original();
        wchar_t folder[MAX_PATH + 1]{};
        GetTempPathW(MAX_PATH, folder);
        s_path = folder + (L"ravlo-random-calls-" + std::to_wstring(GetCurrentProcessId()) + L".log");
    }
    ~PrivateLog() { DeleteFileW(s_path.c_str()); }
    PrivateLog(const PrivateLog&) = delete;
    PrivateLog& operator=(const PrivateLog&) = delete;

    void Begin(bool isLogged) { s_isOpen = isLogged; }
    std::uint64_t End() {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        GetFileAttributesExW(s_path.c_str(), GetFileExInfoStandard, &data);
        DeleteFileW(s_path.c_str());
        return data.nFileSizeLow;
    }

private:
    static HANDLE WINAPI Open(LPCWSTR, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                              DWORD flags, HANDLE pattern) {
        if (!s_isOpen) {
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        }
        return s_original(s_path.c_str(), access, share, security, disposition, flags, pattern);
    }

    static inline decltype(&::CreateFileW) s_original = nullptr;
    static inline std::wstring s_path;
    static inline std::atomic<bool> s_isOpen{false};
    ScopedHook<decltype(::CreateFileW)> m_hook;
};

/// A descriptor for Start to be given: what is in it does not matter, only that there is one.
ComPtr<IMFPresentationDescriptor> SomePresentation() {
    ComPtr<IMFMediaType> type;
    Require(MFCreateMediaType(type.Put()), "MFCreateMediaType");
    IMFMediaType* const types[] = {type.Get()};
    ComPtr<IMFStreamDescriptor> stream;
    Require(MFCreateStreamDescriptor(0, 1, const_cast<IMFMediaType**>(types), stream.Put()),
            "MFCreateStreamDescriptor");
    IMFStreamDescriptor* const streams[] = {stream.Get()};
    ComPtr<IMFPresentationDescriptor> presentation;
    Require(MFCreatePresentationDescriptor(1, const_cast<IMFStreamDescriptor**>(streams), presentation.Put()),
            "MFCreatePresentationDescriptor");
    return presentation;
}

std::string Listed(const Contradictions& contradictions) {
    constexpr std::size_t kShown = 12;
    std::string text;
    for (std::size_t i = 0; i < contradictions.size() && i < kShown; ++i) {
        text += "\n  " + contradictions[i];
    }
    return text + (contradictions.size() > kShown
                       ? "\n  and " + std::to_string(contradictions.size() - kShown) + " more"
                       : "");
}

class RandomCalls : public ModuleTest {
protected:
    /// One episode and what must be as before when it is over.
    void RunEpisode(std::uint64_t seed) {
        const EpisodePlan plan(seed);
        SetTestTimeout(kEpisodeTimeout);
        m_privateLog.Begin(plan.isLogged);
        m_jitter.Set(plan.isJittered);
        Contradictions contradictions;
        {
            Episode episode(plan);
            contradictions = episode.Run(m_module, m_presentation.Get(), m_coverage, m_liveSamples);
        }
        m_jitter.Set(false);
        m_logBytes += m_privateLog.End();
        ++m_episodes;
        ASSERT_TRUE(contradictions.empty()) << plan.Text() << Listed(contradictions);
        ASSERT_TRUE(WaitUntil([&] { return m_module.CanUnloadNow() == S_OK; })) << plan.Text();
    }

    void ExpectNothingLeft(std::uint64_t seed) {
        ASSERT_TRUE(WaitUntil([&] { return m_heap.LiveBlocks() <= m_blocks; }))
            << EpisodePlan(seed).Text() << ": " << m_heap.LiveBlocks() << " blocks, " << m_blocks << " before";
        ASSERT_TRUE(HandlesSettleAt(m_handles + kHandleSlack))
            << EpisodePlan(seed).Text() << ": " << CountHandles() << " handles, " << m_handles << " before";
    }

    void PrintCoverage() const {
        std::printf("%-34s %9s %9s %9s %9s  answers\n", "calls in a state without doubt", "not act.", "stopped",
                    "started", "shut down");
        for (const Row& row : StateTable()) {
            const auto op = static_cast<std::size_t>(row.op);
            std::printf("%-34s", row.name);
            for (std::size_t state = 0; state < kStateCount; ++state) {
                if (row.answers[state].empty()) {
                    std::printf(" %9s", "-");
                } else {
                    std::printf(" %9llu", static_cast<unsigned long long>(m_coverage.hits[op][state]));
                }
            }
            for (const auto& [answer, count] : m_coverage.answers[op]) {
                std::printf("  %s %llu", HexText(answer).c_str(), static_cast<unsigned long long>(count));
            }
            std::printf("\n");
        }
        std::printf("%llu episodes, %llu calls, %llu live samples, %llu bytes of log\n",
                    static_cast<unsigned long long>(m_episodes), static_cast<unsigned long long>(m_coverage.calls),
                    static_cast<unsigned long long>(m_liveSamples), static_cast<unsigned long long>(m_logBytes));
        std::fflush(stdout);
    }

    /// What the table has and nobody has called yet, and what else a run must have seen.
    Contradictions NotSeen() const {
        Contradictions missing;
        for (const Row& row : StateTable()) {
            for (std::size_t state = 0; state < kStateCount; ++state) {
                if (!row.answers[state].empty() && m_coverage.hits[static_cast<std::size_t>(row.op)][state] == 0) {
                    missing.push_back(std::string(row.name) + " while the camera was " + kStateNames[state]);
                }
            }
        }
        if (m_liveSamples == 0) {
            missing.push_back("a frame of a producer");
        }
        if (m_logBytes == 0) {
            missing.push_back("a line of the log");
        }
        return missing;
    }

    MediaFoundation m_platform;
    PrivateLog m_privateLog{m_module.Handle()};
    Jitter m_jitter{m_module.Handle()};
    HeapFaults m_heap{m_module.Handle()};
    ComPtr<IMFPresentationDescriptor> m_presentation = SomePresentation();
    Coverage m_coverage;
    std::uint64_t m_episodes = 0;
    std::uint64_t m_liveSamples = 0;
    std::uint64_t m_logBytes = 0;
    long m_blocks = 0;
    std::size_t m_handles = 0;
};

TEST_F(RandomCalls, EveryAnswerFitsTheStatesAndEveryEventItsCall) {
    const std::uint64_t seed = NumberFromEnvironment<std::uint64_t>(
        "RAVLO_SEED", std::uint64_t{std::random_device{}()} << 16 ^ GetTickCount64());
    const std::uint64_t seconds = NumberFromEnvironment("RAVLO_SECONDS", kDefaultSeconds);
    std::printf("RAVLO_SEED=%llu RAVLO_SECONDS=%llu\n", static_cast<unsigned long long>(seed),
                static_cast<unsigned long long>(seconds));
    std::fflush(stdout);
    std::mt19937_64 seeds(seed);
    // The first episodes open what the platform and the runtime keep for good.
    for (unsigned i = 0; i < kWarmUpEpisodes; ++i) {
        ASSERT_NO_FATAL_FAILURE(RunEpisode(seeds()));
        m_blocks = m_heap.LiveBlocks();
    }
    m_handles = SettledHandles();
    const bool mustSeeAll = seconds >= kSecondsForAll;
    const Deadline end(static_cast<DWORD>(seconds * 1000));
    const Deadline last(static_cast<DWORD>(seconds * 1000 * kPatience));
    while (!end.Passed() || (mustSeeAll && !last.Passed() && !NotSeen().empty())) {
        const std::uint64_t episodeSeed = seeds();
        ASSERT_NO_FATAL_FAILURE(RunEpisode(episodeSeed));
        ASSERT_NO_FATAL_FAILURE(ExpectNothingLeft(episodeSeed));
    }
    PrintCoverage();
    EXPECT_TRUE(!mustSeeAll || NotSeen().empty()) << "never seen:" << Listed(NotSeen());
}

}  // namespace
}  // namespace ravlo::test
