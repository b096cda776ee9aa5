#include <windows.h>

#include <cstdint>
#include <cstdio>
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
#include "platform/sid.h"
#include "rvhost/host_run.h"

namespace ravlo {
namespace {

constexpr const char* kExamples =
    "  rvhost --geometry 1280x720@30 --seconds 10\n"
    "      Run the registered camera for ten seconds and say what it delivered\n"
    "  rvhost --geometry 1280x720@30 --pipe \\\\.\\pipe\\Ravlo.7 --pictures out --every-ms 500\n"
    "      Also keep two pictures a second, until Ctrl+C\n"
    "  rvhost --dll rvmediasource.dll --frames 100 --samples-csv samples.csv\n"
    "      Try a camera that is not registered, one line of CSV a sample\n";

struct RawArguments {
    std::string geometry;
    std::string pipe;
    std::string dll;
    double seconds = 0;
    std::int64_t frames = 0;
    std::string pictures;
    std::string contactSheet;
    std::int64_t everyMs = 1000;
    std::int64_t pictureWidth = 320;
    std::string samplesCsv;
    bool printUserSid = false;
};

void DeclareOptions(OptionSet& options, RawArguments& raw) {
    options.Text("--geometry", "WxH@N/D", raw.geometry,
                 "Size and rate to ask for, such as 1280x720@30/1 (default: the camera's own)");
    options.Text("--pipe", "NAME", raw.pipe,
                 "The frame pipe that the camera shall serve, such as \\\\.\\pipe\\Ravlo.7");
    options.Text("--dll", "FILE", raw.dll, "Use this file instead of the registered camera");
    options.Decimal("--seconds", "SECONDS", raw.seconds, 0.1, 1e6, "End after this time (default: at Ctrl+C)");
    options.Number("--frames", "COUNT", raw.frames, 1, 1000000000, "End after this many samples");
    options.Text("--pictures", "FOLDER", raw.pictures, "Write small PNG pictures into this folder");
    options.Text("--contact-sheet", "FILE", raw.contactSheet,
                 "Write the pictures, up to 600 of them, side by side into this PNG file");
    options.Number("--every-ms", "MS", raw.everyMs, 1, 3600000, "Time between two pictures (default 1000)");
    options.Number("--picture-width", "PIXELS", raw.pictureWidth, 16, 4096, "Width of a picture (default 320)");
    options.Text("--samples-csv", "FILE", raw.samplesCsv, "Write one line a sample into this file");
    options.Flag("--print-user-sid", raw.printUserSid, "Print the SID of the user who runs this, and end");
}

/// Checks what the parser cannot; a sentence when something is wrong.
std::optional<std::string> Interpret(const RawArguments& raw, HostOptions& options) {
    if (!raw.geometry.empty()) {
        options.camera.geometry = ParseGeometry(raw.geometry);
        if (!options.camera.geometry) {
            return "\"" + raw.geometry +
                   "\" is no geometry: an even WIDTHxHEIGHT@RATE, such as 1280x720@30 or "
                   "1280x720@30000/1001";
        }
    }
    options.camera.pipeName = ToWide(raw.pipe);
    if (!raw.pipe.empty() && !RvIsRavloPipeName(options.camera.pipeName.c_str())) {
        return "\"" + raw.pipe + "\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number";
    }
    options.camera.dll = ToWide(raw.dll);
    if (raw.seconds > 0) {
        options.lengthMs = static_cast<std::int64_t>(raw.seconds * 1000);
    }
    if (raw.frames > 0) {
        options.frames = static_cast<std::uint64_t>(raw.frames);
    }
    options.pictureDirectory = raw.pictures;
    options.contactSheet = raw.contactSheet;
    options.pictureEveryMs = raw.everyMs;
    options.pictureWidth = static_cast<std::uint32_t>(raw.pictureWidth);
    options.samplesCsv = raw.samplesCsv;
    return std::nullopt;
}

ExitCode PrintUserSid() {
    const LocalWideString sid = TokenUserText(GetCurrentProcessToken());
    if (!sid) {
        Say("cannot find out who runs this: " + SystemErrorText(GetLastError()));
        return ExitCode::Failure;
    }
    std::printf("%s\n", ToUtf8(sid.Get()).c_str());
    return ExitCode::Ok;
}

ExitCode Main() {
    CommandLine commandLine(
        "rvhost",
        "Runs a Ravlo camera without the camera service: activates it in this process, pulls its samples and "
        "says what they were.",
        kExamples);
    RawArguments raw;
    DeclareOptions(commandLine.Options(), raw);
    if (const auto ended = commandLine.Parse(Utf8Arguments())) {
        return *ended;
    }
    if (raw.printUserSid) {
        return PrintUserSid();
    }
    HostOptions options{};
    if (const auto wrong = Interpret(raw, options)) {
        return WrongUsage(*wrong);
    }
    const Interrupt interrupt;
    return RunHost(options, interrupt);
}

}  // namespace
}  // namespace ravlo

int main() {
    ravlo::RunProgram("rvhost", ravlo::Main);
}
