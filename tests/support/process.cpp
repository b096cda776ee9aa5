#include "support/process.h"

#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace ravlo::test {
namespace {

constexpr UINT kKilledExitCode = 9;
constexpr int kUsageExitCode = 2;
constexpr std::wstring_view kRoleOption = L"--role=";

// Constant-initialised, so it is there before the first registration of any file.
const RoleRegistration* g_firstRole = nullptr;

/// The argument in quotes, as the C runtime of the child takes it apart again.
std::wstring Quoted(const std::wstring& argument) {
    std::wstring text = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t character : argument) {
        if (character == L'\\') {
            ++backslashes;
            continue;
        }
        // Backslashes count double only in front of a quotation mark.
        text.append(character == L'"' ? 2 * backslashes + 1 : backslashes, L'\\');
        text += character;
        backslashes = 0;
    }
    text.append(2 * backslashes, L'\\');
    return text + L"\"";
}

std::wstring NewOutputPath() {
    static std::atomic<unsigned> counter{0};
    wchar_t directory[MAX_PATH];
    if (GetTempPathW(MAX_PATH, directory) == 0) {
        throw std::runtime_error("GetTempPathW failed");
    }
    return std::wstring(directory) + L"ravlo-child-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
           std::to_wstring(counter++) + L".txt";
}

std::wstring OwnProgram() {
    std::wstring path(1040, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

}  // namespace

ChildProcess::ChildProcess(const std::wstring& program, const Arguments& arguments) : m_outputPath(NewOutputPath()) {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const HANDLE output = CreateFileW(m_outputPath.c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inheritable,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (output == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("the file for a child's output cannot be made");
    }
    std::wstring commandLine = Quoted(program);
    for (const std::wstring& argument : arguments) {
        commandLine += L" " + Quoted(argument);
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output;
    startup.hStdError = output;
    PROCESS_INFORMATION process{};
    const BOOL started = CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                        nullptr, &startup, &process);
    const DWORD error = GetLastError();
    CloseHandle(output);
    if (!started) {
        DeleteFileW(m_outputPath.c_str());
        throw std::runtime_error("a child process does not start, error " + std::to_string(error));
    }
    CloseHandle(process.hThread);
    m_process = process.hProcess;
    m_pid = process.dwProcessId;
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : m_process(std::exchange(other.m_process, nullptr)),
      m_pid(other.m_pid),
      m_outputPath(std::move(other.m_outputPath)) {
}

ChildProcess::~ChildProcess() {
    if (m_process) {
        Kill();
        CloseHandle(m_process);
        DeleteFileW(m_outputPath.c_str());
    }
}

std::optional<DWORD> ChildProcess::Wait(DWORD timeoutMs) {
    DWORD exitCode = 0;
    if (WaitForSingleObject(m_process, timeoutMs) != WAIT_OBJECT_0 || !GetExitCodeProcess(m_process, &exitCode)) {
        return std::nullopt;
    }
    return exitCode;
}

void ChildProcess::Kill() {
    TerminateProcess(m_process, kKilledExitCode);
    WaitForSingleObject(m_process, kPatienceMs);
}

std::string ChildProcess::Output() const {
    std::string text;
    const HANDLE file =
        CreateFileW(m_outputPath.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return text;
    }
    char block[4096];
    DWORD bytes = 0;
    while (ReadFile(file, block, sizeof block, &bytes, nullptr) && bytes != 0) {
        text.append(block, bytes);
    }
    CloseHandle(file);
    std::erase(text, '\r');
    return text;
}

bool ChildProcess::WaitForOutput(std::string_view text, DWORD timeoutMs) const {
    return WaitUntil([&] { return Output().find(text) != std::string::npos; }, timeoutMs, 10);
}

RoleRegistration::RoleRegistration(const char* name, Role role) : m_name(name), m_role(role), m_next(g_firstRole) {
    g_firstRole = this;
}

ChildProcess StartRole(const std::string& name, const Arguments& arguments) {
    Arguments all{std::wstring(kRoleOption) + std::wstring(name.begin(), name.end())};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return ChildProcess(OwnProgram(), all);
}

std::optional<int> RunRole(const Arguments& commandLine) {
    if (commandLine.empty() || !commandLine.front().starts_with(kRoleOption)) {
        return std::nullopt;
    }
    const std::wstring name = commandLine.front().substr(kRoleOption.size());
    for (const RoleRegistration* role = g_firstRole; role; role = role->m_next) {
        const std::string_view known = role->m_name;
        if (std::wstring(known.begin(), known.end()) == name) {
            return role->m_role(Arguments(commandLine.begin() + 1, commandLine.end()));
        }
    }
    std::fprintf(stderr, "this program has no role %ls\n", name.c_str());
    return kUsageExitCode;
}

}  // namespace ravlo::test
