// The single-fault sweep, the part that runs in one process. scripts/sweep.sh starts several of them and judges what
// they write.
//
//   ravlo_fault_sweep record REPORT [fresh]      plays without a fault; every site that they reach
//   ravlo_fault_sweep play REPORT JOBS [fresh]   a play for each line of JOBS: number, key, occurrence, sticky, failure
//
// With `fresh` each play loads and unloads the module, otherwise the module stays.
#include "faults/balance.h"
#include "faults/crash_report.h"
#include "faults/gates.h"
#include "faults/ledger.h"
#include "faults/platform_heap.h"
#include "faults/report.h"
#include "faults/residence.h"
#include "faults/sites.h"
#include "faults/standins.h"
#include "support/com.h"
#include "support/registry.h"

#include <windows.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace ravlo::faults;

constexpr DWORD kPlayMs = 30'000;
/// Instead of a failure's number: the call says that it succeeded and does nothing. That nobody can survive unnoticed,
/// and so shows that the sweep notices.
constexpr std::size_t kLie = 99;
/// The caller starts a new process: something in this one will never be as it was.
constexpr int kSpoiltExitCode = 10;

struct Job {
    unsigned number = 0;
    std::uint64_t key = 0;
    std::uint32_t occurrence = 1;
    bool sticky = false;
    std::size_t failure = 0;
};

std::vector<Job> ReadJobs(const char* path) {
    std::vector<Job> jobs;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        Job job;
        if (fields >> job.number >> std::hex >> job.key >> std::dec >> job.occurrence >> job.sticky >> job.failure) {
            jobs.push_back(job);
        }
    }
    return jobs;
}

/// Success, told from the failure: functions that fail with 0 and a last error succeed with 1, all others with 0.
Failure LieOf(const Failure& failure) {
    return {failure.setsLastError && failure.result == 0 ? 1U : 0U, 0, false, false};
}

int Record(Balance& balance, const ImportGates& gates, Report& report) {
    constexpr int kPlays = 4;
    std::vector<SiteHits> sites;
    for (int play = 0; play < kPlays; ++play) {
        Disarm();
        WatchFor(kPlayMs);
        report.Begin(0);
        const Outcome outcome = balance.Play();
        report.Write(outcome);
        report.End(0);
        CollectSites(sites);
    }
    WatchFor(0);
    report.Write(gates);
    report.Write(sites);
    report.WriteHoldings("loaded", balance.Loaded());
    report.WriteHoldings("unloaded", balance.Unloaded());
    return 0;
}

int Play(Balance& balance, const std::vector<Job>& jobs, Report& report) {
    for (const Job& job : jobs) {
        const std::span<const Failure> failures = FailuresOf(job.key);
        const bool lies = job.failure == kLie && !failures.empty();
        report.Begin(job.number);
        if (job.failure >= failures.size() && !lies) {
            report.Line("WRONG no such failure");
            report.End(job.number);
            continue;
        }
        WatchFor(kPlayMs);
        const Failure failure = lies ? LieOf(failures.front()) : failures[job.failure];
        Arm(job.key, job.occurrence, job.sticky, failure);
        const ULONGLONG begun = GetTickCount64();
        const Outcome outcome = balance.Play();
        report.Line("TOOK " + std::to_string(GetTickCount64() - begun));
        report.WriteDelivery(failure);
        Disarm();
        report.Write(outcome);
        report.End(job.number);
        if (!outcome.unloaded || !outcome.wrongs.empty()) {
            return kSpoiltExitCode;
        }
    }
    return 0;
}

/// The accounts must see what they are there to see.
bool WatchesPlatformHeap() {
    const std::size_t before = g_platformHeap.Count();
    ravlo::test::ComPtr<IMFAttributes> attributes;
    return SUCCEEDED(MFCreateAttributes(attributes.Put(), 1)) && g_platformHeap.Count() > before;
}

int RunPlays(bool resident, const char* jobs, const ImportGates& gates, Report& report) {
    Balance balance(resident);
    if (!balance.Learn()) {
        report.Line("WRONG the plays without a fault do not settle");
        return 1;
    }
    if (!gates.Unknown().empty()) {
        report.Line("UNKNOWN " + gates.Unknown());
    }
    return jobs == nullptr ? Record(balance, gates, report) : Play(balance, ReadJobs(jobs), report);
}

int Run(const std::vector<std::string>& arguments) {
    const bool fresh = !arguments.empty() && arguments.back() == "fresh";
    const std::size_t count = arguments.size() - (fresh ? 1 : 0);
    const bool records = count == 2 && arguments[0] == "record";
    if (!records && !(count == 3 && arguments[0] == "play")) {
        std::fprintf(stderr, "usage: ravlo_fault_sweep record REPORT [fresh] | play REPORT JOBS [fresh]\n");
        return 2;
    }
    const char* const jobs = records ? nullptr : arguments[2].c_str();
    Report report(arguments[1].c_str());
    InstallCrashReport(report.Handle());
    const ravlo::test::ComApartment apartment;
    const ravlo::test::MediaFoundation mediaFoundation;
    const ravlo::test::PrivateLocalMachine localMachine;
    const ravlo::test::AnchorGuard anchor(ravlo::test::CurrentUserSid());
    WatchPlatformHeap();
    GatePlatformMethods();
    if (!WatchesPlatformHeap()) {
        report.Line("WRONG the heap of Media Foundation cannot be watched");
        return 1;
    }
    WatchFor(4 * kPlayMs);
    const Remains control = MeasureControl();
    const ImportGates gates(L"rvmediasource.dll");
    if (fresh) {
        return RunPlays(false, jobs, gates, report);
    }
    Residence residence;
    const int code = RunPlays(true, jobs, gates, report);
    if (code == 0) {
        const Remains remains = residence.Leave();
        report.WriteRemains(remains, control);
    }
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    int code = 1;
    try {
        code = Run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "the sweep cannot run: %s\n", error.what());
    }
    // A play that ended badly may have left threads in the module; nothing of it may run on the way out.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
    return code;
}
