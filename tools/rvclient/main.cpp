#include "common/command_line.h"
#include "common/program.h"
#include "common/wide_text.h"

namespace ravlo {
namespace {

constexpr const char* kExamples =
    "  rvclient start\n"
    "      Show the camera to all applications of this user until rvclient remove\n";

ExitCode Main() {
    CommandLine line("rvclient", "Creates the Ravlo camera on Windows 11.", kExamples);
    if (const auto ended = line.Parse(Utf8Arguments())) {
        return *ended;
    }
    return WrongUsage("say what to do: start, stop, remove or list");
}

}  // namespace
}  // namespace ravlo

int main() {
    ravlo::RunProgram("rvclient", ravlo::Main);
}
