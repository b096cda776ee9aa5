#include "rvclient/interruptible.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <exception>
#include <memory>
#include <new>
#include <thread>
#include <utility>

#include "common/messages.h"
#include "platform/unique_handle.h"
#include "rvclient/client_error.h"

namespace ravlo {
namespace {

/// What the work gets to finish in order once the program is to end; the user waits for it.
constexpr DWORD kFarewellMs = 700;

/// Work on its way, shared by the thread that does it and the one that waits.
struct Task {
    explicit Task(std::function<ExitCode()> toDo)
        : work(std::move(toDo)), finished(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
        if (!finished) {
            throw ProgramError(ExitCode::Failure, "the system refused an event");
        }
    }

    void Run() noexcept {
        try {
            code.store(work());
        } catch (const ProgramError& error) {
            Say(error.what());
            code.store(error.Code());
        } catch (const std::bad_alloc&) {
            Say("out of memory");
        } catch (const std::exception& error) {
            Say(error.what());
        }
        SetEvent(finished.Get());
    }

    const std::function<ExitCode()> work;
    const UniqueObject finished;
    std::atomic<ExitCode> code{ExitCode::Failure};
};

}  // namespace

ExitCode RunInterruptibly(std::function<ExitCode()> work, const Interrupt& interrupt) {
    const auto task = std::make_shared<Task>(std::move(work));
    std::thread([task] { task->Run(); }).detach();
    const std::array<HANDLE, 2> handles{task->finished.Get(), interrupt.Event()};
    if (WaitForMultipleObjects(2, handles.data(), FALSE, INFINITE) == WAIT_OBJECT_0) {
        return task->code.load();
    }
    if (WaitForSingleObject(task->finished.Get(), kFarewellMs) != WAIT_OBJECT_0) {
        Say("interrupted while the system was still at work on it; rvclient list shows which cameras there are");
        return ExitCode::Interrupted;
    }
    const ExitCode code = task->code.load();
    return code == ExitCode::Ok ? ExitCode::Interrupted : code;
}

}  // namespace ravlo
