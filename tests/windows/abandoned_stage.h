// A camera whose threads stand still inside calls to the platform, for the tests of what its teardown then leaves
// alone. What is abandoned stays for the life of the process: these stages live in child processes.
#pragma once

#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"
#include "windows/fenced_heap.h"

#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ravlo::test {

inline constexpr DWORD kJoinMs = 2000;
inline constexpr DWORD kShortJoinMs = 150;
inline constexpr DWORD kGatePeriodMs = 500;
inline constexpr char kReaderExit[] = "PIPE reader thread exiting";
inline constexpr char kGateExit[] =
    "GATE thread exiting - no further demand records are published, so the bridge's lease expires and it goes back to "
    "decoding every frame";
inline constexpr char kReentered[] =
    "FAIL PIPE teardown re-entered after the reader thread was ABANDONED - the pipe, the stop event, the critical sections "
    "and this object are left ALONE. This is the second call that used to free them all under a live thread";
inline constexpr char kNotDestroyed[] =
    "FAIL PIPE the last reference to this stream went away while the reader thread was still running (the join timed out). "
    "THE OBJECT IS NOT DESTROYED: no destructor runs, the frame slots and the pipe are not freed, and this DLL is not "
    "unloaded - the thread is still executing code inside it. Everything is reclaimed when the Frame Server restarts";

inline std::string AbandonedLine(const std::string& who, const std::string& waitResult) {
    return "FAIL PIPE " + who + " did not exit within 2000 ms (wait=" + waitResult +
           ") - the thread handles, the pipe handle, the stop event, both critical sections, the frame slots AND THIS WHOLE "
           "OBJECT are LEAKED ON PURPOSE rather than freed under a live thread. The pipe name stays held, so the next media "
           "source instance cannot create it and the camera will serve the test pattern until the Frame Server restarts";
}

/// One camera of which the reader, the gate thread or both stop inside the first call of a chosen function, until
/// LetGo. Watches what is closed, freed and deleted. Make it with new and leave it: a thread may be in its hooks to the
/// end of the process.
class AbandonedStage {
public:
    /// Names of imported functions; empty for a thread that runs on. "WriteFile" means a line of the log for the
    /// reader, and a demand record for the gate thread. Throws when the threads do not come to their places.
    AbandonedStage(std::string readerPlace, std::string gatePlace, const std::wstring& geometry = L"64x36@200/1")
        : m_readerPlace(std::move(readerPlace)), m_gatePlace(std::move(gatePlace)), m_module(Prepared()) {
        m_module.KeepLoaded();
        camera.emplace(m_module, CameraOptions{.geometry = geometry, .pipeName = name});
        camera->Start();
        const int wanted = (m_readerPlace.empty() ? 0 : 1) + (m_gatePlace.empty() ? 0 : 1);
        const bool needsBytes = m_readerPlace == "GetOverlappedResult";
        const bool stopped = WaitUntil([&] {
            if (!m_connected && producer.Connect(name, 0)) {
                m_connected = true;
            }
            // A read that finds its bytes there need not ask for a result.
            if (m_connected && needsBytes && !m_fed && m_readIssued) {
                m_fed = producer.SendHeader(HeaderFor(64, 36, 1));
            }
            if (!m_gateConnected && m_gatePlace == "WriteFile") {
                m_gateConnected = gateReader.Connect(name, 0);
            }
            // A reader that runs on gets as far as a pipe, so that every stage of a place is alike.
            return m_stuck.load() == wanted && (!m_readerPlace.empty() || log.Contains("PIPE created "));
        });
        if (!stopped) {
            throw std::runtime_error("the threads do not come to where they should stand still:\n" + log.Text());
        }
    }
    AbandonedStage(const AbandonedStage&) = delete;
    AbandonedStage& operator=(const AbandonedStage&) = delete;

    /// Lets the stopped threads go on.
    void LetGo() { SetEvent(m_release.Get()); }
    /// Waits until a thread of the stream has ended, and tells with which code; nothing when it runs on.
    std::optional<DWORD> EndOf(std::size_t thread) const {
        DWORD code = 0;
        const HANDLE handle = m_threads.at(thread);
        if (WaitForSingleObject(handle, kPatienceMs) != WAIT_OBJECT_0 || !GetExitCodeThread(handle, &code)) {
            return std::nullopt;
        }
        return code;
    }
    bool IsStreamThread(DWORD id) const { return id == m_threadIds[0] || id == m_threadIds[1]; }

    /// Whether a pipe of that name exists, so that nobody else can make it.
    bool NameIsHeld() const {
        PipeEndpoint other;
        return !other.Create(name.c_str(), CurrentUserSid()) && other.Stage() == CreateStage::Pipe;
    }

    /// From here on, what this thread gives up is noted.
    void Note() {
        const detail::SrwGuard guard(m_lock);
        m_closed = 0;
        m_deleted.clear();
        m_disconnected = 0;
        m_noting = GetCurrentThreadId();
    }
    /// How many handles of the stream this thread closed since Note.
    int ClosedOfTheStream() const { return m_closed.load(); }
    std::size_t Made() const {
        const detail::SrwGuard guard(m_lock);
        return m_made.size();
    }
    /// Every handle that the stream made is open.
    bool AllAreOpen() const {
        const detail::SrwGuard guard(m_lock);
        return std::all_of(m_made.begin(), m_made.end(), [](HANDLE handle) {
            DWORD flags = 0;
            return GetHandleInformation(handle, &flags) != FALSE;
        });
    }
    /// Critical sections inside `block` that were deleted since Note.
    std::size_t DeletedSections(const FencedHeap::Block& block) const {
        const detail::SrwGuard guard(m_lock);
        return static_cast<std::size_t>(std::count_if(m_deleted.begin(), m_deleted.end(), [&](std::uintptr_t section) {
            return section >= block.address && section < block.address + block.bytes;
        }));
    }
    /// Deleted sections, wherever they lie, since Note.
    std::size_t AllDeletedSections() const {
        const detail::SrwGuard guard(m_lock);
        return m_deleted.size();
    }
    int Disconnected() const { return m_disconnected.load(); }

    const ModuleUnderTest& Module() const { return m_module; }

private:
    template <class Hook>
    void Stop(Hook& hook, const char* function) {
        hook.Replace([this, function](auto... arguments) {
            PassBy(function);
            return Hook::CallOriginal(arguments...);
        });
    }

    /// Keeps the calling thread when this is its place.
    void PassBy(std::string_view function) {
        const DWORD id = GetCurrentThreadId();
        const bool reader = id == m_threadIds[0] && function == m_readerPlace;
        const bool gate = id == m_threadIds[1] && function == m_gatePlace;
        const DWORD error = GetLastError();
        if ((reader && !m_readerStopped.exchange(true)) || (gate && !m_gateStopped.exchange(true))) {
            ++m_stuck;
            WaitForSingleObject(m_release.Get(), INFINITE);
        }
        SetLastError(error);
    }

    HANDLE Noted(HANDLE handle) {
        if (handle != nullptr && handle != INVALID_HANDLE_VALUE) {
            const detail::SrwGuard guard(m_lock);
            m_made.push_back(handle);
        }
        return handle;
    }

    /// The hooks take effect with the load.
    const LoadHooks& Prepared() {
        FencedHeap::Watch(m_loading);
        Stop(m_lookups, "LookupAccountSidW");
        Stop(m_keys, "RegOpenKeyExW");
        Stop(m_connects, "ConnectNamedPipe");
        m_reads.Replace([this](HANDLE file, LPVOID data, DWORD bytes, LPDWORD read, LPOVERLAPPED operation) {
            PassBy("ReadFile");
            const BOOL done = Reads::CallOriginal(file, data, bytes, read, operation);
            m_readIssued = true;
            return done;
        });
        Stop(m_results, "GetOverlappedResult");
        Stop(m_files, "CreateFileW");
        m_waits.Replace([this](HANDLE object, DWORD timeout) {
            PassBy("WaitForSingleObject");
            return Waits::CallOriginal(object, timeout == kGatePeriodMs ? 20 : timeout);
        });
        m_writes.Replace([this](HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written, LPOVERLAPPED operation) {
            const bool record = operation != nullptr;
            if (record == (GetCurrentThreadId() == m_threadIds[1])) {
                PassBy("WriteFile");
            }
            return Writes::CallOriginal(file, data, bytes, written, operation);
        });
        m_joins.Replace([this](DWORD count, const HANDLE* handles, BOOL all, DWORD timeout) {
            PassBy("WaitForMultipleObjects");
            return timeout == kJoinMs ? join(count, handles) : Joins::CallOriginal(count, handles, all, timeout);
        });
        m_pipes.Replace([this](LPCWSTR pipe, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD out, DWORD in,
                               DWORD timeout, LPSECURITY_ATTRIBUTES attributes) {
            PassBy("CreateNamedPipeW");
            return Noted(Pipes::CallOriginal(pipe, openMode, pipeMode, instances, out, in, timeout, attributes));
        });
        m_events.Replace([this](LPSECURITY_ATTRIBUTES attributes, BOOL manual, BOOL set, LPCWSTR text) {
            PassBy("CreateEventW");
            return Noted(Events::CallOriginal(attributes, manual, set, text));
        });
        m_timers.Replace([this](LPSECURITY_ATTRIBUTES attributes, LPCWSTR text, DWORD flags, DWORD access) {
            return Noted(Timers::CallOriginal(attributes, text, flags, access));
        });
        m_starts.Replace([this](LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE begin,
                                LPVOID parameter, DWORD flags, LPDWORD) {
            DWORD id = 0;
            const HANDLE thread =
                Starts::CallOriginal(attributes, stack, begin, parameter, flags | CREATE_SUSPENDED, &id);
            if (m_started < m_threads.size()) {
                // Known before its first call, and by a handle that the module cannot close.
                DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), &m_threads[m_started], 0, FALSE,
                                DUPLICATE_SAME_ACCESS);
                m_threadIds[m_started++] = id;
                Noted(thread);
            }
            ResumeThread(thread);
            return thread;
        });
        m_closes.Replace([this](HANDLE handle) {
            const detail::SrwGuard guard(m_lock);
            const auto made = std::find(m_made.begin(), m_made.end(), handle);
            if (made != m_made.end() && GetCurrentThreadId() == m_noting.load()) {
                ++m_closed;
            } else if (made != m_made.end()) {
                m_made.erase(made);  // what a thread makes for a step of its own
            }
            return Closes::CallOriginal(handle);
        });
        m_deletes.Replace([this](LPCRITICAL_SECTION section) {
            if (GetCurrentThreadId() == m_noting.load()) {
                const detail::SrwGuard guard(m_lock);
                m_deleted.push_back(reinterpret_cast<std::uintptr_t>(section));
            }
            Deletes::CallOriginal(section);
        });
        m_disconnects.Replace([this](HANDLE pipe) {
            m_disconnected += GetCurrentThreadId() == m_noting.load() ? 1 : 0;
            return Disconnects::CallOriginal(pipe);
        });
        return m_loading;
    }

    using Lookups = RAVLO_HOOK(LookupAccountSidW);
    using KeyOpenings = RAVLO_HOOK(RegOpenKeyExW);
    using Listens = RAVLO_HOOK(ConnectNamedPipe);
    using Reads = RAVLO_HOOK(ReadFile);
    using Results = RAVLO_HOOK(GetOverlappedResult);
    using FileOpenings = RAVLO_HOOK(CreateFileW);
    using Waits = RAVLO_HOOK(WaitForSingleObject);
    using Writes = RAVLO_HOOK(WriteFile);
    using Joins = RAVLO_HOOK(WaitForMultipleObjects);
    using Pipes = RAVLO_HOOK(CreateNamedPipeW);
    using Events = RAVLO_HOOK(CreateEventW);
    using Timers = RAVLO_HOOK(CreateWaitableTimerExW);
    using Starts = RAVLO_HOOK(CreateThread);
    using Closes = RAVLO_HOOK(CloseHandle);
    using Deletes = RAVLO_HOOK(DeleteCriticalSection);
    using Disconnects = RAVLO_HOOK(DisconnectNamedPipe);

    PrivateLocalMachine m_localMachine;
    AnchorGuard m_anchor{CurrentUserSid()};
    const std::string m_readerPlace;
    const std::string m_gatePlace;
    UniqueObject m_release = MakeEvent();
    std::atomic<int> m_stuck{0};
    std::atomic<bool> m_readerStopped{false};
    std::atomic<bool> m_gateStopped{false};
    std::atomic<bool> m_readIssued{false};
    std::array<std::atomic<DWORD>, 2> m_threadIds{};  ///< reader, gate
    std::array<HANDLE, 2> m_threads{};
    std::size_t m_started = 0;
    mutable SRWLOCK m_lock = SRWLOCK_INIT;
    std::vector<HANDLE> m_made;
    std::atomic<int> m_closed{0};
    std::vector<std::uintptr_t> m_deleted;
    std::atomic<DWORD> m_noting{0};
    std::atomic<int> m_disconnected{0};
    bool m_connected = false;
    bool m_fed = false;
    bool m_gateConnected = false;

    LoadHooks m_loading;
    Lookups m_lookups{m_loading};
    KeyOpenings m_keys{m_loading};
    Listens m_connects{m_loading};
    Reads m_reads{m_loading};
    Results m_results{m_loading};
    FileOpenings m_files{m_loading};
    Waits m_waits{m_loading};
    Writes m_writes{m_loading};
    Joins m_joins{m_loading};
    Pipes m_pipes{m_loading};
    Events m_events{m_loading};
    Timers m_timers{m_loading};
    Starts m_starts{m_loading};
    Closes m_closes{m_loading};
    Deletes m_deletes{m_loading};
    Disconnects m_disconnects{m_loading};

public:
    /// Stands in for the wait of a teardown for its threads; what it returns is that wait's result. Set before the
    /// teardown. As it is, nobody sits out the bound, which is checked where it is asked for.
    std::function<DWORD(DWORD count, const HANDLE* threads)> join = [](DWORD count, const HANDLE* threads) {
        return WaitForMultipleObjects(count, threads, TRUE, kShortJoinMs);
    };
    TraceLog log;
    const std::wstring name = UniquePipeName();
    PipeClient producer;
    GateClient gateReader;

private:
    ModuleUnderTest m_module;

public:
    std::optional<Camera> camera;
};

}  // namespace ravlo::test
