// How much of a delay is the machine's own: what a bound on the camera's timing has to leave out.
#pragma once

#include "soak/lock.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace ravlo::test {

/// Milliseconds by the performance counter, from a point that stays the same in this process.
inline double NowMs() {
    LARGE_INTEGER frequency{};
    LARGE_INTEGER counter{};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&counter);
    return 1000.0 * static_cast<double>(counter.QuadPart) / static_cast<double>(frequency.QuadPart);
}

/// A thread that sleeps a few milliseconds at a time, then makes about as many system calls as a sample costs, the
/// writing of its lines in the log included, and notes by how much all that took too long. A machine that is too busy
/// for it is too busy for the camera as well, and a delay of that size shows no defect.
class StallMeter {
public:
    StallMeter()
        : m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          m_called(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          m_path(ScratchPath()),
          m_naps(kKept) {
        if (m_stop == nullptr || m_called == nullptr) {
            throw std::runtime_error("the stall meter has no events");
        }
        m_thread = std::thread([this] { Run(); });
    }
    ~StallMeter() {
        SetEvent(m_stop);
        m_thread.join();
        CloseHandle(m_called);
        CloseHandle(m_stop);
        DeleteFileW(m_path.c_str());
    }
    StallMeter(const StallMeter&) = delete;
    StallMeter& operator=(const StallMeter&) = delete;

    /// The longest delay (ms) of a nap between two moments of NowMs, at most kKept naps ago. One that is still
    /// going on counts with what it has lasted so far.
    double WorstBetween(double begin, double end) const {
        const LockGuard lock(m_lock);
        double worst = std::max(0.0, end - m_asleepSince - kNapMs);
        for (const Nap& nap : m_naps) {
            if (nap.end >= begin && nap.begin <= end) {
                worst = std::max(worst, nap.lateness);
            }
        }
        return worst;
    }
    /// What the machine may have added in that time to work that takes `handOvers` turns of several threads.
    double AllowanceBetween(double begin, double end, unsigned handOvers) const {
        return WorstBetween(begin, end) * handOvers;
    }
    /// The longest delay since construction.
    double Worst() const {
        const LockGuard lock(m_lock);
        return m_worst;
    }

private:
    static constexpr DWORD kNapMs = 8;
    static constexpr int kCalls = 24;
    static constexpr int kLines = 3;
    static constexpr std::size_t kKept = 1024;

    struct Nap {
        double begin = 0;
        double end = -1;
        double lateness = 0;
    };

    static std::wstring ScratchPath() {
        wchar_t directory[MAX_PATH];
        if (GetTempPathW(MAX_PATH, directory) == 0) {
            throw std::runtime_error("GetTempPathW failed");
        }
        return std::wstring(directory) + L"ravlo-stalls-" + std::to_wstring(GetCurrentProcessId()) + L".txt";
    }
    void Work() const {
        for (int call = 0; call < kCalls; ++call) {
            SetEvent(m_called);
        }
        for (int line = 0; line < kLines; ++line) {
            const HANDLE file = CreateFileW(m_path.c_str(), GENERIC_WRITE, FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                                            FILE_ATTRIBUTE_NORMAL, nullptr);
            const char text[80]{};
            DWORD written = 0;
            WriteFile(file, text, sizeof text, &written, nullptr);
            CloseHandle(file);
        }
    }
    void Run() {
        for (std::size_t next = 0;; next = (next + 1) % kKept) {
            const double begin = NowMs();
            {
                const LockGuard lock(m_lock);
                m_asleepSince = begin;
            }
            if (WaitForSingleObject(m_stop, kNapMs) != WAIT_TIMEOUT) {
                return;
            }
            Work();
            const double end = NowMs();
            const LockGuard lock(m_lock);
            m_naps[next] = {begin, end, std::max(0.0, end - begin - kNapMs)};
            m_worst = std::max(m_worst, m_naps[next].lateness);
        }
    }

    HANDLE m_stop;
    HANDLE m_called;
    std::wstring m_path;
    mutable Lock m_lock;
    std::vector<Nap> m_naps;
    double m_asleepSince = NowMs();
    double m_worst = 0;
    std::thread m_thread;
};

}  // namespace ravlo::test
