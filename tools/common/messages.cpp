#include "common/messages.h"

#include <cstdio>
#include <string>

namespace ravlo {
namespace {

std::string_view g_program = "ravlo";

}  // namespace

void NameMessages(std::string_view program) noexcept {
    g_program = program;
}

void Say(std::string_view text) noexcept {
    // One call for the whole line: threads may speak at the same time.
    std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(g_program.size()), g_program.data(),
                 static_cast<int>(text.size()), text.data());
    std::fflush(stderr);
}

}  // namespace ravlo
