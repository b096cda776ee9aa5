#include "common/command_line.h"
#include "common/exit_codes.h"
#include "common/interrupt.h"
#include "common/program.h"
#include "common/wide_text.h"
#include "rvfeeder/feeder.h"
#include "rvfeeder/options.h"

namespace ravlo {
namespace {

constexpr const char* kExamples =
    "  rvfeeder --test-card --size 1280x720\n"
    "      Try the camera: show a moving card of the camera's size\n"
    "  ffmpeg -i film.mp4 -vf scale=1280:720,format=yuv420p -f yuv4mpegpipe - | rvfeeder -\n"
    "      Show a film, decoded by another program\n"
    "  rvfeeder --loop clip.y4m --expect 1280x720 --pipe \\\\.\\pipe\\Ravlo.7\n"
    "      Show a Y4M file again and again on the camera that serves this pipe\n"
    "  rvfeeder frames.nv12 --size 1280x720 --rate 30000/1001 --timeout 10\n"
    "      Show raw NV12 frames; give up when no camera has been there for 10 seconds\n"
    "  rvfeeder --on-demand \"ffmpeg -v error -i rtsp://host/cam -vf scale=1280:720,format=yuv420p -f yuv4mpegpipe -\"\n"
    "      Decode only while somebody watches the camera\n";

ExitCode Main() {
    CommandLine commandLine(
        "rvfeeder", "Sends video frames to a Ravlo camera through its frame pipe, at the video's own pace.", kExamples);
    FeederOptionSet set;
    set.Declare(commandLine.Options());
    if (const auto ended = commandLine.Parse(Utf8Arguments())) {
        return *ended;
    }
    FeederOptions options;
    if (const auto wrong = set.Interpret(options)) {
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
