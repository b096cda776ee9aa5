#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/command_line.h"

namespace ravlo {

/// What the user asks of "rvsetup trace".
struct TraceOptions {
    bool follow = false;
    std::vector<std::string> only{};
    std::int64_t lines = 200;
    std::string log{};  ///< empty: the log that the camera writes
    bool json = false;
};

void DeclareTraceOptions(OptionSet& set, TraceOptions& options);

/// Why the file at this absolute path cannot be a log, as part of a sentence; empty when it can. Told from the name
/// alone: to look at a pipe is to open it.
std::string WhyNoLog(const std::string& path);

/// What is wrong with the options, as a sentence; empty when nothing is.
std::string WhatIsWrongWith(const TraceOptions& options);

}  // namespace ravlo
