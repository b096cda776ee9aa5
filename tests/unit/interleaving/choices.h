#pragma once

#include <cstddef>
#include <vector>

namespace ravlo::interleaving {

/// Walks a tree of choices depth first by repetition: a run asks for its choices one after the other, and the next run
/// takes the same ones but for the last that still has an untried option.
class Choices {
public:
    int Choose(int options) {
        if (m_next == m_taken.size()) {
            m_taken.push_back({0, options});
        }
        return m_taken[m_next++].option;
    }

    /// Prepares the next run. False when every path was walked.
    bool Advance() {
        m_next = 0;
        while (!m_taken.empty() && ++m_taken.back().option == m_taken.back().options) {
            m_taken.pop_back();
        }
        return !m_taken.empty();
    }

private:
    struct Choice {
        int option;
        int options;
    };

    std::vector<Choice> m_taken;
    std::size_t m_next = 0;
};

}  // namespace ravlo::interleaving
