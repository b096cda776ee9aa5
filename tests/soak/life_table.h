// What became of the lives of every kind, for the table at the end of a run.
#pragma once

#include "soak/life_deck.h"
#include "soak/sent_frames.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <vector>

namespace ravlo::test {

/// Counts for the life that was begun last.
class LifeTable {
public:
    /// `firstSignature` is that of the first frame which this life may send.
    void Begin(LifeKind kind, std::uint32_t firstSignature) {
        m_lives.push_back({kind, firstSignature});
        ++Current().lives;
    }
    /// Whole frames that its producers have sent.
    void AddSent(std::uint64_t frames) { Current().sent += frames; }
    /// How long after it the camera took to show a new producer's frame.
    void AddRecovery(double ms) { Current().worstRecoveryMs = std::max(Current().worstRecoveryMs, ms); }

    void Print(const SentFrames& sent) const {
        std::array<std::uint64_t, std::size(kKindsOfLife)> shown{};
        for (std::size_t i = 0; i < m_lives.size(); ++i) {
            const std::uint32_t end = i + 1 < m_lives.size() ? m_lives[i + 1].firstSignature : sent.Next();
            shown[static_cast<std::size_t>(m_lives[i].kind)] += sent.CountShown(m_lives[i].firstSignature, end);
        }
        std::printf("%-24s %6s %8s %8s %18s\n", "kind of life", "lives", "sent", "shown", "worst recovery, ms");
        for (const KindOfLife& kind : kKindsOfLife) {
            const auto index = static_cast<std::size_t>(kind.kind);
            const Tally& tally = m_tallies[index];
            std::printf("%-24s %6u %8llu %8llu %18.1f\n", kind.name, tally.lives, tally.sent, shown[index],
                        tally.worstRecoveryMs);
        }
    }

private:
    struct Tally {
        unsigned lives = 0;
        std::uint64_t sent = 0;
        double worstRecoveryMs = 0;
    };
    struct Life {
        LifeKind kind;
        std::uint32_t firstSignature;
    };
    Tally& Current() { return m_tallies[static_cast<std::size_t>(m_lives.back().kind)]; }

    std::vector<Life> m_lives;
    std::array<Tally, std::size(kKindsOfLife)> m_tallies{};
};

}  // namespace ravlo::test
