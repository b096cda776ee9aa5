#include "rvsetup/doctor/load_check.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "rvsetup/system/text.h"

namespace ravlo {
namespace {

constexpr std::uint32_t kDelete = 0x00010000;
constexpr std::uint32_t kWriteList = 0x00040000;
constexpr std::uint32_t kWriteOwner = 0x00080000;
constexpr std::uint32_t kTakeOver = kDelete | kWriteList | kWriteOwner;
/// Write or append data.
constexpr std::uint32_t kChangeFile = kTakeOver | 0x0002 | 0x0004;
/// Add a file, delete one.
constexpr std::uint32_t kChangeFolder = kTakeOver | 0x0002 | 0x0040;

/// Those who could do as they like anyway, and two that stand for the owner, who is looked at for himself.
bool IsTrusted(std::string_view sid) noexcept {
    static constexpr std::string_view kTrusted[] = {
        "S-1-5-18",                                                        // LOCAL SYSTEM
        "S-1-5-32-544",                                                    // BUILTIN\Administrators
        "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",  // TrustedInstaller
        "S-1-5-19",                                                        // LOCAL SERVICE
        "S-1-3-0",                                                         // CREATOR OWNER
        "S-1-3-4",                                                         // OWNER RIGHTS
    };
    return std::find(std::begin(kTrusted), std::end(kTrusted), sid) != std::end(kTrusted);
}

void AddWriters(const AccessList& list, const std::string& owner, std::uint32_t rights,
                std::vector<std::string>& writers) {
    const auto add = [&writers](const std::string& sid) {
        if (!IsTrusted(sid) && std::find(writers.begin(), writers.end(), sid) == writers.end()) {
            writers.push_back(sid);
        }
    };
    if (!owner.empty()) {
        add(owner);  // who may always change the access list
    }
    if (!list) {
        add("S-1-1-0");
        return;
    }
    for (const AccessEntry& entry : *list) {
        if (entry.allows && !entry.inheritOnly && (GrantedRights(list, {entry.sid}, Conditions::Met) & rights) != 0) {
            add(entry.sid);
        }
    }
}

/// The first folder that the camera would take for its log, and whether a load would only add lines there.
std::string WhyNoQuietLog(const DoctorFacts& facts) {
    for (const LogFacts& log : facts.logs) {
        if (log.isMissing) {
            return "that would make the folder of its log, which then belongs to you";
        }
        if (log.isUsable) {
            return !log.exists           ? "that would make its log, which then belongs to you"
                   : !log.mayAppend      ? "you may not write into its log"
                   : log.verdict.empty() ? "its log is in a folder of everybody"
                                         : "";
        }
    }
    return "it has no folder for its log";
}

}  // namespace

std::vector<std::string> WhoMayReplace(const AccessFacts& access) {
    std::vector<std::string> writers;
    AddWriters(access.fileList, access.fileOwner, kChangeFile, writers);
    AddWriters(access.folderList, access.folderOwner, kChangeFolder, writers);
    return writers;
}

std::string WhyNotRun(const DoctorFacts& facts) {
    if (!facts.isProbing) {
        return "rvsetup doctor --probe runs it";
    }
    if (!IsAbsolutePath(facts.module.path)) {
        return "its path is not absolute";
    }
    if (!facts.access.fileError.empty() || !facts.access.folderError.empty()) {
        return "who may replace it cannot be found out";
    }
    const std::vector<std::string> writers = WhoMayReplace(facts.access);
    // What whoever looks could have changed himself gives nobody anything that he does not have.
    if (std::any_of(writers.begin(), writers.end(),
                    [&facts](const std::string& sid) { return sid != facts.anchor.runningSid; })) {
        return "others may replace it";
    }
    return WhyNoQuietLog(facts);
}

}  // namespace ravlo
