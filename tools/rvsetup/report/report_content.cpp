#include "rvsetup/report/report_content.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "common/wide_text.h"
#include "ravlo/version.h"
#include "rvsetup/doctor/diagnose.h"
#include "rvsetup/doctor/gather.h"
#include "rvsetup/doctor/module_facts.h"
#include "rvsetup/doctor/registered_module.h"
#include "rvsetup/report/checksum.h"
#include "rvsetup/report/redactor.h"
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

std::string FileLine(const std::wstring& folder, const WIN32_FIND_DATAW& found) {
    const std::wstring path = folder + L"\\" + found.cFileName;
    std::string line = ToUtf8(path);
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return line + "  folder\n";
    }
    std::string bytes;
    DWORD error = ERROR_SUCCESS;
    if (!ReadFileBytes(path, bytes, error)) {
        return line + "  " + SystemErrorText(error) + "\n";
    }
    const std::string version = FileVersionOf(bytes);
    line += "  " + std::to_string(bytes.size()) + " bytes  " + (version.empty() ? "no version" : "version " + version);
    return line + "  sha256 " + Sha256Text(bytes) + "\n";
}

/// Other files of the folders are nobody's business.
bool IsOurs(const wchar_t* name) {
    static constexpr const wchar_t* kNames[] = {L"rvmediasource.dll", L"rvfeeder.exe", L"rvhost.exe",
                                                L"rvsetup.exe",       L"rvclient.exe", L"ravloproducer.dll"};
    return std::any_of(std::begin(kNames), std::end(kNames), [name](const wchar_t* ours) {
        return CompareStringOrdinal(name, -1, ours, -1, TRUE) == CSTR_EQUAL;
    });
}

std::string FolderText(const std::wstring& folder) {
    std::string text;
    WIN32_FIND_DATAW found{};
    const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return ToUtf8(folder) + ": " + SystemErrorText(GetLastError()) + "\n";
    }
    do {
        if (IsOurs(found.cFileName)) {
            text += FileLine(folder, found);
        }
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return text;
}

std::wstring OwnFolder() {
    std::array<wchar_t, 1040> path{};
    GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size() - 1));
    return FolderOf(path.data());
}

std::string FilesText(const RegisteredModule& registered) {
    const std::wstring own = OwnFolder();
    const std::wstring module = FolderOf(registered.path);
    std::string text = FolderText(own);
    if (!module.empty() && CompareStringOrdinal(own.c_str(), -1, module.c_str(), -1, TRUE) != CSTR_EQUAL) {
        text += FolderText(module);
    }
    return text;
}

/// The name of a log inside the report.
std::string LogName(const LogFile& log) {
    return !log.isGated                                        ? "logs/temp.log"
           : log.path.starts_with(L"C:\\ProgramData\\Ravlo\\") ? "logs/program-data.log"
                                                               : "logs/module-folder.log";
}

void AddLogs(const RegisteredModule& registered, ReportContent& content) {
    for (const LogFile& log : FindLogFiles(registered.path)) {
        if (!log.exists) {
            continue;
        }
        ReportPart part{
            LogName(log),
            {},
            "the last " + std::to_string(kMostLogBytes / kMebibyte) + " MiB of the trace log " + ToUtf8(log.path)};
        const DWORD error =
            ReadTail(log.path, kMostLogBytes, [&part](std::string_view bytes) { part.content += bytes; });
        if (error != ERROR_SUCCESS) {
            part.content = "cannot be read: " + SystemErrorText(error) + "\n";
        }
        content.parts.push_back(std::move(part));
    }
}

std::string AboutText(const DoctorFacts& facts, bool redact) {
    return "Report of rvsetup " + std::string(RAVLO_VERSION) + ".\n" +
           (redact ? "Names, SIDs and user folders were replaced by placeholders.\n"
                   : "Names, SIDs and user folders are as they are on the machine.\n") +
           "Windows " + std::to_string(facts.windows.major) + "." + std::to_string(facts.windows.minor) + " build " +
           std::to_string(facts.windows.build) + "\n";
}

void AddAccount(Redactor& redactor, const std::string& account, const std::string& placeholder) {
    const std::size_t split = account.find('\\');
    redactor.AddName(split == std::string::npos ? account : account.substr(split + 1), placeholder);
    if (split != std::string::npos) {
        redactor.AddName(account.substr(0, split), "<machine>");
    }
}

void RedactAll(const AnchorFacts& anchor, ReportContent& content) {
    Redactor redactor;
    AddAccount(redactor, anchor.account, "<authorized user>");
    if (anchor.runningSid != anchor.sid) {
        AddAccount(redactor, anchor.runningAccount, "<running user>");
    }
    std::array<wchar_t, MAX_COMPUTERNAME_LENGTH + 1> machine{};
    auto length = static_cast<DWORD>(machine.size());
    if (GetComputerNameW(machine.data(), &length)) {
        redactor.AddName(ToUtf8(machine.data()), "<machine>");
    }
    for (ReportPart& part : content.parts) {
        part.content = redactor.Redact(part.content);
    }
}

std::string Named(const std::string& sid, const std::string& account) {
    return account.empty() ? sid : account + ", " + sid;
}

}  // namespace

ReportContent GatherReport(bool redact) {
    ReportContent content;
    const RegisteredModule registered = ReadRegisteredModule();
    // The logs first: the doctor loads the module, which then writes lines of its own.
    ReportContent logs;
    AddLogs(registered, logs);
    const DoctorFacts facts = GatherFacts({});
    const std::vector<Finding> findings = Diagnose(facts);
    content.parts = {
        {"about.txt", AboutText(facts, redact), "versions of this program and of Windows"},
        {"doctor.txt", FindingsAsText(findings), "what rvsetup doctor finds"},
        {"doctor.json", FindingsAsJson(findings), "the same for programs"},
        {"registry.txt", RegistryText(registered, facts.anchor), "the registry values of the camera"},
        {"files.txt", FilesText(registered), "names, sizes, versions and SHA-256 of the installed files"},
    };
    content.parts.insert(content.parts.end(), logs.parts.begin(), logs.parts.end());
    if (redact) {
        RedactAll(facts.anchor, content);
        return content;
    }
    if (!facts.anchor.sid.empty()) {
        content.personal.push_back("the SID and name of the authorized user (" +
                                   Named(facts.anchor.sid, facts.anchor.account) + ")");
    }
    if (facts.anchor.runningSid != facts.anchor.sid) {
        content.personal.push_back("the SID and name of the user who runs this (" +
                                   Named(facts.anchor.runningSid, facts.anchor.runningAccount) + ")");
    }
    content.personal.emplace_back("in the logs: SIDs of accounts and names of programs that used the camera");
    return content;
}

}  // namespace ravlo
