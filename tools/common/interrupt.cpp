#include "common/interrupt.h"

#include <atomic>
#include <stdexcept>

namespace ravlo {
namespace {

/// How long a closing console is held back so that the main thread can still write its summary.
constexpr DWORD kFarewellMs = 2000;

/// Never closed: the system may run the handler on a thread of its own at any moment, even while the program ends.
std::atomic<HANDLE> g_raised{nullptr};

BOOL WINAPI OnConsoleEvent(DWORD kind) {
    const bool wasRaised = WaitForSingleObject(g_raised.load(), 0) == WAIT_OBJECT_0;
    SetEvent(g_raised.load());
    if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT) {
        Sleep(kFarewellMs);  // the process is ended as soon as this returns
        return TRUE;
    }
    return wasRaised ? FALSE : TRUE;  // FALSE leaves it to the system's own handler, which ends the process at once
}

}  // namespace

Interrupt::Interrupt() {
    if (g_raised.load() == nullptr) {
        g_raised.store(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    if (g_raised.load() == nullptr || !SetConsoleCtrlHandler(OnConsoleEvent, TRUE)) {
        throw std::runtime_error("the system refused a handler for Ctrl+C");
    }
    // A parent may have started this process with Ctrl+C ignored; that setting is inherited.
    SetConsoleCtrlHandler(nullptr, FALSE);
}

Interrupt::~Interrupt() {
    SetConsoleCtrlHandler(OnConsoleEvent, FALSE);
}

HANDLE Interrupt::Event() const noexcept {
    return g_raised.load();
}

bool Interrupt::WaitForMs(DWORD milliseconds) const noexcept {
    return WaitForSingleObject(g_raised.load(), milliseconds) == WAIT_OBJECT_0;
}

}  // namespace ravlo
