#include "support/watchdog.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace ravlo::test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr UINT kHungExitCode = 3;

class Watchdog {
public:
    void Arm(const std::string& test, std::chrono::seconds timeout) {
        const std::lock_guard lock(m_mutex);
        m_test = test;
        m_timeout = timeout;
        m_end = Clock::now() + timeout;
        m_changed.notify_one();
    }
    void Extend(std::chrono::seconds timeout) {
        const std::lock_guard lock(m_mutex);
        m_timeout = timeout;
        m_end = Clock::now() + timeout;
        m_changed.notify_one();
    }
    void Disarm() {
        const std::lock_guard lock(m_mutex);
        m_end.reset();
        m_changed.notify_one();
    }
    [[noreturn]] void Run() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            if (!m_end) {
                m_changed.wait(lock);
            } else if (m_changed.wait_until(lock, *m_end); m_end && Clock::now() >= *m_end) {
                Bite();
            }
        }
    }

private:
    /// No orderly exit: whatever hangs may hold the loader's lock or the C runtime's.
    void Bite() const {
        const std::string text = "\n[  HUNG    ] " + m_test + " took longer than " + std::to_string(m_timeout.count()) +
                                 " s; ending the test program\n";
        DWORD written = 0;
        WriteFile(GetStdHandle(STD_ERROR_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        TerminateProcess(GetCurrentProcess(), kHungExitCode);
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_test;
    std::chrono::seconds m_timeout{};
    std::optional<Clock::time_point> m_end;
};

// Never destroyed: its thread runs to the end of the process.
Watchdog& TheWatchdog() {
    static Watchdog* const watchdog = new Watchdog;
    return *watchdog;
}

class Listener : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo& test) override {
        TheWatchdog().Arm(std::string(test.test_suite_name()) + "." + test.name(), kTestTimeout);
    }
    void OnTestEnd(const ::testing::TestInfo&) override { TheWatchdog().Disarm(); }
};

}  // namespace

void SetTestTimeout(std::chrono::seconds timeout) {
    TheWatchdog().Extend(timeout);
}

void InstallWatchdog() {
    std::thread([] { TheWatchdog().Run(); }).detach();
    ::testing::UnitTest::GetInstance()->listeners().Append(new Listener);
}

}  // namespace ravlo::test
