#include <algorithm>
#include <string_view>

#include "rvsetup/doctor/diagnose.h"
#include "rvsetup/doctor/load_check.h"
#include "rvsetup/system/text.h"

// The checks of what is installed: Windows, the module, who may read it, and the one user who may send frames.
namespace ravlo {
namespace {

constexpr std::uint32_t kFirstBuildWithVirtualCameras = 22000;
constexpr const char* kInstall = "as administrator: rvsetup install --me";
constexpr const char* kInstallAgain = "as administrator: rvsetup install (it repairs what is there and keeps the user)";
constexpr const char* kMoveIt = "as administrator: rvsetup install";

std::string BuildText(const WindowsFacts& windows) {
    return "Windows " + std::to_string(windows.major) + "." + std::to_string(windows.minor) + " build " +
           std::to_string(windows.build);
}

bool IsInUserFolder(std::string_view path) {
    constexpr std::string_view kUsers = ":\\users\\";
    return path.size() > kUsers.size() && IsSameText(path.substr(1, kUsers.size()), kUsers);
}

/// What is wrong with the registered file itself; true when it can be loaded as far as its headers tell.
bool DiagnoseFile(const ModuleFacts& module, std::vector<Finding>& findings) {
    if (!IsAbsolutePath(module.path)) {
        findings.push_back(FoundFailure(
            "module", ExitCode::Failure,
            "the registered path is not absolute: " + module.path + "; each program would look for it somewhere else",
            kInstallAgain));
        return false;
    }
    if (!module.fileExists) {
        findings.push_back(FoundFailure("module", ExitCode::NotInstalled,
                                        "the registered file is not there: " + module.path, kInstallAgain));
        return false;
    }
    if (!module.fileError.empty()) {
        findings.push_back(FoundFailure("module", ExitCode::AccessDenied,
                                        "the registered file cannot be read: " + module.path + ": " + module.fileError,
                                        "install it where everybody may read it; " + std::string(kInstallAgain)));
        return false;
    }
    const char* const wrong = !module.pe.isPe    ? "is no Windows program file"
                              : !module.pe.is64  ? "is no 64-bit file; the camera service of Windows loads nothing else"
                              : !module.pe.isDll ? "is a program and no DLL"
                              : module.pe.isDamaged ? "is damaged or cut off"
                              : !ExportsName(module.pe, "DllGetClassObject")
                                  ? "is a DLL, but not that of a camera: it exports no DllGetClassObject"
                                  : nullptr;
    if (wrong != nullptr) {
        findings.push_back(FoundFailure("module", ExitCode::Failure, module.path + " " + wrong, kInstallAgain));
        return false;
    }
    return true;
}

void DiagnoseLoading(const DoctorFacts& facts, std::vector<Finding>& findings) {
    const ModuleFacts& module = facts.module;
    const bool wasRun = module.whyNotRun.empty();
    if (wasRun ? !module.loadError.empty() : !module.missingImports.empty()) {
        std::string missing;
        for (const std::string& name : module.missingImports) {
            missing += (missing.empty() ? "" : ", ") + name;
        }
        findings.push_back(FoundFailure(
            "module-load", ExitCode::Failure,
            "the module cannot be loaded" + (wasRun ? ": " + module.loadError : std::string()) +
                (missing.empty() ? "" : "; missing: " + missing),
            missing.empty() ? std::string(kInstallAgain)
                            : "install what brings " + missing + " (for mf*.dll: the Media Feature Pack of Windows)"));
        return;
    }
    const std::string& version = module.pe.version;
    const std::string found =
        wasRun ? "the module loads and offers the camera's class"
               : "the module and the DLLs that it needs are there; it was not run (" + module.whyNotRun + ")";
    if (!version.empty() && version != facts.ownVersion) {
        findings.push_back(FoundWarning("module-load",
                                        found + "; it is version " + version + ", this rvsetup " + facts.ownVersion,
                                        "use programs and module of one release; " + std::string(kInstallAgain)));
        return;
    }
    findings.push_back(FoundOk("module-load", found + (version.empty() ? "" : "; version " + version)));
}

/// What makes an anchor unusable, in plain words.
std::string WhyUnusable(AnchorReason reason) {
    switch (reason) {
        case AnchorReason::Absent:
            return "nobody is named";
        case AnchorReason::WrongType:
            return "the registry value is no text";
        case AnchorReason::TooLarge:
            return "the registry value is too long";
        case AnchorReason::Malformed:
            return "the registry value is no SID";
        case AnchorReason::NotAUser:
            return "the SID is that of a group";
        default:
            return "the registry value cannot be read";
    }
}

}  // namespace

void DiagnoseWindows(const DoctorFacts& facts, std::vector<Finding>& findings) {
    const WindowsFacts& windows = facts.windows;
    if (windows.build == 0) {
        findings.push_back(
            FoundWarning("windows", "the version of Windows cannot be found out", "check it with winver"));
    } else if (windows.build < kFirstBuildWithVirtualCameras) {
        findings.push_back(FoundWarning("windows",
                                        BuildText(windows) + " has no virtual cameras; only programs that load the "
                                                             "camera themselves, such as rvhost, can show it",
                                        "for other programs: Windows 11 (build 22000 or later)"));
    } else {
        findings.push_back(FoundOk("windows", BuildText(windows) + " has virtual cameras"));
    }
}

void DiagnoseModule(const DoctorFacts& facts, std::vector<Finding>& findings) {
    const ModuleFacts& module = facts.module;
    if (!module.keyError.empty()) {
        findings.push_back(FoundFailure("module", ExitCode::AccessDenied,
                                        "the registration of the camera cannot be read: " + module.keyError,
                                        "run rvsetup doctor as administrator"));
        return;
    }
    if (!module.keyExists || module.path.empty()) {
        findings.push_back(FoundFailure("module", ExitCode::NotInstalled,
                                        module.keyExists ? "the camera is registered without a file"
                                                         : "the camera is not installed: its class is not registered",
                                        kInstall));
        return;
    }
    if (!DiagnoseFile(module, findings)) {
        return;
    }
    if (module.threadingModel != "Both") {
        findings.push_back(
            FoundFailure("module", ExitCode::Failure,
                         module.threadingModel.empty()
                             ? "the registration names no threading model; it must be Both"
                             : "the registered threading model is \"" + module.threadingModel + "\" and must be Both",
                         kInstallAgain));
    } else {
        findings.push_back(FoundOk("module", "registered, 64-bit, threading model Both: " + module.path));
    }
    DiagnoseLoading(facts, findings);
}

void DiagnoseAccess(const DoctorFacts& facts, std::vector<Finding>& findings) {
    if (!facts.module.fileExists) {
        return;
    }
    const AccessFacts& access = facts.access;
    const std::string advice = IsInUserFolder(facts.module.path)
                                   ? "it lies in a user's own folder, which services may not read; " +
                                         std::string(kMoveIt) + " puts it below Program Files"
                                   : std::string(kMoveIt) + " puts it where everybody may read it";
    if (!access.fileError.empty()) {
        findings.push_back(FoundWarning("access", "who may read the module cannot be found out: " + access.fileError,
                                        "run rvsetup doctor as administrator"));
        return;
    }
    if (!CanReadAndExecute(access.fileList, LocalServiceSids())) {
        findings.push_back(FoundFailure(
            "access", ExitCode::AccessDenied,
            "LOCAL SERVICE, the account of the camera service, may not read and run " + facts.module.path, advice));
        return;
    }
    if (!access.folderError.empty() || !CanReadAndExecute(access.folderList, LocalServiceSids())) {
        findings.push_back(FoundWarning(
            "access", "LOCAL SERVICE may read the module, but not list its folder " + access.folder, advice));
        return;
    }
    findings.push_back(FoundOk("access", "LOCAL SERVICE may read and run the module, and list " + access.folder));
}

void DiagnoseReplacement(const DoctorFacts& facts, std::vector<Finding>& findings) {
    std::string writers;
    for (const std::string& sid : WhoMayReplace(facts.access)) {
        const std::string& self = facts.anchor.runningSid;
        writers += (writers.empty() ? "" : ", ") + (sid == self ? NamedSid(sid, facts.anchor.runningAccount) : sid);
    }
    if (!writers.empty()) {
        findings.push_back(FoundWarning("replace",
                                        "other users may replace the module, which services and other programs run: " +
                                            writers + " can change it or its folder",
                                        std::string(kMoveIt) + " puts it where only administrators may write"));
    }
}

void DiagnoseAnchor(const DoctorFacts& facts, std::vector<Finding>& findings) {
    const AnchorFacts& anchor = facts.anchor;
    const std::string name = "as administrator: rvsetup install --me, or --user SID for somebody else";
    if (anchor.reason != AnchorReason::Ok) {
        const bool isAbsent = anchor.reason == AnchorReason::Absent;
        const bool isUnreadable = anchor.reason == AnchorReason::ReadFailed;
        const ExitCode code = isAbsent       ? ExitCode::NotInstalled
                              : isUnreadable ? ExitCode::AccessDenied
                                             : ExitCode::Failure;
        findings.push_back(FoundFailure(
            "anchor", code,
            "the user who may send frames: " + std::string(AnchorReasonWord(anchor.reason)) + " - " +
                WhyUnusable(anchor.reason) + " at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid, so no pipe is made",
            name));
        return;
    }
    const std::string who = "frames may be sent by " + NamedSid(anchor.sid, anchor.account);
    if (anchor.kind == AccountKind::NotAUser) {
        findings.push_back(FoundFailure("anchor", ExitCode::Failure,
                                        who + ", which is no user (" + anchor.useName + "), so no pipe is made", name));
    } else if (anchor.kind == AccountKind::NotResolvable) {
        findings.push_back(FoundWarning("anchor", who + "; no account of this machine has that SID",
                                        "right for a domain user who is out of reach now; otherwise " + name));
    } else if (anchor.sid != anchor.runningSid) {
        findings.push_back(
            FoundWarning("anchor", who + ", not by you: " + NamedSid(anchor.runningSid, anchor.runningAccount),
                         "run rvfeeder as that user, or name yourself: as administrator: rvsetup install --me"));
    } else {
        findings.push_back(FoundOk("anchor", who + ": that is you"));
    }
}

}  // namespace ravlo
