// The text that a process of the sweep writes about its plays, line by line, so that a crash loses nothing of it. Every
// line begins with a word that says what it holds; scripts/lib/fault_sweep.py reads it.
#pragma once

#include "faults/balance.h"
#include "faults/gates.h"
#include "faults/residence.h"
#include "faults/scenario.h"
#include "faults/sites.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ravlo::faults {

/// A site and the largest number of calls that one play made from it.
struct SiteHits {
    const Site* site = nullptr;
    std::uint32_t hits = 0;
};

/// Takes over the hits of the play that just ended.
void CollectSites(std::vector<SiteHits>& sites);

/// The ways in which the function of this site's key fails; empty for an unknown key.
std::span<const Failure> FailuresOf(std::uint64_t key);

class Report {
public:
    /// Throws when the file cannot be made.
    explicit Report(const char* path);
    ~Report();
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    HANDLE Handle() const { return m_file; }
    void Line(const std::string& text);

    void Begin(unsigned number);
    void End(unsigned number);
    /// How often the staged failure was handed out, and the code by which it is recognised.
    void WriteDelivery(const Failure& failure);
    void Write(const Outcome& outcome);
    void Write(const ImportGates& gates);
    void Write(const std::vector<SiteHits>& sites);
    /// What stays of the module after its unload, and of the control module.
    void WriteRemains(const Remains& module, const Remains& control);
    void WriteHoldings(const char* when, const Holdings& holdings);

private:
    HANDLE m_file = INVALID_HANDLE_VALUE;
};

}  // namespace ravlo::faults
