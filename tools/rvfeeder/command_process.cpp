#include "rvfeeder/command_process.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <utility>
#include <vector>

#include "common/wide_text.h"
#include "pipe/overlapped_io.h"

namespace ravlo {
namespace {

constexpr DWORD kPipeBytes = 1 << 20;
constexpr std::size_t kMaxReadBytes = std::size_t{1} << 24;
constexpr UINT kEndedExitCode = 1;

[[noreturn]] void Fail(const char* what) {
    throw InputError(std::string("cannot start the command of --on-demand: ") + what + ": " +
                     SystemErrorText(GetLastError()));
}

/// The reading end of the command's output. Overlapped, so that closing it need not wait for a command that is silent.
class CommandOutput final : public ByteSource {
public:
    CommandOutput(UniqueFile pipe, std::shared_ptr<UniqueObject> closed)
        : m_pipe(std::move(pipe)), m_closed(std::move(closed)), m_read(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

    bool IsValid() const noexcept { return m_pipe.IsValid() && m_read.IsValid(); }

    std::size_t Read(std::uint8_t* buffer, std::size_t length) override {
        OVERLAPPED operation{};
        operation.hEvent = m_read.Get();
        DWORD got = 0;
        const auto wanted = static_cast<DWORD>(std::min(length, kMaxReadBytes));
        if (!ReadFile(m_pipe.Get(), buffer, wanted, nullptr, &operation) && GetLastError() != ERROR_IO_PENDING) {
            return End(GetLastError());
        }
        const std::array<HANDLE, 2> handles{m_closed->Get(), m_read.Get()};
        if (WaitForMultipleObjects(2, handles.data(), FALSE, INFINITE) == WAIT_OBJECT_0) {
            CancelAndWait(m_pipe.Get(), operation);
            return 0;
        }
        return GetOverlappedResult(m_pipe.Get(), &operation, &got, TRUE) ? got : End(GetLastError());
    }

private:
    static std::size_t End(DWORD error) {
        if (error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED) {
            return 0;
        }
        throw InputError("cannot read the output of the command: " + SystemErrorText(error));
    }

    UniqueFile m_pipe;
    std::shared_ptr<UniqueObject> m_closed;
    UniqueObject m_read;
};

struct PipeEnds {
    UniqueFile reading;
    UniqueFile writing;
};

/// An anonymous pipe cannot be read overlapped, so this one has a name, which nobody else gets to use: it has a single
/// instance, and both ends are open when this returns.
PipeEnds MakePipe(SECURITY_ATTRIBUTES& inheritable) {
    static std::atomic<unsigned> counter{0};
    const std::wstring name =
        L"\\\\.\\pipe\\rvfeeder-command." + std::to_wstring(GetCurrentProcessId()) + L"." + std::to_wstring(counter++);
    PipeEnds ends;
    ends.reading.Reset(CreateNamedPipeW(
        name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
        PIPE_TYPE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1, kPipeBytes, kPipeBytes, 0, nullptr));
    if (ends.reading) {
        ends.writing.Reset(CreateFileW(name.c_str(), GENERIC_WRITE, 0, &inheritable, OPEN_EXISTING,
                                       SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, nullptr));
    }
    if (!ends.writing) {
        Fail("no pipe for its output");
    }
    return ends;
}

UniqueObject MakeJob() {
    UniqueObject job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!job || !SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof limits)) {
        Fail("no job object");
    }
    return job;
}

UniqueFile OpenNull(SECURITY_ATTRIBUTES& inheritable) {
    return UniqueFile(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  &inheritable, OPEN_EXISTING, 0, nullptr));
}

/// A copy of this program's standard error that a child may inherit; not valid when there is none.
UniqueFile CopyOfStandardError() {
    HANDLE copy = nullptr;
    const HANDLE own = GetStdHandle(STD_ERROR_HANDLE);
    if (own == nullptr || own == INVALID_HANDLE_VALUE ||
        !DuplicateHandle(GetCurrentProcess(), own, GetCurrentProcess(), &copy, 0, TRUE, DUPLICATE_SAME_ACCESS)) {
        return UniqueFile();
    }
    return UniqueFile(copy);
}

std::wstring CommandPrompt() {
    std::array<wchar_t, MAX_PATH> folder{};
    const UINT length = GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    if (length == 0 || length >= folder.size()) {
        Fail("no system folder");
    }
    return std::wstring(folder.data(), length) + L"\\cmd.exe";
}

/// The list of the only handles that a child inherits: another child must not keep this one's pipe open.
class InheritedHandles {
public:
    explicit InheritedHandles(std::vector<HANDLE> handles) : m_handles(std::move(handles)) {
        SIZE_T bytes = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &bytes);
        m_memory.resize(bytes);
        if (!InitializeProcThreadAttributeList(List(), 1, 0, &bytes)) {
            Fail("no list of handles");
        }
        if (!UpdateProcThreadAttribute(List(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_handles.data(),
                                       m_handles.size() * sizeof(HANDLE), nullptr, nullptr)) {
            DeleteProcThreadAttributeList(List());
            Fail("no list of handles");
        }
    }
    InheritedHandles(const InheritedHandles&) = delete;
    InheritedHandles& operator=(const InheritedHandles&) = delete;
    ~InheritedHandles() { DeleteProcThreadAttributeList(List()); }

    LPPROC_THREAD_ATTRIBUTE_LIST List() noexcept {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_memory.data());
    }

private:
    std::vector<HANDLE> m_handles;
    std::vector<std::byte> m_memory;
};

}  // namespace

CommandProcess::CommandProcess(const std::string& command)
    : m_closed(std::make_shared<UniqueObject>(CreateEventW(nullptr, TRUE, FALSE, nullptr))), m_job(MakeJob()) {
    SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    PipeEnds ends = MakePipe(inheritable);
    auto output = std::make_unique<CommandOutput>(std::move(ends.reading), m_closed);
    const UniqueFile null = OpenNull(inheritable);
    const UniqueFile error = CopyOfStandardError();
    if (!*m_closed || !output->IsValid() || !null) {
        Fail("no handles for it");
    }
    std::vector<HANDLE> inherited{null.Get(), ends.writing.Get()};
    if (error) {
        inherited.push_back(error.Get());
    }
    InheritedHandles handles(std::move(inherited));
    STARTUPINFOEXW startup{};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = null.Get();
    startup.StartupInfo.hStdOutput = ends.writing.Get();
    startup.StartupInfo.hStdError = error ? error.Get() : null.Get();
    startup.lpAttributeList = handles.List();
    const std::wstring prompt = CommandPrompt();
    // With /s the prompt takes away just the outer quotes, so the user's own ones arrive as they were typed; with /d it
    // runs nothing else first.
    std::wstring line = L"\"" + prompt + L"\" /d /s /c \"" + ToWide(command) + L"\"";
    PROCESS_INFORMATION process{};
    // A group of its own: Ctrl+C is for this program, which then ends the command in order. Suspended until it is in
    // the job, so that none of its children can be missed.
    // Without a console to share, the command prompt would open a window of its own.
    const DWORD flags = EXTENDED_STARTUPINFO_PRESENT | CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP |
                        (GetConsoleWindow() == nullptr ? CREATE_NO_WINDOW : 0);
    if (!CreateProcessW(prompt.c_str(), line.data(), nullptr, nullptr, TRUE, flags, nullptr, nullptr,
                        &startup.StartupInfo, &process)) {
        Fail("no process");
    }
    m_process.Reset(process.hProcess);
    const UniqueObject thread(process.hThread);
    if (!AssignProcessToJobObject(m_job.Get(), m_process.Get())) {
        const DWORD code = GetLastError();
        TerminateProcess(m_process.Get(), kEndedExitCode);
        SetLastError(code);
        Fail("it cannot be put into a job");
    }
    ResumeThread(thread.Get());
    m_output = std::move(output);
}

CommandProcess::~CommandProcess() {
    Close();
    TerminateJobObject(m_job.Get(), kEndedExitCode);
}

std::optional<std::uint32_t> CommandProcess::WaitForExit(DWORD timeoutMs) const noexcept {
    DWORD code = 0;
    if (WaitForSingleObject(m_process.Get(), timeoutMs) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(m_process.Get(), &code)) {
        return std::nullopt;
    }
    return code;
}

}  // namespace ravlo
