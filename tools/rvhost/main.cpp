#include <windows.h>

#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <string>

#include "common/command_line.h"
#include "common/console_message.h"
#include "common/exit_codes.h"
#include "common/interrupt.h"
#include "common/messages.h"
#include "common/parse_text.h"
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
    std::uint64_t frames = 0;
    std::string pictures;
    std::string contactSheet;
    std::int64_t everyMs = 1000;
    std::uint32_t pictureWidth = 320;
    std::string samplesCsv;
    bool printUserSid = false;
};

void DeclareOptions(CLI::App& app, RawArguments& raw) {
    app.add_option("--geometry", raw.geometry,
                   "Size and rate to ask for, such as 1280x720@30/1 (default: the camera's own)");
    app.add_option("--pipe", raw.pipe, "The frame pipe that the camera shall serve, such as \\\\.\\pipe\\Ravlo.7");
    app.add_option("--dll", raw.dll, "Use this file instead of the registered camera");
    app.add_option("--seconds", raw.seconds, "End after this time (default: at Ctrl+C)")->check(CLI::Range(0.1, 1e6));
    app.add_option("--frames", raw.frames, "End after this many samples")->check(CLI::Range(1, 1000000000));
    app.add_option("--pictures", raw.pictures, "Write small PNG pictures into this folder");
    app.add_option("--contact-sheet", raw.contactSheet,
                   "Write the pictures, up to 600 of them, side by side into this PNG file");
    app.add_option("--every-ms", raw.everyMs, "Time between two pictures (default 1000)")
        ->check(CLI::Range(1, 3600000));
    app.add_option("--picture-width", raw.pictureWidth, "Width of a picture in pixels (default 320)")
        ->check(CLI::Range(16, 4096));
    app.add_option("--samples-csv", raw.samplesCsv, "Write one line a sample into this file");
    app.add_flag("--print-user-sid", raw.printUserSid, "Print the SID of the user who runs this, and end");
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
        options.frames = raw.frames;
    }
    options.pictureDirectory = raw.pictures;
    options.contactSheet = raw.contactSheet;
    options.pictureEveryMs = raw.everyMs;
    options.pictureWidth = raw.pictureWidth;
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
    NameMessages("rvhost", WriteConsoleMessage);
    CLI::App app(
        "Runs a Ravlo camera without the camera service: activates it in this process, pulls its samples and "
        "says what they were.");
    SetUpCommandLine(app, "rvhost", kExamples);
    RawArguments raw;
    DeclareOptions(app, raw);
    if (const auto ended = ParseCommandLine(app, Utf8Arguments())) {
        return *ended;
    }
    if (raw.printUserSid) {
        return PrintUserSid();
    }
    HostOptions options{};
    if (const auto wrong = Interpret(raw, options)) {
        Say(*wrong);
        return ExitCode::Usage;
    }
    const Interrupt interrupt;
    return RunHost(options, interrupt);
}

}  // namespace
}  // namespace ravlo

int main() {
    int code = static_cast<int>(ravlo::ExitCode::Failure);
    try {
        code = static_cast<int>(ravlo::Main());
    } catch (const std::bad_alloc&) {
        ravlo::Say("out of memory");
    } catch (const std::exception& error) {
        ravlo::Say(error.what());
    }
    // Ends at once even if the pulling thread is still stuck in a read; returning would run destructors under it.
    std::fflush(nullptr);
    ExitProcess(static_cast<UINT>(code));
}
