// Entry of every measuring program: a role in a child process, or the measurements that its command line asks for.
#include "harness/bench_main.h"

#include <windows.h>

#include <optional>

#include "common/command_line.h"
#include "common/program.h"
#include "common/wide_text.h"
#include "support/com.h"
#include "support/process.h"

namespace ravlo {
namespace {

/// The command line without the program's name.
test::Arguments WideArguments(const std::vector<std::string>& arguments) {
    test::Arguments wide;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        wide.push_back(ToWide(arguments[i]));
    }
    return wide;
}

ExitCode Main() {
    const test::ComApartment apartment;
    const std::vector<std::string> arguments = Utf8Arguments();
    if (const std::optional<int> exitCode = test::RunRole(WideArguments(arguments))) {
        return static_cast<ExitCode>(*exitCode);
    }
    bench::BenchOptions options;
    std::string size;
    CommandLine line("ravlo bench", "Measures, and prints one line of JSON for each figure.",
                     "  bench_kernels.exe --size 1080p --only publish\n      one figure at one size\n");
    line.Options().Text("--size", "SIZE", size, "720p, 1080p or 2160p; all of them when left out");
    line.Options().Text("--only", "ROW", options.only, "Measure this row alone");
    line.Options().Flag("--quick", options.quick, "Show that it runs; the figures are worth little");
    if (const auto ended = line.Parse(arguments)) {
        return *ended;
    }
    if (size.empty()) {
        options.sizes.assign(std::begin(bench::kFrameSizes), std::end(bench::kFrameSizes));
    } else if (const bench::FrameSize* const found = bench::FindFrameSize(size)) {
        options.sizes = {*found};
    } else {
        return WrongUsage("no size " + size + "; there are 720p, 1080p and 2160p");
    }
    bench::RunBench(options);
    return ExitCode::Ok;
}

}  // namespace
}  // namespace ravlo

int main() {
    ravlo::RunProgram("bench", ravlo::Main);
}
