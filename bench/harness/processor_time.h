// Processor time of this process in steps finer than a frame of a camera costs.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace ravlo::bench {

/// FILETIME as a count of 100 ns.
inline std::uint64_t FileTimeTicks(const FILETIME& time) noexcept {
    return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

/// The processor time of this process's threads. Where Wine runs on Linux the kernel's account of
/// each thread is read, exact to microseconds; Wine itself offers no more than GetProcessTimes in steps of 10 ms, and
/// a camera of 640x360 at 30 Hz does not use that much in a second. Elsewhere it is GetProcessTimes (of all threads).
/// Threads must not end between two looks that are compared.
class ProcessorTime {
public:
    enum class Threads {
        All,
        AllButFirst,  ///< the first one measures; not where the coarse clock must do
    };

    /// `mark` is a word of this process's command line that no other process has in its own.
    ProcessorTime(const std::string& mark, Threads threads) : m_threads(threads) {
        WIN32_FIND_DATAW found;
        const HANDLE search = FindFirstFileW(L"Z:\\proc\\*", &found);
        if (search == INVALID_HANDLE_VALUE) {
            return;
        }
        do {
            const std::wstring name = found.cFileName;
            if (IsNumber(name) && FileText(L"Z:\\proc\\" + name + L"\\cmdline").find(mark) != std::string::npos) {
                m_process = name;
            }
        } while (FindNextFileW(search, &found));
        FindClose(search);
    }

    /// False when the figures come in steps of a clock tick.
    bool IsExact() const noexcept { return !m_process.empty(); }

    /// Microseconds used so far.
    double Microseconds() const { return IsExact() ? KernelMicroseconds() : CoarseMicroseconds(); }

    /// The same by GetProcessTimes: all threads, in steps of a clock tick.
    static double CoarseMicroseconds() noexcept {
        FILETIME created;
        FILETIME ended;
        FILETIME kernel;
        FILETIME user;
        GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
        return static_cast<double>(FileTimeTicks(kernel) + FileTimeTicks(user)) / 10.0;
    }

    /// What the server of the Wine prefix has used so far: it opens files on behalf of its clients, so the process
    /// that such a path calls "self" is the server. 0 where there is none.
    static double ServerMicroseconds() { return ScheduledMicroseconds(L"Z:\\proc\\self\\schedstat"); }

private:
    static bool IsNumber(std::wstring_view text) noexcept {
        return !text.empty() && text.find_first_not_of(L"0123456789") == std::wstring_view::npos;
    }

    /// Files of the kernel have no length: read until nothing comes.
    static std::string FileText(const std::wstring& path) {
        std::string text;
        const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
            return text;
        }
        char block[512];
        DWORD bytes = 0;
        while (ReadFile(file, block, sizeof block, &bytes, nullptr) && bytes != 0) {
            text.append(block, bytes);
        }
        CloseHandle(file);
        return text;
    }

    /// The first number of a schedstat file: nanoseconds on a processor.
    static double ScheduledMicroseconds(const std::wstring& path) {
        const std::string text = FileText(path);
        return text.empty() ? 0 : std::stod(text) / 1000.0;
    }

    double KernelMicroseconds() const {
        const std::wstring tasks = L"Z:\\proc\\" + m_process + L"\\task\\";
        double sum = 0;
        WIN32_FIND_DATAW found;
        const HANDLE search = FindFirstFileW((tasks + L"*").c_str(), &found);
        if (search == INVALID_HANDLE_VALUE) {
            return sum;
        }
        do {
            const std::wstring name = found.cFileName;
            if (IsNumber(name) && (m_threads == Threads::All || name != m_process)) {
                sum += ScheduledMicroseconds(tasks + name + L"\\schedstat");
            }
        } while (FindNextFileW(search, &found));
        FindClose(search);
        return sum;
    }

    Threads m_threads;
    std::wstring m_process;  ///< the kernel's number of this process; empty when it is not known
};

}  // namespace ravlo::bench
