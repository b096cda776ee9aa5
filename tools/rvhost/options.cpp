#include "rvhost/options.h"

#include <algorithm>
#include <utility>

#include "common/command_line.h"
#include "common/parse_text.h"

namespace ravlo {
namespace {

constexpr const char* kSummary =
    "Runs a Ravlo camera without the camera service: activates it in this process, pulls its samples, shows or keeps "
    "them if asked, and says what they were.";

constexpr const char* kExamples =
    "  rvhost --geometry 1280x720@30 --seconds 10\n"
    "      Run the registered camera for ten seconds and say what it delivered\n"
    "  rvhost --preview\n"
    "      See the stream in a window, until it is closed\n"
    "  rvhost --dll rvmediasource.dll --frames 100 --snapshot last.png\n"
    "      Try a camera that is not registered, and keep its last picture\n"
    "  rvhost --pipe \\\\.\\pipe\\Ravlo.7 --pictures out --every-ms 500\n"
    "      Keep two small pictures a second, until Ctrl+C\n"
    "  rvhost --seconds 60 --json\n"
    "      One JSON object a second on standard output, for a program to read\n";

/// What was typed, before it is known to make sense. A number of 0 means "not given".
struct RawOptions {
    std::string geometry;
    std::string pipe;
    double seconds = 0;
    std::int64_t frames = 0;
    std::int64_t everySamples = 0;
    std::int64_t everyMs = 0;
    std::int64_t pictureWidth = 0;
};

void DeclareCamera(OptionSet& set, RawOptions& raw, HostOptions& options) {
    set.Group("Camera");
    set.Text("--geometry", "WxH@N/D", raw.geometry,
             "Size and rate to ask for, such as 1280x720@30/1 (default: the camera's own)");
    set.Text("--pipe", "NAME", raw.pipe, "The frame pipe that the camera shall serve, such as \\\\.\\pipe\\Ravlo.7");
    set.Text("--dll", "FILE", options.dll, "Use this file instead of the registered camera");
    set.Decimal("--seconds", "SECONDS", raw.seconds, 0.1, 1e6,
                "End after this time (default: at Ctrl+C, or when the preview is closed)");
    set.Number("--frames", "COUNT", raw.frames, 1, 1000000000, "End after this many samples");
}

void DeclarePictures(OptionSet& set, RawOptions& raw, HostOptions& options) {
    set.Group("Pictures");
    set.Flag("--preview", options.preview, "Show the stream in a window; closing it ends rvhost");
    set.Text(
        "--snapshot", "FILE", options.snapshot,
        "Write the last sample of the run, in full size, into this PNG file at the end; with --every, every Nth one "
        "too, beside it, such as last-000031.png");
    set.Text("--pictures", "FOLDER", options.pictureDirectory, "Write small PNG pictures into this folder");
    set.Text("--contact-sheet", "FILE", options.contactSheet,
             "Write the small pictures, up to 600 of them, side by side into this PNG file");
    set.Number(
        "--every", "N", raw.everySamples, 1, 1000000000,
        "Make a picture of every Nth sample, the first one included: a small one, or with --snapshot in full size");
    set.Number("--every-ms", "MS", raw.everyMs, 1, 3600000,
               "Make a small picture each time so many milliseconds have passed (default 1000)");
    set.Number("--picture-width", "PIXELS", raw.pictureWidth, 16, 4096, "Width of a small picture (default 320)");
    set.Text("--y4m", "FILE", options.y4m, "Write all samples into this YUV4MPEG2 file, uncompressed");
}

void DeclareNumbers(OptionSet& set, HostOptions& options) {
    set.Group("Numbers");
    set.Text("--samples-csv", "FILE", options.samplesCsv, "Write one line a sample into this file");
    set.Flag("--json", options.json, "Write one JSON object a second, and a last one, instead of the summary in words");
    set.Flag("--print-user-sid", options.printUserSid, "Print the SID of the user who runs this, and end");
}

/// Checks what the parser cannot; a sentence when something is wrong.
std::optional<std::string> Interpret(const RawOptions& raw, HostOptions& options) {
    if (!raw.geometry.empty()) {
        options.geometry = ParseGeometry(raw.geometry);
        if (!options.geometry) {
            return "\"" + raw.geometry +
                   "\" is no geometry: an even WIDTHxHEIGHT@RATE, such as 1280x720@30 or "
                   "1280x720@30000/1001";
        }
    }
    if (!ParsePipeName(raw.pipe)) {
        return WhyNoPipeName(raw.pipe);
    }
    options.pipeName = raw.pipe;
    if (raw.everySamples != 0 && raw.everyMs != 0) {
        return "--every counts samples and --every-ms counts time: give one of them";
    }
    if (!options.WantsPictures()) {
        if (raw.everySamples != 0 && options.snapshot.empty()) {
            return "--every says which samples become pictures: give --snapshot, --pictures or --contact-sheet as well";
        }
        const std::pair<bool, const char*> needless[] = {{raw.everyMs != 0, "--every-ms"},
                                                         {raw.pictureWidth != 0, "--picture-width"}};
        for (const auto& [given, name] : needless) {
            if (given) {
                return std::string(name) + " is about small pictures: give --pictures or --contact-sheet as well";
            }
        }
    }
    const std::string same = WhySameFile(options.OutputFiles());
    return same.empty() ? std::nullopt : std::optional(same);
}

void TakeNumbers(const RawOptions& raw, HostOptions& options) {
    if (raw.seconds > 0) {
        options.lengthMs = static_cast<std::int64_t>(raw.seconds * 1000);
    }
    if (raw.frames > 0) {
        options.frames = static_cast<std::uint64_t>(raw.frames);
    }
    if (raw.everySamples > 0) {
        options.pictureEverySamples = static_cast<std::uint64_t>(raw.everySamples);
    }
    if (raw.everyMs > 0) {
        options.pictureEveryMs = raw.everyMs;
    }
    if (raw.pictureWidth > 0) {
        options.pictureWidth = static_cast<std::uint32_t>(raw.pictureWidth);
    }
}

}  // namespace

std::vector<OutputFile> HostOptions::OutputFiles() const {
    return {{"--snapshot", snapshot}, {"--contact-sheet", contactSheet}, {"--y4m", y4m}, {"--samples-csv", samplesCsv}};
}

std::optional<ExitCode> ReadOptions(std::vector<std::string> arguments, HostOptions& options) {
    // An empty path would silently mean "not wanted".
    if (std::find(arguments.begin() + (arguments.empty() ? 0 : 1), arguments.end(), std::string()) != arguments.end()) {
        return WrongUsage("an argument is empty; is a variable of your script not set?");
    }
    CommandLine commandLine("rvhost", kSummary, kExamples);
    RawOptions raw;
    DeclareCamera(commandLine.Options(), raw, options);
    DeclarePictures(commandLine.Options(), raw, options);
    DeclareNumbers(commandLine.Options(), options);
    if (const auto ended = commandLine.Parse(std::move(arguments))) {
        return ended;
    }
    if (const auto wrong = Interpret(raw, options)) {
        return WrongUsage(*wrong);
    }
    TakeNumbers(raw, options);
    return std::nullopt;
}

}  // namespace ravlo
