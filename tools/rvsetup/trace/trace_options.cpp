#include "rvsetup/trace/trace_options.h"

#include <algorithm>

#include "rvsetup/system/text.h"
#include "rvsetup/trace/trace_print.h"

namespace ravlo {
namespace {

constexpr std::int64_t kMostLines = 100'000;

}  // namespace

void DeclareTraceOptions(OptionSet& set, TraceOptions& options) {
    set.Flag("-f,--follow", options.follow, "Go on with what is written from now on, until Ctrl+C");
    set.Texts("--only", "TAG", options.only, "Only lines that begin with this word, such as PIPE; may be repeated");
    set.Number("-n,--lines", "N", options.lines, 0, kMostLines, "How many of these lines, the last ones (default 200)");
    set.Text("--log", "FILE", options.log, "Another file than the newest log of the camera");
    set.Flag("--json", options.json, "One object a line");
}

std::string WhyNoLog(const std::string& path) {
    return LeadsToFiles(path) ? std::string() : "it is no file";
}

std::string WhatIsWrongWith(const TraceOptions& options) {
    for (const std::string& tag : options.only) {
        const std::string upper = Uppered(tag.substr(0, tag.find('.')));
        const std::vector<std::string>& known = KnownTags();
        if (std::find(known.begin(), known.end(), upper) == known.end()) {
            const std::string nearest = NearestWord(known, upper);
            return "no line of the log begins with \"" + tag + "\"" +
                   (nearest.empty() ? "; try FAIL, WARN, PIPE or GATE" : "; did you mean " + nearest + "?");
        }
    }
    return {};
}

}  // namespace ravlo
