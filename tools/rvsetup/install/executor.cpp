#include "rvsetup/install/executor.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>

#include "common/interrupt.h"
#include "common/messages.h"
#include "common/wide_text.h"
#include "platform/registry_names.h"
#include "rvsetup/install/file_work.h"
#include "rvsetup/install/log_folder.h"
#include "rvsetup/install/register_dll.h"
#include "rvsetup/install/registry_tree.h"
#include "rvsetup/system/camera_names.h"
#include "rvsetup/system/text.h"
#include "trace/directory_gate.h"

namespace ravlo {
namespace {

/// An error as a reason, nothing for success.
std::string Reason(DWORD error) {
    return error == ERROR_SUCCESS ? std::string() : SystemErrorText(error);
}

std::string Reason(LSTATUS error) {
    return Reason(static_cast<DWORD>(error));
}

std::string WaitsForRestart(const std::string& path, const std::string& movedTo) {
    return path + " is in use by a running program; it was moved to " + movedTo +
           " and goes with the next restart of Windows, or with the next run of rvsetup";
}

}  // namespace

ExitCode Executor::Run() {
    const Interrupt interrupt;
    for (std::size_t i = 0; i < m_plan.steps.size(); ++i) {
        const Step& step = m_plan.steps[i];
        if (interrupt.IsRaised()) {
            Say("stopped after " + std::to_string(i) + " of " + std::to_string(m_plan.steps.size()) + " changes");
            return ExitCode::Interrupted;
        }
        m_isLeft = false;
        const std::string problem = Perform(step);
        if (m_isLeft) {
            continue;
        }
        if (problem.empty()) {
            m_done[i] = true;
            Say(Printable(ReportStep(step)));
        } else if (i >= m_plan.tidyFrom) {
            m_leftFile = true;
            Note("an older version stays for now: cannot " + NameStep(step) + ": " + problem +
                 "; the next run of rvsetup install or uninstall removes it");
        } else {
            Say(Printable("cannot " + NameStep(step) + ": " + problem));
            return ExitCode::Failure;
        }
    }
    return ExitCode::Ok;
}

void Executor::Note(const std::string& sentence) {
    m_notes.push_back(sentence);
    Say(Printable(sentence));
}

void Executor::Leave(const std::string& sentence) {
    m_isLeft = true;
    Note(sentence);
}

std::string Executor::Perform(const Step& step) {
    switch (step.kind) {
        case StepKind::CreateFolder:
            // The program folder comes into being with the record in it, so that no moment is left in which the one is
            // there without the other.
            if (step.target == m_places.programFolder) {
                return WriteRecord();
            }
            return Reason(CreateDirectoryW(ToWide(step.target).c_str(), nullptr) ? ERROR_SUCCESS : GetLastError());
        case StepKind::WriteRecord:
            return WriteRecord();
        case StepKind::RemoveRecord:
            return RemoveRecord();
        case StepKind::SetAside:
            return Reason(MoveOver(step.target, step.source));
        case StepKind::PutBack: {
            const Removal removed = RemoveFileSafely(step.target, m_places.programFolder);
            if (!removed.movedTo.empty()) {
                Note(WaitsForRestart(step.target, removed.movedTo));
            }
            return Reason(removed.error != ERROR_SUCCESS ? removed.error : MoveOver(step.source, step.target));
        }
        case StepKind::InstallFile:
            return Copy(step);
        case StepKind::RemoveFile:
            return RemoveOneFile(step.target);
        case StepKind::RemoveFolder:
            return RemoveOneFolder(step.target);
        case StepKind::CreateLogFolder:
        case StepKind::SecureLogFolder:
            return PrepareLogFolder(step);
        case StepKind::RestoreLogSecurity:
            return Reason(RestoreFolderSecurity(step.target, m_plan.journal.log->security));
        case StepKind::RemoveLogFolder:
            return RemoveLog(step.target);
        case StepKind::Register:
            return RegisterDll(step.target);
        default:
            return PerformOnRegistry(step);
    }
}

std::string Executor::WriteRecord() {
    const std::string text = JournalToText(m_plan.journal);
    if (PathExists(m_places.programFolder)) {
        return Reason(WriteFileSafely(m_places.RecordPath(), text));
    }
    const std::string work = WorkFolder(m_places.programFolder);
    if (!CreateDirectoryW(ToWide(work).c_str(), nullptr)) {
        return Reason(GetLastError());
    }
    if (const DWORD error = WriteFileSafely(work + "\\install.json", text)) {
        return Reason(error);
    }
    return Reason(MoveFolder(work, m_places.programFolder));
}

std::string Executor::RemoveRecord() {
    const auto& folders = m_plan.journal.folders;
    const std::string work = WorkFolder(m_places.programFolder);
    // In one move, for the same reason as above. It fails when the folder holds what is in use, and then it stays.
    const bool isOurs = std::find(folders.begin(), folders.end(), m_places.programFolder) != folders.end();
    if (isOurs && HoldsOnly(m_places.programFolder, "install.json") &&
        MoveFolder(m_places.programFolder, work) == ERROR_SUCCESS) {
        Sweep(m_places.programFolder);
        return {};
    }
    return Reason(RemoveFileSafely(m_places.RecordPath(), m_places.programFolder).error);
}

std::string Executor::Copy(const Step& step) {
    const Removal old = CopyFileSafely(step.source, step.target, m_places.programFolder);
    if (!old.movedTo.empty()) {
        Note(WaitsForRestart(step.target + " of before", old.movedTo));
    }
    return Reason(old.error);
}

std::string Executor::RemoveOneFile(const std::string& path) {
    const Removal removed = RemoveFileSafely(path, m_places.programFolder);
    if (!removed.movedTo.empty()) {
        Note(WaitsForRestart(path, removed.movedTo));
    }
    return Reason(removed.error);
}

std::string Executor::RemoveOneFolder(const std::string& path) {
    const DWORD error = RemoveFolder(path);
    const bool isOpen = error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
    if (isOpen || (error == ERROR_DIR_NOT_EMPTY && m_leftFolder)) {
        // Most likely the console from which this runs stands in it. Should it be filled again until then, it stays.
        m_leftFolder = true;
        LeaveFolderForLater(path, m_places.programFolder);
        Leave(path +
              " is open in another program or console; it goes, empty, with the next restart of Windows, or with the "
              "next run of rvsetup");
        return {};
    }
    if (error == ERROR_DIR_NOT_EMPTY && m_leftFile) {
        return "it is not empty";
    }
    if (error == ERROR_DIR_NOT_EMPTY) {
        Leave(path + " stays: it holds files that rvsetup did not put there");
        return {};
    }
    return Reason(error);
}

std::string Executor::PrepareLogFolder(const Step& step) {
    const DWORD error = step.kind == StepKind::CreateLogFolder ? CreateLogFolder(step.target, step.source)
                                                               : SecureLogFolder(step.target, step.source);
    // The camera works without this folder and finds another place for its log.
    if (error != ERROR_SUCCESS) {
        Leave("warning: cannot " + NameStep(step) + ": " + Reason(error) + "; the camera will log elsewhere");
        return {};
    }
    DWORD gateError = ERROR_SUCCESS;
    const RvTraceDirVerdict verdict = RvCheckTraceDirectory(ToWide(step.target).c_str(), &gateError);
    if (verdict != RvTraceDirVerdict::Ok) {
        Note("warning: the camera will not log to " + step.target + " (" + TraceDirVerdictWord(verdict) +
             ") but elsewhere; \"rvsetup doctor\" shows where");
    }
    return {};
}

std::string Executor::RemoveLog(const std::string& folder) {
    const DWORD error = RemoveLogFolder(folder);
    if (error == ERROR_DIR_NOT_EMPTY) {
        Leave(folder + " stays: it holds files other than the trace log");
        return {};
    }
    return Reason(error);
}

std::string Executor::PerformOnRegistry(const Step& step) {
    const Journal& journal = m_plan.journal;
    switch (step.kind) {
        case StepKind::WriteAnchor:
            return Reason(WriteValue(kAnchorKeyName, TextValue(ToUtf8(kAnchorValueName), step.source)));
        case StepKind::RestoreAnchor:
            return Reason(WriteValue(kAnchorKeyName, *journal.anchor->before));
        case StepKind::RemoveAnchor:
            return Reason(RemoveValue(kAnchorKeyName, kAnchorValueName));
        case StepKind::RemoveAnchorKey: {
            const LSTATUS status = RemoveEmptyKey(kAnchorKeyName);
            if (status == ERROR_DIR_NOT_EMPTY) {
                Leave(step.target + " stays: it holds what rvsetup did not write");
                return {};
            }
            return Reason(status);
        }
        case StepKind::RemoveClass:
            return Reason(RemoveTree(kCameraClassKey));
        case StepKind::RestoreClass:
            return Reason(WriteTree(kCameraClassKey, *journal.classKey->before));
        default:
            return "this step is not known";
    }
}

}  // namespace ravlo
