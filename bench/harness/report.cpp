#include "harness/report.h"

#include <cstdio>

namespace ravlo::bench {
namespace {

// Names and units are words of this program's own: nothing in them needs escaping.
void AppendText(std::string& line, const char* key, const std::string& text) {
    line += std::string(line.size() > 1 ? ", \"" : "\"") + key + "\": \"" + text + "\"";
}

void AppendNumber(std::string& line, double value) {
    char digits[40];
    std::snprintf(digits, sizeof digits, "%.9g", value);
    line += digits;
}

void AppendNumbers(std::string& line, const char* key, std::span<const double> values) {
    line += std::string(", \"") + key + "\": [";
    for (std::size_t i = 0; i < values.size(); ++i) {
        line += i == 0 ? "" : ", ";
        AppendNumber(line, values[i]);
    }
    line += "]";
}

}  // namespace

void Report(const Measurement& measurement) {
    std::string line = "{";
    AppendText(line, "row", measurement.row);
    AppendText(line, "size", measurement.size);
    AppendText(line, "unit", measurement.unit);
    AppendNumbers(line, "floor", measurement.floor);
    AppendNumbers(line, "product", measurement.product);
    line += ", \"context\": {";
    for (std::size_t i = 0; i < measurement.context.size(); ++i) {
        line += (i == 0 ? "\"" : ", \"") + measurement.context[i].first + "\": ";
        AppendNumber(line, measurement.context[i].second);
    }
    line += "}}\n";
    std::fputs(line.c_str(), stdout);
    std::fflush(stdout);
}

void Note(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::fflush(stderr);
}

}  // namespace ravlo::bench
