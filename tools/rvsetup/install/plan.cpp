#include "rvsetup/install/plan.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace ravlo {
namespace {

constexpr char kAnchorPath[] = "HKLM\\SOFTWARE\\Ravlo AuthorizedUserSid";
constexpr char kAnchorKeyPath[] = "HKLM\\SOFTWARE\\Ravlo";
/// The module writes its log beside itself where the usual folder is refused.
constexpr char kLogName[] = "trace.log";

FileRecord* FindFile(Journal& journal, const std::string& path) {
    const auto found = std::find_if(journal.files.begin(), journal.files.end(),
                                    [&](const FileRecord& file) { return file.path == path; });
    return found == journal.files.end() ? nullptr : &*found;
}

void AddOnce(std::vector<std::string>& list, const std::string& text) {
    if (std::find(list.begin(), list.end(), text) == list.end()) {
        list.push_back(text);
    }
}

bool LiesIn(const std::string& path, const std::string& folder) {
    return path.starts_with(folder + "\\");
}

void PlanFolder(Plan& plan, const MachineState& state, const std::string& path) {
    if (!state.exists(path)) {
        AddOnce(plan.journal.folders, path);
        plan.steps.push_back({StepKind::CreateFolder, path, {}});
    }
}

void PlanFile(Plan& plan, const MachineState& state, const SourceFile& file, const std::string& target) {
    const bool exists = state.exists(target);
    if (exists && state.haveSameContent(file.path, target)) {
        return;
    }
    const FileRecord* record = FindFile(plan.journal, target);
    if (record == nullptr) {
        record = &plan.journal.files.emplace_back(FileRecord{target, exists});
    }
    // A file from before install that still lies in its place, because an earlier install ended before this step.
    if (exists && record->existed && !state.exists(AsidePath(target))) {
        plan.steps.push_back({StepKind::SetAside, target, AsidePath(target)});
    }
    plan.steps.push_back({StepKind::InstallFile, target, file.path});
}

void PlanAnchor(Plan& plan, const MachineState& state, const std::string& sid) {
    if (sid.empty() || state.anchorSid == sid) {
        return;
    }
    if (!plan.journal.anchor) {
        plan.journal.anchor = AnchorRecord{state.anchorKeyExists, state.anchor, {}};
    }
    AddOnce(plan.journal.anchor->written, sid);
    plan.steps.push_back({StepKind::WriteAnchor, kAnchorPath, sid});
}

void PlanLogFolder(Plan& plan, const Places& places, const MachineState& state, const std::string& sid) {
    if (!plan.journal.log) {
        plan.journal.log = LogRecord{state.logFolderExists, state.exists(places.LogPath()), state.logSecurity};
    }
    plan.steps.push_back(
        {state.logFolderExists ? StepKind::SecureLogFolder : StepKind::CreateLogFolder, places.logFolder, sid});
}

void PlanClass(Plan& plan, const MachineState& state, const InstallRequest& request, const std::string& dll) {
    if (state.classKey == request.wantedClass) {
        return;
    }
    if (!plan.journal.classKey) {
        plan.journal.classKey = ClassRecord{state.classKey};
    }
    plan.steps.push_back({StepKind::Register, dll, {}});
}

/// Undoes one file of the journal. Nothing to do for a file that install never came to.
void PlanFileBack(Plan& plan, const MachineState& state, const FileRecord& file) {
    if (file.existed) {
        if (state.exists(AsidePath(file.path))) {
            plan.steps.push_back({StepKind::PutBack, file.path, AsidePath(file.path)});
        }
    } else if (state.exists(file.path) || state.exists(file.path + ".new")) {
        plan.steps.push_back({StepKind::RemoveFile, file.path, {}});
    }
}

/// Files and folders of the journal that lie in `folder` but, when `except` is not empty, neither are it nor lie in it.
void PlanFilesBack(Plan& plan, const MachineState& state, const Journal& journal, const std::string& folder,
                   const std::string& except) {
    const auto concerns = [&](const std::string& path) {
        return LiesIn(path, folder) && (except.empty() || (path != except && !LiesIn(path, except)));
    };
    const std::vector<FileRecord> files(journal.files.rbegin(), journal.files.rend());
    for (const FileRecord& file : files) {
        if (concerns(file.path)) {
            PlanFileBack(plan, state, file);
        }
    }
    const std::vector<std::string> innerFirst(journal.folders.rbegin(), journal.folders.rend());
    for (const std::string& path : innerFirst) {
        if (concerns(path) && state.exists(path)) {
            plan.steps.push_back({StepKind::RemoveFolder, path, {}});
        }
    }
}

void PlanClassBack(Plan& plan, const MachineState& state, const Journal& journal) {
    if (!journal.classKey || state.classKey == journal.classKey->before) {
        return;
    }
    const bool isOurs = std::any_of(journal.files.begin(), journal.files.end(),
                                    [&](const FileRecord& file) { return file.path == state.serverPath; });
    // A registration that was broken off leaves a key without a DLL, or with the one from before.
    if (isOurs || state.serverPath.empty() || state.serverPath == state.serverPathBefore) {
        const StepKind kind = journal.classKey->before ? StepKind::RestoreClass : StepKind::RemoveClass;
        plan.steps.push_back({kind, std::string("HKLM\\") + kCameraClassPath, {}});
    } else {
        plan.notes.push_back("the camera's class is left alone: it was registered anew since the install, for " +
                             state.serverPath);
    }
}

void PlanAnchorBack(Plan& plan, const MachineState& state, const Journal& journal) {
    if (!journal.anchor) {
        return;
    }
    const AnchorRecord& record = *journal.anchor;
    if (state.anchor != record.before) {
        const auto& written = record.written;
        if (std::find(written.begin(), written.end(), state.anchorSid) == written.end()) {
            plan.notes.push_back(std::string(kAnchorPath) +
                                 " is left alone: it is no longer what was written by rvsetup install");
            return;
        }
        plan.steps.push_back({record.before ? StepKind::RestoreAnchor : StepKind::RemoveAnchor, kAnchorPath, {}});
    }
    if (!record.keyExisted && state.anchorKeyExists) {
        plan.steps.push_back({StepKind::RemoveAnchorKey, kAnchorKeyPath, {}});
    }
}

void PlanLogBack(Plan& plan, const Places& places, const MachineState& state, const Journal& journal, bool keepLog) {
    if (!journal.log || !state.logFolderExists) {
        return;
    }
    const bool wouldRemove = !journal.log->existed || (!journal.log->fileExisted && state.exists(places.LogPath()));
    if (wouldRemove && keepLog) {
        plan.notes.push_back(places.logFolder + " stays, with the trace log");
    } else if (wouldRemove && !journal.log->existed) {
        plan.steps.push_back({StepKind::RemoveLogFolder, places.logFolder, {}});
    } else if (wouldRemove) {
        plan.steps.push_back({StepKind::RemoveFile, places.LogPath(), {}});
    }
    if (journal.log->existed && state.logSecurity != journal.log->security && !journal.log->security.empty()) {
        plan.steps.push_back({StepKind::RestoreLogSecurity, places.logFolder, {}});
    }
}

}  // namespace

Plan PlanInstall(const Places& places, const InstallRequest& request, const MachineState& state) {
    Plan plan;
    plan.journal = state.journal.value_or(Journal{});
    const std::string folder = places.programFolder + "\\" + request.version;
    PlanFolder(plan, state, places.programFolder);
    const std::size_t folderSteps = plan.steps.size();
    if (!request.files.empty()) {
        PlanFolder(plan, state, folder);
        for (const SourceFile& file : request.files) {
            PlanFile(plan, state, file, folder + "\\" + file.name);
        }
        const std::string log = folder + "\\" + kLogName;
        if (!state.exists(log) && FindFile(plan.journal, log) == nullptr) {
            plan.journal.files.push_back({log, false});
        }
    }
    PlanAnchor(plan, state, request.sid);
    if (!request.files.empty()) {
        PlanLogFolder(plan, places, state, request.sid.empty() ? state.anchorSid : request.sid);
        PlanClass(plan, state, request, folder + "\\" + kDllName);
    }
    const std::size_t tidyFrom = plan.steps.size();
    if (!request.files.empty()) {
        PlanFilesBack(plan, state, plan.journal, places.programFolder, folder);
    }
    if (plan.steps.size() == folderSteps) {
        return {};
    }
    plan.steps.insert(plan.steps.begin() + static_cast<std::ptrdiff_t>(folderSteps),
                      {StepKind::WriteRecord, places.RecordPath(), {}});
    plan.tidyFrom = tidyFrom + 1;
    return plan;
}

Plan PlanUninstall(const Places& places, const MachineState& state, bool keepLog) {
    Plan plan;
    plan.journal = *state.journal;
    const Journal& journal = *state.journal;
    PlanClassBack(plan, state, journal);
    PlanAnchorBack(plan, state, journal);
    PlanLogBack(plan, places, state, journal, keepLog);
    PlanFilesBack(plan, state, journal, places.programFolder, {});
    plan.steps.push_back({StepKind::RemoveRecord, places.RecordPath(), {}});
    const auto& folders = journal.folders;
    if (std::find(folders.begin(), folders.end(), places.programFolder) != folders.end()) {
        plan.steps.push_back({StepKind::RemoveFolder, places.programFolder, {}});
    }
    return plan;
}

Journal TrimJournal(const Journal& journal, const std::string& currentFolder, const MachineState& state) {
    Journal trimmed = journal;
    std::erase_if(trimmed.files, [&](const FileRecord& file) {
        return !LiesIn(file.path, currentFolder) && !state.exists(file.path + ".new") &&
               (file.existed ? !state.exists(AsidePath(file.path)) : !state.exists(file.path));
    });
    std::erase_if(trimmed.folders, [&](const std::string& folder) { return !state.exists(folder); });
    return trimmed;
}

}  // namespace ravlo
