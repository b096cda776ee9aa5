#include "faults/balance.h"

#include "faults/ledger.h"
#include "faults/sites.h"
#include "faults/standins.h"
#include "support/handles.h"
#include "support/wait.h"

#include <cstdio>

namespace ravlo::faults {
namespace {

constexpr DWORD kSettleMs = 400;

/// The one object that plays; g_beforeUnload has no argument for it.
Balance* g_balance = nullptr;

Holdings HoldNow() {
    Holdings holdings;
    holdings.handles = test::CountHandles();
    holdings.platformBlocks = g_platformHeap.Count();
    for (const Block& block : g_moduleHeap.Blocks()) {
        ++holdings.moduleBlocks[static_cast<const Site*>(block.origin)];
    }
    return holdings;
}

std::string StackText(const Site* site) {
    std::string text;
    for (std::size_t i = 0; site != nullptr && i < site->frameCount; ++i) {
        char frame[16];
        std::snprintf(frame, sizeof frame, " %x", site->frames[i]);
        text += frame;
    }
    return text;
}

}  // namespace

std::size_t Holdings::ModuleBlocks() const {
    std::size_t count = 0;
    for (const auto& [site, blocks] : moduleBlocks) {
        count += blocks;
    }
    return count;
}

Balance::Balance(bool resident) : m_resident(resident) {
    g_balance = this;
    g_beforeUnload = [](Outcome& outcome) {
        if (g_balance->m_learning) {
            g_balance->m_loaded = HoldNow();
        } else {
            g_balance->Compare(g_balance->m_loaded, "while loaded", outcome);
        }
    };
}

Balance::~Balance() {
    g_beforeUnload = nullptr;
    g_balance = nullptr;
}

bool Balance::Learn() {
    constexpr int kMaxPlays = 8;
    m_learning = true;
    Holdings before;
    for (int play = 0; play < kMaxPlays; ++play) {
        const Holdings loadedBefore = m_loaded;
        ResetAccounts();
        if (!m_resident) {
            g_moduleHeap.Clear();
        }
        PlayScenario();
        test::SettledHandles();
        m_unloaded = HoldNow();
        const bool alike = m_unloaded.handles == before.handles && m_unloaded.platformBlocks == before.platformBlocks &&
                           m_loaded.handles == loadedBefore.handles &&
                           m_loaded.platformBlocks == loadedBefore.platformBlocks &&
                           m_loaded.moduleBlocks == loadedBefore.moduleBlocks;
        if (alike) {
            m_learning = false;
            return true;
        }
        before = m_unloaded;
    }
    m_learning = false;
    return false;
}

Outcome Balance::Play() {
    ResetAccounts();
    if (!m_resident) {
        g_moduleHeap.Clear();
    }
    Outcome outcome = PlayScenario();
    if (outcome.unloaded && !m_resident) {
        Compare(m_unloaded, "after the unload", outcome);
    }
    return outcome;
}

void Balance::Compare(const Holdings& expected, const char* when, Outcome& outcome) {
    Holdings now = HoldNow();
    // Threads of the platform end, and let go of what they hold, a moment later.
    test::WaitUntil(
        [&] {
            now = HoldNow();
            return now.handles == expected.handles && now.platformBlocks == expected.platformBlocks;
        },
        kSettleMs, 5);
    const auto wrong = [&](const char* what, std::size_t is, std::size_t was) {
        if (is != was) {
            outcome.wrongs.push_back(std::string(when) + ": " + std::to_string(is) + " " + what + " instead of " +
                                     std::to_string(was));
        }
    };
    wrong("handles", now.handles, expected.handles);
    wrong("blocks of the platform", now.platformBlocks, expected.platformBlocks);
    for (const auto& [site, blocks] : now.moduleBlocks) {
        const auto usual = expected.moduleBlocks.find(site);
        const std::size_t allowed = usual == expected.moduleBlocks.end() ? 0 : usual->second;
        if (blocks > allowed) {
            outcome.wrongs.push_back(std::string(when) + ": " + std::to_string(blocks) + " heap blocks instead of " +
                                     std::to_string(allowed) + " allocated at" + StackText(site));
        }
    }
}

}  // namespace ravlo::faults
