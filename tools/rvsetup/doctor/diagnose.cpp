#include "rvsetup/doctor/diagnose.h"

#include <algorithm>
#include <string_view>

#include "rvsetup/system/text.h"

namespace ravlo {
namespace {

/// The log has room for this many characters of a program's name.
constexpr std::size_t kLoggedName = 63;

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;

/// The log writes "?" for each unit of a name that is not ASCII, so only the ASCII part can be compared.
bool IsSameProgram(std::string_view running, std::string_view logged) {
    if (logged.find('?') != std::string_view::npos) {
        return true;
    }
    return IsSameText(running.substr(0, kLoggedName), logged);
}

}  // namespace

std::vector<Finding> Diagnose(const DoctorFacts& facts) {
    std::vector<Finding> findings;
    DiagnoseWindows(facts, findings);
    DiagnoseModule(facts, findings);
    DiagnoseAccess(facts, findings);
    DiagnoseReplacement(facts, findings);
    DiagnoseAnchor(facts, findings);
    DiagnoseLog(facts, findings);
    DiagnosePipe(facts, findings);
    DiagnoseGate(facts, findings);
    DiagnoseProbe(facts, findings);
    DiagnoseProducer(facts, findings);
    DiagnoseTroubles(facts, findings);
    return findings;
}

bool IsStillRunning(const DoctorFacts& facts, std::uint32_t processId, const std::string& process) {
    return !facts.areProcessesKnown ||
           std::any_of(facts.processes.begin(), facts.processes.end(), [&](const ProcessFacts& running) {
               return running.id == processId && IsSameProgram(running.name, process);
           });
}

std::string AgeText(std::int64_t whenMs, std::int64_t nowMs) {
    if (whenMs == 0) {
        return "at an unknown time";
    }
    const std::int64_t seconds = std::max<std::int64_t>(0, nowMs - whenMs) / 1000;
    if (seconds < 2) {
        return "just now";
    }
    if (seconds < 2 * kMinute) {
        return std::to_string(seconds) + " s ago";
    }
    if (seconds < 2 * kHour) {
        return std::to_string(seconds / kMinute) + " min ago";
    }
    if (seconds < 2 * kDay) {
        return std::to_string(seconds / kHour) + " h ago";
    }
    return std::to_string(seconds / kDay) + " days ago";
}

}  // namespace ravlo
