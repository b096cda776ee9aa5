// Expanding whole lines of the trace log, prefix and message, a thousand in a run. Floor: snprintf with the same
// formats and arguments into a buffer of the same size; three calls a line on either side. Only conversions that both
// know the same way are used, and that the lines are equal is checked before anything is timed. The packing of the
// arguments is timed too, since every caller of either side pays it. snprintf is what the program links: that of the C
// library natively, and in programs for Windows the one that mingw-w64 links statically in place of the system's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "kernels/take_turns.h"
#include "trace/format_string.h"
#include "trace/line_layout.h"

namespace ravlo::bench {

/// A line that snprintf writes, piece by piece.
class PrintedLine {
public:
    template <class... Arguments>
    void Write(TraceFormat<std::type_identity_t<Arguments>...> format, Arguments... arguments) {
        m_length += std::snprintf(m_text + m_length, sizeof m_text - static_cast<std::size_t>(m_length), format.Text(),
                                  arguments...);
    }

    const char* Text() const noexcept { return m_text; }

private:
    char m_text[kLineCapacity];
    int m_length = 0;
};

/// The same line by the product's formatter.
class FormattedLine {
public:
    template <class... Arguments>
    void Write(TraceFormat<std::type_identity_t<Arguments>...> format, Arguments... arguments) {
        const TraceSlot slots[] = {ToTraceSlot(arguments)..., 0};
        RvFormat(m_line, format.Text(), slots, sizeof...(arguments));
    }

    const char* Text() const noexcept { return m_line.text; }

private:
    char m_text[kLineCapacity];
    RvLineBuffer m_line{m_text, kLineCapacity};
};

class FormattingKernel {
public:
    FormattingKernel() {
        for (std::uint32_t i = 0; i < kLines; ++i) {
            PrintedLine printed;
            FormattedLine formatted;
            WriteLine(printed, i);
            WriteLine(formatted, i);
            if (std::strcmp(printed.Text(), formatted.Text()) != 0) {
                throw std::runtime_error(std::string("the formatter wrote \"") + formatted.Text() +
                                         "\" where snprintf wrote \"" + printed.Text() + "\"");
            }
        }
    }

    void Prepare(Side) {}
    void Floor() { WriteLines<PrintedLine>(); }
    void Product() { WriteLines<FormattedLine>(); }

private:
    static constexpr std::uint32_t kLines = 1000;
    static constexpr std::uint32_t kMessages = 10;

    template <class Line>
    static void WriteLines() {
        for (std::uint32_t i = 0; i < kLines; ++i) {
            Line line;
            WriteLine(line, i);
            UseMemory(line.Text());
        }
    }

    /// Line number `i` of a log: its numbers differ from line to line, small ones and large ones.
    template <class Line>
    static void WriteLine(Line& line, std::uint32_t i) {
        static constexpr const char* kWords[] = {"RET", "FAIL", "CALL", "WARN"};
        static constexpr const char* kLabels[] = {"STM.RequestSample", "SRC.Start", "SRC.GetEvent",
                                                  "STM.SetStreamState"};
        const std::uint32_t result = i % 4 == 0 ? 0 : 0xC00D36B4U + i;
        const std::uint64_t count = std::uint64_t{i} * i * i * i + i;

        line.Write("[%u:%u %s] ", 4000 + i % 32, 17000 + i, "svchost.exe");
        line.Write("%02u:%02u:%02u.%03u ", i / 60 % 24, i % 60, i * 7 % 60, i * 13 % 1000);
        switch (i % kMessages) {
            case 0:
            case 1:
                line.Write("%s %s hr=0x%08X", kWords[i % 4], kLabels[i / 4 % 4], result);
                break;
            case 2:
                line.Write("CALL SRC.GetEvent dwFlags=0x%08X", i % 2);
                break;
            case 3:
                line.Write("STM.RequestSample observed %lld total calls (rate-limited to <=1 line/s)",
                           static_cast<std::int64_t>(count));
                break;
            case 4:
                line.Write("TS pacing clamp fired %llu of %llu samples (%llu.%llu%%; expected 0)", std::uint64_t{i},
                           count, std::uint64_t{i % 100}, std::uint64_t{i % 10});
                break;
            case 5:
                line.Write("PIPE geometry mismatch: wire %ux%u, advertised %ux%u - pattern", i * 2, i * 2 + 16, 1920U,
                           1080U);
                break;
            case 6:
                line.Write("FAIL PIPE header rejected: %s (wire magic=0x%08X version=%u format=0x%08X %ux%u bytes=%u)",
                           "wrong format", 0x4D434656 + i, 1U, 0x3231564E + i, 1920U, 1080U, 3110400U + i);
                break;
            case 7:
                line.Write("PIPE delivering live frames %ux%u seq=%llu", 3840U, 2160U, count);
                break;
            case 8:
                line.Write("%s tid=%u hr=0x%08X apt=%d aptq=%d", "APARTMENT SRC.Start", 17000 + i, result,
                           static_cast<std::int32_t>(i % 5) - 1, static_cast<std::int32_t>(i % 3));
                break;
            default:
                line.Write("CALL STM.QueueEvent met=%u flags=0x%x status=%8x", 200 + i % 20, i, result);
                break;
        }
    }
};

}  // namespace ravlo::bench
