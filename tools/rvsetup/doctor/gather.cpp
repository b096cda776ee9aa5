#include "rvsetup/doctor/gather.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "common/wide_text.h"
#include "pipe/authorized_user.h"
#include "pipe/pipe_name.h"
#include "platform/unique_handle.h"
#include "ravlo/version.h"
#include "rvsetup/doctor/load_check.h"
#include "rvsetup/doctor/module_facts.h"
#include "rvsetup/doctor/pipe_facts.h"
#include "rvsetup/doctor/registered_module.h"
#include "rvsetup/doctor/system_facts.h"
#include "rvsetup/trace/log_files.h"

namespace ravlo {
namespace {

/// As much of a log as is read: some hours of a camera that is always in use.
constexpr std::uint64_t kMostLogBytes = 64ULL * 1024 * 1024;

AccountKind KindOf(SidLookup lookup) noexcept {
    switch (lookup) {
        case SidLookup::User:
            return AccountKind::User;
        case SidLookup::NotAUser:
            return AccountKind::NotAUser;
        default:
            return AccountKind::NotResolvable;
    }
}

/// Whether this process could write into a file that is there.
bool MayAppend(const std::wstring& path) {
    const UniqueFile file(
        CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, nullptr));
    return file.IsValid();
}

LogFacts FactsOf(const LogFile& log) {
    LogFacts facts;
    facts.path = ToUtf8(log.path);
    if (log.isGated) {
        facts.verdict = TraceDirVerdictWord(log.verdict);
        facts.isUsable = log.verdict == RvTraceDirVerdict::Ok;
        facts.isMissing = log.verdict == RvTraceDirVerdict::Missing;
    } else {
        facts.isUsable = true;
    }
    facts.isRefused = IsFolderRefused(log);
    facts.exists = log.exists;
    facts.mayAppend = log.exists && MayAppend(log.path);
    facts.bytes = log.bytes;
    facts.lastWriteMs = log.lastWriteMs;
    return facts;
}

void ReadLogs(const std::wstring& modulePath, HANDLE interrupt, DoctorFacts& facts) {
    const std::vector<LogFile> logs = FindLogFiles(modulePath);
    std::transform(logs.begin(), logs.end(), std::back_inserter(facts.logs), FactsOf);
    facts.chosenLog = NewestLog(logs);
    if (!facts.chosenLog) {
        return;
    }
    const LogFile& log = logs[*facts.chosenLog];
    LineSplitter splitter;
    LogReader reader(kOwnProgram);
    const auto read = [&](std::string_view bytes) {
        for (const std::string& line : splitter.Add(bytes)) {
            reader.Add(line);
        }
    };
    const DWORD error = ReadTail(log.path, kMostLogBytes, read, interrupt);
    if (error != ERROR_SUCCESS) {
        facts.logs[*facts.chosenLog].error = SystemErrorText(error);
    }
    facts.story = reader.Finish(log.lastWriteMs);
}

void LookForPipes(HANDLE interrupt, DoctorFacts& facts) {
    std::vector<std::string> names;
    if (!facts.wantedPipe.empty()) {
        names.push_back(facts.wantedPipe);
    } else {
        names.push_back(ToUtf8(PipeNameForPid(0).text));
        for (const std::string& name : ServedPipes(facts.story)) {
            if (name != names.front()) {
                names.push_back(name);
            }
        }
    }
    for (const std::string& name : names) {
        if (!IsSignalled(interrupt)) {
            facts.pipes.push_back(LookForPipe(ToWide(name)));
        }
    }
}

/// The pipe to open: the first one that is there.
void Probe(HANDLE interrupt, DoctorFacts& facts) {
    const auto present = std::find_if(facts.pipes.begin(), facts.pipes.end(),
                                      [](const PipeFacts& pipe) { return pipe.frames != PipePresence::Absent; });
    if (present != facts.pipes.end()) {
        facts.probe = ProbePipe(ToWide(present->name), interrupt);
    }
}

}  // namespace

AnchorFacts ReadAnchorFacts() {
    AnchorFacts facts;
    std::wstring sid;
    std::wstring account;
    DWORD use = 0;
    facts.reason = ReadAuthorizedUserAnchor(sid);
    if (facts.reason == AnchorReason::Ok) {
        facts.kind = KindOf(LookupSidUse(sid, account, use));
        facts.sid = ToUtf8(sid);
        facts.account = ToUtf8(account);
        facts.useName = SidUseName(use);
    }
    DWORD error = ERROR_SUCCESS;
    if (GetOwnTokenUserSid(sid, error)) {
        LookupSidUse(sid, account, use);
        facts.runningSid = ToUtf8(sid);
        facts.runningAccount = ToUtf8(account);
    }
    return facts;
}

DoctorFacts GatherFacts(const GatherOptions& options) {
    DoctorFacts facts;
    facts.ownVersion = RAVLO_VERSION;
    facts.wantedPipe = options.pipe;
    facts.isProbing = options.probe;
    facts.windows = ReadWindowsFacts();
    facts.anchor = ReadAnchorFacts();
    const RegisteredModule registered = ReadRegisteredModule();
    facts.module = ReadModuleFacts(registered, options.interrupt);
    if (facts.module.fileExists) {
        facts.access = ReadAccessFacts(registered.path);
    }
    // Before the module is loaded, which makes it write lines of its own.
    ReadLogs(registered.path, options.interrupt, facts);
    facts.nowMs = UnixNowMs();
    const auto processes = ListProcesses();
    facts.areProcessesKnown = processes.has_value();
    facts.processes = processes.value_or(std::vector<ProcessFacts>());
    LookForPipes(options.interrupt, facts);
    if (IsSignalled(options.interrupt)) {
        return facts;
    }
    facts.module.whyNotRun = WhyNotRun(facts);
    if (facts.module.whyNotRun.empty()) {
        TryToLoad(registered, facts.module);
    }
    if (options.probe) {
        Probe(options.interrupt, facts);
    }
    return facts;
}

}  // namespace ravlo
