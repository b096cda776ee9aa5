// What threads of a long run found wrong, for the thread that runs the test to report.
#pragma once

#include "soak/lock.h"
#include "support/trace_log.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ravlo::test {

/// The end of this process's trace log, at most `count` lines. Reads only the end of the files, however long they are.
inline std::string LastTraceLines(std::size_t count) {
    constexpr LONGLONG kBytes = 64 * 1024;
    std::string text = "the last lines of the log:\n";
    for (const std::wstring& path : TraceLogPaths()) {
        const HANDLE file =
            CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
            continue;
        }
        LARGE_INTEGER size{};
        GetFileSizeEx(file, &size);
        LARGE_INTEGER start{};
        start.QuadPart = std::max<LONGLONG>(size.QuadPart - kBytes, 0);
        SetFilePointerEx(file, start, nullptr, FILE_BEGIN);
        std::string end(static_cast<std::size_t>(kBytes), '\0');
        DWORD read = 0;
        ReadFile(file, end.data(), static_cast<DWORD>(end.size()), &read, nullptr);
        CloseHandle(file);
        end.resize(read);

        std::vector<std::string> own;
        std::size_t begin = 0;
        for (std::size_t stop = 0; (stop = end.find("\r\n", begin)) != std::string::npos; begin = stop + 2) {
            const std::string_view line = std::string_view(end).substr(begin, stop - begin);
            const std::optional<TraceLine> parsed = ParseTraceLine(line);
            if (parsed && parsed->pid == GetCurrentProcessId()) {
                own.emplace_back(line);
            }
        }
        for (std::size_t i = own.size() - std::min(count, own.size()); i < own.size(); ++i) {
            text += "  " + own[i] + "\n";
        }
    }
    return text;
}

/// The first few things that went wrong, each with what was going on at that moment. For several threads.
class Complaints {
public:
    /// What is going on from now on, in words that let the run be repeated.
    void SetScene(std::string scene) {
        const LockGuard lock(m_lock);
        m_scene = std::move(scene);
    }
    void Add(const std::string& what) {
        constexpr std::size_t kKept = 5;
        constexpr std::size_t kLines = 40;
        const LockGuard lock(m_lock);
        if (m_count++ < kKept) {
            m_text += m_scene + ": " + what + "\n";
        }
        if (m_count == 1) {
            m_text += LastTraceLines(kLines);
        }
    }
    std::size_t Count() const {
        const LockGuard lock(m_lock);
        return m_count;
    }
    std::string Text() const {
        const LockGuard lock(m_lock);
        return std::to_string(m_count) + " complaint(s), the first of them:\n" + m_text;
    }

private:
    mutable Lock m_lock;
    std::string m_scene = "before the first";
    std::string m_text;
    std::size_t m_count = 0;
};

}  // namespace ravlo::test
