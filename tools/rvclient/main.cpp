#include <functional>
#include <optional>
#include <string>

#include "common/command_line.h"
#include "common/interrupt.h"
#include "common/program.h"
#include "common/wide_text.h"
#include "rvclient/camera_actions.h"
#include "rvclient/interruptible.h"
#include "rvclient/options.h"

namespace ravlo {
namespace {

constexpr const char* kExamples =
    "  rvclient start --geometry 1280x720@30\n"
    "      Show the camera to applications, until rvclient remove\n"
    "  rvclient list\n"
    "      See which cameras there are\n";

template <class Arguments, class Request>
ExitCode RunCommand(const Arguments& arguments, std::function<ExitCode(const Request&, HANDLE)> act) {
    Request request;
    if (const auto wrong = arguments.Interpret(request)) {
        return WrongUsage(*wrong);
    }
    const Interrupt interrupt;
    const HANDLE interrupted = interrupt.Event();
    return RunInterruptibly([=] { return act(request, interrupted); }, interrupt);
}

ExitCode Main() {
    CommandLine line("rvclient", "Shows the Ravlo camera to applications, on Windows 11.", kExamples);
    StartArguments start(line);
    StopArguments stop(line);
    RemoveArguments remove(line);
    ListArguments list(line);
    if (const auto ended = line.Parse(Utf8Arguments())) {
        return *ended;
    }
    const std::string command = line.ChosenCommand();
    if (command == "start") {
        return RunCommand<StartArguments, StartRequest>(start, StartCamera);
    }
    if (command == "stop") {
        return RunCommand<StopArguments, CameraIdentity>(
            stop, [](const CameraIdentity& camera, HANDLE) { return StopCamera(camera); });
    }
    if (command == "remove") {
        return RunCommand<RemoveArguments, CameraIdentity>(
            remove, [](const CameraIdentity& camera, HANDLE) { return RemoveCamera(camera); });
    }
    if (command == "list") {
        return RunCommand<ListArguments, ListRequest>(
            list, [](const ListRequest& request, HANDLE) { return ListCameras(request); });
    }
    return WrongUsage("say what to do: start, stop, remove or list");
}

}  // namespace
}  // namespace ravlo

int main() {
    ravlo::RunProgram("rvclient", ravlo::Main);
}
