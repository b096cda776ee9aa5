#include "faults/report.h"

#include "faults/standins.h"
#include "faults/trace_capture.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <stdexcept>

namespace ravlo::faults {
namespace {

template <class... Arguments>
std::string Text(const char* format, Arguments... arguments) {
    char text[256];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

std::string Frames(const Site& site) {
    std::string text;
    for (std::size_t i = 0; i < site.frameCount; ++i) {
        text += Text(" %x", site.frames[i]);
    }
    return text;
}

}  // namespace

void CollectSites(std::vector<SiteHits>& sites) {
    ForEachSite([&](const Site& site) {
        const auto found =
            std::find_if(sites.begin(), sites.end(), [&](const SiteHits& known) { return known.site == &site; });
        if (site.hits.load() == 0) {
            return;  // reached earlier in the process only
        }
        if (found == sites.end()) {
            sites.push_back({&site, site.hits.load()});
        } else {
            found->hits = std::max(found->hits, site.hits.load());
        }
    });
}

std::span<const Failure> FailuresOf(std::uint64_t key) {
    const Hook* const hook = HookByNumber(static_cast<std::uint16_t>(key >> 32 & 0xFFF));
    return hook == nullptr ? std::span<const Failure>() : hook->failures;
}

Report::Report(const char* path)
    : m_file(
          CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)) {
    if (m_file == INVALID_HANDLE_VALUE) {
        throw std::runtime_error(std::string("the report cannot be written to ") + path);
    }
}

Report::~Report() {
    CloseHandle(m_file);
}

void Report::Line(const std::string& text) {
    const std::string line = text + "\n";
    DWORD written = 0;
    WriteFile(m_file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

void Report::Begin(unsigned number) {
    Line(Text("BEGIN %u", number));
}

void Report::End(unsigned number) {
    Line(Text("END %u", number));
}

void Report::WriteDelivery(const Failure& failure) {
    Line(Text("DELIVERED %u %lu", Delivered(), failure.Code()));
}

void Report::Write(const Outcome& outcome) {
    std::string text;
    for (const std::string& line : LogLines()) {
        text += "LOG " + line + "\n";
    }
    for (const Deviation& deviation : outcome.deviations) {
        text += "RESULT " +
                Text("%08lX %d %d ", static_cast<unsigned long>(deviation.result), deviation.duringFault,
                     deviation.repeated) +
                deviation.step + "\n";
    }
    for (const std::string& wrong : outcome.wrongs) {
        text += "WRONG " + wrong + "\n";
    }
    const Accounts accounts = CurrentAccounts();
    text += Text("SHOWN client=%d pattern=%d live=%d header=%d mismatch=%d gate=%d unloaded=%d\n",
                 outcome.clientReached, outcome.patternServed, outcome.liveServed, outcome.headerRefused,
                 outcome.mismatchSeen, outcome.gateServed, outcome.unloaded);
    text += Text("HELD local=%ld closes=%ld running=%ld started=%ld", accounts.localBlocks, accounts.failedCloses,
                 accounts.runningThreads, accounts.threadsStarted);
    Line(text);
}

void Report::Write(const ImportGates& gates) {
    for (const auto& [library, name, leftOut] : gates.Treatments()) {
        Line("IMPORT " + library + " " + name + " " + (leftOut.empty() ? "-" : leftOut));
    }
}

void Report::Write(const std::vector<SiteHits>& sites) {
    for (const SiteHits& entry : sites) {
        const Site& site = *entry.site;
        Line(Text("SITE %" PRIx64 " %s %s %d %zu %u", site.key.load(), RoleName(site.role), site.hook->name.c_str(),
                  static_cast<int>(site.hook->kind), site.hook->failures.size(), entry.hits) +
             Frames(site));
    }
}

void Report::WriteRemains(const Remains& module, const Remains& control) {
    Line(Text("REMAINS handles=%zu blocks=%zu control-handles=%zu control-blocks=%zu", module.handles, module.blocks,
              control.handles, control.blocks));
}

void Report::WriteHoldings(const char* when, const Holdings& holdings) {
    Line(Text("HOLDS %s handles=%zu platform=%zu module=%zu", when, holdings.handles, holdings.platformBlocks,
              holdings.ModuleBlocks()));
    for (const auto& [site, blocks] : holdings.moduleBlocks) {
        Line(Text("KEEPS %s %zu", when, blocks) + (site != nullptr ? Frames(*site) : ""));
    }
}

}  // namespace ravlo::faults
