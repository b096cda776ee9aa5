#include "faults/balance.h"

#include "faults/ledger.h"
#include "faults/sites.h"
#include "faults/standins.h"
#include "support/handles.h"
#include "support/wait.h"

#include <cstdio>
#include <set>
#include <utility>

namespace ravlo::faults {
namespace {

/// Only a play that fails waits so long: the platform's threads end within milliseconds unless the machine is busy.
constexpr DWORD kSettleMs = 2000;

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
    if (g_moduleHeap.HasOverflown() || g_platformHeap.HasOverflown()) {
        outcome.wrongs.push_back("more blocks than a ledger holds: nothing is known about what stays");
    }
    return outcome;
}

void Balance::Compare(const Holdings& expected, const char* when, Outcome& outcome) {
    Holdings now = HoldNow();
    // Threads of the platform end, and let go of what they hold, a moment later.
    test::WaitUntil(
        [&] {
            now = HoldNow();
            return now.handles == expected.handles && now.platformBlocks == expected.platformBlocks &&
                   now.moduleBlocks == expected.moduleBlocks;
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
    // Back exactly: fewer blocks than usual were freed by somebody to whom they do not belong.
    std::set<const Site*> sites;
    for (const Holdings* const holdings : {&std::as_const(now), &expected}) {
        for (const auto& [site, count] : holdings->moduleBlocks) {
            sites.insert(site);
        }
    }
    const auto countAt = [](const std::map<const Site*, std::size_t>& blocks, const Site* site) {
        const auto found = blocks.find(site);
        return found == blocks.end() ? 0 : found->second;
    };
    for (const Site* const site : sites) {
        const std::string what = "heap blocks allocated at" + StackText(site) + ",";
        wrong(what.c_str(), countAt(now.moduleBlocks, site), countAt(expected.moduleBlocks, site));
    }
}

}  // namespace ravlo::faults
