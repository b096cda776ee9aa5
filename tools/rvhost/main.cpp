#include <windows.h>

#include "common/console.h"
#include "common/exit_codes.h"
#include "common/interrupt.h"
#include "common/messages.h"
#include "common/program.h"
#include "common/wide_text.h"
#include "platform/sid.h"
#include "rvhost/host_run.h"
#include "rvhost/options.h"

namespace ravlo {
namespace {

ExitCode PrintUserSid() {
    const LocalWideString sid = TokenUserText(GetCurrentProcessToken());
    if (!sid) {
        Say("cannot find out who runs this: " + SystemErrorText(GetLastError()));
        return ExitCode::Failure;
    }
    return WriteOutput(ToUtf8(sid.Get()) + "\n") ? ExitCode::Ok : ExitCode::Failure;
}

ExitCode Main() {
    HostOptions options;
    if (const auto ended = ReadOptions(Utf8Arguments(), options)) {
        return *ended;
    }
    if (options.printUserSid) {
        return PrintUserSid();
    }
    const Interrupt interrupt;
    return RunHost(options, interrupt);
}

}  // namespace
}  // namespace ravlo

int main() {
    ravlo::RunProgram("rvhost", ravlo::Main);
}
