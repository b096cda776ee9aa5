#include "rvsetup/report/report_content.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string_view>

#include "common/wide_text.h"
#include "ravlo/version.h"
#include "rvsetup/doctor/diagnose.h"
#include "rvsetup/doctor/gather.h"
#include "rvsetup/doctor/registered_module.h"
#include "rvsetup/install/locations.h"
#include "rvsetup/report/checksum.h"
#include "rvsetup/report/redactor.h"
#include "rvsetup/system/camera_names.h"
#include "rvsetup/system/pe_image.h"
#include "rvsetup/system/text.h"
#include "rvsetup/trace/log_files.h"

namespace ravlo {
namespace {

constexpr std::uint64_t kMebibyte = 1024ULL * 1024;
constexpr std::uint64_t kMostLogBytes = 2 * kMebibyte;

/// One line a value: what the camera finds in the registry.
std::string RegistryText(const RegisteredModule& registered, const AnchorFacts& anchor) {
    const std::string key = "HKLM\\" + ToUtf8(kCameraClassKey);
    std::string text;
    if (registered.error == ERROR_FILE_NOT_FOUND) {
        text += key + ": absent\n";
    } else if (registered.error != ERROR_SUCCESS) {
        text += key + ": " + SystemErrorText(registered.error) + "\n";
    } else {
        text += key + " = " + ToUtf8(registered.friendlyName) + "\n";
        text += key + "\\InprocServer32 = " + ToUtf8(registered.path) + "\n";
        text += key + "\\InprocServer32\\ThreadingModel = " + ToUtf8(registered.threadingModel) + "\n";
    }
    text += "HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid: " + std::string(AnchorReasonWord(anchor.reason));
    if (!anchor.sid.empty()) {
        text += " = " + anchor.sid + (anchor.account.empty() ? "" : " (" + anchor.account + ")");
    }
    return text + "\n";
}

std::string FileLine(const std::wstring& folder, const WIN32_FIND_DATAW& found, HANDLE interrupt) {
    constexpr std::size_t kMostForVersion = 64 * kMebibyte;
    const std::wstring path = folder + L"\\" + found.cFileName;
    std::string line = ToUtf8(path);
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return line + "  folder\n";
    }
    Sha256 hash;
    std::uint64_t size = 0;
    std::string front;
    const auto take = [&](std::string_view bytes) {
        hash.Add(bytes);
        size += bytes.size();
        front += bytes.substr(0, kMostForVersion - std::min(front.size(), kMostForVersion));
    };
    const DWORD error = ReadTail(path, std::numeric_limits<std::uint64_t>::max(), take, interrupt);
    if (error != ERROR_SUCCESS) {
        return line + "  " + SystemErrorText(error) + "\n";
    }
    const std::string version = ReadPeImage(front).version;
    line += "  " + std::to_string(size) + " bytes  " + (version.empty() ? "no version" : "version " + version);
    return line + "  sha256 " + hash.Text() + "\n";
}

/// Other files of the folders are nobody's business.
bool IsOurs(const wchar_t* name) {
    static constexpr const char* kNames[] = {kDllName,      "rvfeeder.exe", "rvhost.exe",
                                             "rvsetup.exe", "rvclient.exe", "ravloproducer.dll"};
    return std::any_of(std::begin(kNames), std::end(kNames),
                       [name](const char* ours) { return IsSameText(ToUtf8(name), ours); });
}

std::string FolderText(const std::wstring& folder, HANDLE interrupt) {
    std::string text;
    WIN32_FIND_DATAW found{};
    const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return ToUtf8(folder) + ": " + SystemErrorText(GetLastError()) + "\n";
    }
    do {
        if (IsOurs(found.cFileName)) {
            text += FileLine(folder, found, interrupt);
        }
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return text;
}

std::string FilesText(const RegisteredModule& registered, HANDLE interrupt) {
    const std::wstring own = ToWide(OwnFolder());
    const std::wstring module = IsAbsolutePath(ToUtf8(registered.path)) ? FolderOf(registered.path) : std::wstring();
    std::string text = FolderText(own, interrupt);
    if (!module.empty() && CompareStringOrdinal(own.c_str(), -1, module.c_str(), -1, TRUE) != CSTR_EQUAL) {
        text += FolderText(module, interrupt);
    }
    return text;
}

/// The name of a log inside the report.
std::string LogName(const LogFile& log) {
    return !log.isGated                                                       ? "logs/temp.log"
           : log.path.starts_with(std::wstring(kCameraLogFolderWide) + L"\\") ? "logs/program-data.log"
                                                                              : "logs/module-folder.log";
}

/// The last lines of a log, each of them whole.
std::string LogText(const LogFile& log, HANDLE interrupt) {
    if (IsFolderRefused(log)) {
        return std::string("left out: ") + TraceDirVerdictWord(log.verdict) + "\n";
    }
    std::string text;
    const auto keep = [&text](std::string_view bytes) { text += bytes; };
    const DWORD error = ReadTail(log.path, kMostLogBytes, keep, interrupt);
    if (error != ERROR_SUCCESS) {
        return "cannot be read: " + SystemErrorText(error) + "\n";
    }
    return text.size() < kMostLogBytes ? text : WithoutTornLine(text);
}

void AddLogs(const RegisteredModule& registered, HANDLE interrupt, ReportContent& content) {
    for (const LogFile& log : FindLogFiles(registered.path)) {
        if (log.exists) {
            const std::string what =
                IsFolderRefused(log)
                    ? "left out, " + std::string(TraceDirVerdictWord(log.verdict)) + ": the trace log "
                    : "the last " + std::to_string(kMostLogBytes / kMebibyte) + " MiB of the trace log ";
            content.parts.push_back({LogName(log), LogText(log, interrupt), what + ToUtf8(log.path)});
        }
    }
}

std::string AboutText(const DoctorFacts& facts, bool redact) {
    return "Report of rvsetup " + std::string(RAVLO_VERSION) + ".\n" +
           (redact ? "Names, SIDs and user folders were replaced by placeholders.\n"
                   : "Names, SIDs and user folders are as they are on the machine.\n") +
           "Windows " + std::to_string(facts.windows.major) + "." + std::to_string(facts.windows.minor) + " build " +
           std::to_string(facts.windows.build) + "\n";
}

std::string MachineName() {
    std::array<wchar_t, MAX_COMPUTERNAME_LENGTH + 1> machine{};
    auto length = static_cast<DWORD>(machine.size());
    return GetComputerNameW(machine.data(), &length) ? ToUtf8(machine.data()) : std::string();
}

Redactor MakeRedactor(const AnchorFacts& anchor) {
    Redactor redactor;
    redactor.AddAccount(anchor.sid, anchor.account, "<authorized user>");
    if (anchor.runningSid != anchor.sid) {
        redactor.AddAccount(anchor.runningSid, anchor.runningAccount, "<running user>");
    }
    redactor.AddName(MachineName(), "<machine>");
    return redactor;
}

std::vector<std::string> PersonalItems(const AnchorFacts& anchor) {
    std::vector<std::string> items;
    if (!anchor.sid.empty()) {
        items.push_back("SID and name of the authorized user: " + NamedSid(anchor.sid, anchor.account));
    }
    if (anchor.runningSid != anchor.sid) {
        items.push_back("SID and name of the user who runs this: " +
                        NamedSid(anchor.runningSid, anchor.runningAccount));
    }
    items.push_back("the name of this machine, " + MachineName() + ", as part of account names");
    items.emplace_back(
        "in registry.txt, files.txt, the doctor's text and the logs: paths, with the folders of users in them");
    items.emplace_back("in the logs: SIDs of accounts, and names of programs that used the camera");
    return items;
}

}  // namespace

ReportContent GatherReport(bool redact, void* interrupt) {
    ReportContent content;
    const RegisteredModule registered = ReadRegisteredModule();
    const DoctorFacts facts = GatherFacts({.interrupt = interrupt});
    std::vector<Finding> findings = Diagnose(facts);
    Redactor redactor = MakeRedactor(facts.anchor);
    if (redact) {
        // Before they become JSON, in which a name may stand behind an escape.
        for (Finding& finding : findings) {
            finding.found = redactor.Redact(finding.found);
            finding.next = redactor.Redact(finding.next);
        }
    }
    content.parts = {
        {"about.txt", AboutText(facts, redact), "versions of this program and of Windows"},
        {"registry.txt", RegistryText(registered, facts.anchor), "the registry values of the camera"},
        {"files.txt", FilesText(registered, interrupt), "names, sizes, versions and SHA-256 of the installed files"},
    };
    AddLogs(registered, interrupt, content);
    if (redact) {
        for (ReportPart& part : content.parts) {
            part.content = redactor.Redact(part.content);
            part.what = redactor.Redact(part.what);
        }
    } else {
        content.personal = PersonalItems(facts.anchor);
    }
    const std::vector<ReportPart> judged = {
        {"doctor.txt", FindingsAsText(findings), "what rvsetup doctor finds"},
        {"doctor.json", FindingsAsJson(findings), "the same for programs"},
    };
    content.parts.insert(content.parts.begin() + 1, judged.begin(), judged.end());
    return content;
}

}  // namespace ravlo
