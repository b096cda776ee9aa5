// The kinds of producer lives and the order in which they come.
#pragma once

#include "soak/seeded_run.h"

#include <cstddef>
#include <iterator>
#include <vector>

namespace ravlo::test {

enum class LifeKind {
    WellBehaved,        ///< whole frames in a row
    Dribbling,          ///< header and part of the payload byte by byte
    StandingStill,      ///< a pause within a frame
    CutHeader,          ///< gone within a header; comes twice, with two offsets
    CutPayload,         ///< gone within a payload
    Oversized,          ///< right headers for pictures larger than the camera's
    WrongByteCount,     ///< a size field that does not fit the geometry
    WrongField,         ///< one other field of the header wrong
    WrongGeometry,      ///< whole frames of other shapes, the camera's own size among them
    Garbage,            ///< random bytes
    Silent,             ///< connects and says nothing
    ComingAndGoing,     ///< connects and goes, as fast as it can
    BeforeFirstListen,  ///< the same to a camera whose pipe is just being made
    Killed,             ///< a process that is ended within a frame
    RefusedListen,      ///< whole frames, and the system then refuses the camera's next listens
};

struct KindOfLife {
    LifeKind kind;
    const char* name;
    unsigned cards;  ///< of a deck
};

inline constexpr KindOfLife kKindsOfLife[] = {
    {LifeKind::WellBehaved, "well-behaved", 4},
    {LifeKind::Dribbling, "dribbling", 3},
    {LifeKind::StandingStill, "standing still", 2},
    {LifeKind::CutHeader, "cut header", 20},
    {LifeKind::CutPayload, "cut payload", 5},
    {LifeKind::Oversized, "oversized", 3},
    {LifeKind::WrongByteCount, "wrong byte count", 3},
    {LifeKind::WrongField, "wrong field", 3},
    {LifeKind::WrongGeometry, "wrong geometry", 4},
    {LifeKind::Garbage, "garbage", 3},
    {LifeKind::Silent, "silent", 3},
    {LifeKind::ComingAndGoing, "coming and going", 3},
    {LifeKind::BeforeFirstListen, "before the first listen", 2},
    {LifeKind::Killed, "killed", 1},
    {LifeKind::RefusedListen, "refused listen", 1},
};

constexpr const KindOfLife& KindNamed(LifeKind kind) {
    return kKindsOfLife[static_cast<std::size_t>(kind)];
}

/// Deals kinds from a shuffled deck, and a new deck when it is used up. The first of each kind come before all others,
/// so that everything has happened once when the rest begins.
class LifeDeck {
public:
    /// Lives until every kind has come once.
    static constexpr std::size_t kFirstRound = std::size(kKindsOfLife);

    LifeKind Deal(Choices& choices) {
        if (m_cards.empty()) {
            Fill(choices);
        }
        const LifeKind kind = m_cards.back();
        m_cards.pop_back();
        return kind;
    }

private:
    void Fill(Choices& choices) {
        std::vector<LifeKind> first;
        for (const KindOfLife& kind : kKindsOfLife) {
            first.push_back(kind.kind);
            m_cards.insert(m_cards.end(), kind.cards - 1, kind.kind);
        }
        choices.Shuffle(m_cards);
        choices.Shuffle(first);
        m_cards.insert(m_cards.end(), first.begin(), first.end());
    }

    std::vector<LifeKind> m_cards;
};

/// Deals the numbers 0 .. count-1 in random orders, one order after the other.
class NumberDeck {
public:
    explicit NumberDeck(unsigned count) : m_count(count) {}
    unsigned Deal(Choices& choices) {
        if (m_numbers.empty()) {
            for (unsigned number = 0; number < m_count; ++number) {
                m_numbers.push_back(number);
            }
            choices.Shuffle(m_numbers);
        }
        const unsigned number = m_numbers.back();
        m_numbers.pop_back();
        ++m_dealt;
        return number;
    }
    unsigned Dealt() const { return m_dealt; }

private:
    unsigned m_count;
    unsigned m_dealt = 0;
    std::vector<unsigned> m_numbers;
};

}  // namespace ravlo::test
