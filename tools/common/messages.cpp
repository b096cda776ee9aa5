#include "common/messages.h"

#include <cstdio>
#include <string>

namespace ravlo {
namespace {

std::string_view g_program = "ravlo";
MessageWriter g_writer = WriteMessage;

}  // namespace

void WriteMessage(std::string_view program, std::string_view text) noexcept {
    // One call for the whole line: threads may speak at the same time.
    std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(program.size()), program.data(),
                 static_cast<int>(text.size()), text.data());
    std::fflush(stderr);
}

void NameMessages(std::string_view program, MessageWriter writer) noexcept {
    g_program = program;
    g_writer = writer;
}

void Say(std::string_view text) noexcept {
    g_writer(g_program, text);
}

}  // namespace ravlo
