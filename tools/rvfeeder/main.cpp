#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "common/command_line.h"
#include "common/exit_codes.h"
#include "common/interrupt.h"
#include "common/messages.h"
#include "common/parse_text.h"
#include "common/program.h"
#include "common/wide_text.h"
#include "pipe/pipe_name.h"
#include "rvfeeder/camera_limits.h"
#include "rvfeeder/feeder.h"

namespace ravlo {
namespace {

constexpr const char* kExamples =
    "  ffmpeg -i film.mp4 -vf scale=1280:720,format=yuv420p -f yuv4mpegpipe - | rvfeeder -\n"
    "      Show a film, decoded by another program\n"
    "  rvfeeder --loop clip.y4m --pipe \\\\.\\pipe\\Ravlo.7\n"
    "      Show a Y4M file again and again on the camera that serves this pipe\n"
    "  rvfeeder frames.nv12 --size 1280x720 --rate 30000/1001 --timeout 10\n"
    "      Show raw NV12 frames; give up when no camera has been there for 10 seconds\n";

/// Nothing cuts a write short, so this is also how long Ctrl+C may have to wait.
constexpr int kLongestWriteMs = 1000;

struct RawArguments {
    std::string input;
    std::string size;
    std::string rate;
    std::string pipe;
    double timeoutSeconds = 0;
    std::int64_t writeTimeoutMs = 500;
    bool loop = false;
};

void DeclareOptions(OptionSet& options, RawArguments& raw) {
    options.Positional("input", raw.input, true, "Y4M or raw NV12 file, or - for standard input");
    options.Text("--size", "WxH", raw.size, "The input is raw NV12 of this size, such as 1280x720");
    options.Text("--rate", "N/D", raw.rate, "Frames a second of a raw input, such as 30 or 30000/1001");
    options.Text("--pipe", "NAME", raw.pipe, "The camera's frame pipe (default \\\\.\\pipe\\Ravlo)");
    options.Decimal("--timeout", "SECONDS", raw.timeoutSeconds, 0.1, 1e6,
                    "Give up after this time without a camera (default: never)");
    options.Number("--write-timeout-ms", "MS", raw.writeTimeoutMs, 1, kLongestWriteMs,
                   "Longest time one frame may take to send, up to 1000 (default 500)");
    options.Flag("--loop", raw.loop, "Begin again at the end of a file");
}

/// Checks what the parser cannot; a sentence when something is wrong.
std::optional<std::string> Interpret(const RawArguments& raw, FeederOptions& options) {
    options.input = raw.input;
    options.loop = raw.loop;
    options.writeTimeoutMs = static_cast<DWORD>(raw.writeTimeoutMs);
    options.pipeName = raw.pipe.empty() ? std::wstring(PipeNameForPid(0).text) : ToWide(raw.pipe);
    if (!RvIsRavloPipeName(options.pipeName.c_str())) {
        return "\"" + raw.pipe + "\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number";
    }
    if (raw.timeoutSeconds > 0) {
        options.absenceLimit = static_cast<std::int64_t>(raw.timeoutSeconds * 1e7);
    }
    if (raw.loop && raw.input == "-") {
        return "--loop needs a file: standard input cannot begin again";
    }
    if (raw.size.empty() != raw.rate.empty()) {
        return "raw NV12 input needs both --size and --rate; a Y4M input needs neither";
    }
    if (!raw.size.empty()) {
        options.rawInput = ParseGeometry(raw.size + "@" + raw.rate);
        if (!options.rawInput) {
            return "--size " + raw.size + " --rate " + raw.rate +
                   " describes no NV12 stream: an even WIDTHxHEIGHT up to 16384 and a rate such as 30 or 30000/1001";
        }
        return WhyBeyondCamera(*options.rawInput);
    }
    return std::nullopt;
}

ExitCode Main() {
    CommandLine commandLine(
        "rvfeeder", "Sends video frames to a Ravlo camera through its frame pipe, at the video's own pace.", kExamples);
    RawArguments raw;
    DeclareOptions(commandLine.Options(), raw);
    if (const auto ended = commandLine.Parse(Utf8Arguments())) {
        return *ended;
    }
    FeederOptions options{};
    if (const auto wrong = Interpret(raw, options)) {
        return WrongUsage(*wrong);
    }
    const Interrupt interrupt;
    return Feed(options, interrupt);
}

}  // namespace
}  // namespace ravlo

int main() {
    ravlo::RunProgram("rvfeeder", ravlo::Main);
}
