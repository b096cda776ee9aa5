#pragma once

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace ravlo::bench {

/// What a measurement found, as it goes to the program that judges it. All raw values are handed over: medians,
/// intervals and bars belong to the judge alone.
struct Measurement {
    std::string row;                                           ///< which figure, as the judge's table names it
    std::string size;                                          ///< "1080p"; empty where no picture is involved
    std::string unit;                                          ///< "us", "ms", "1/s", "bytes"
    std::vector<double> floor;                                 ///< of the bare loop; empty where there is none
    std::vector<double> product;                               ///< where values are pairs: as many, in the same order
    std::vector<std::pair<std::string, double>> context = {};  ///< counts to show beside the figure
};

/// Writes the measurement as one line of JSON to standard output.
void Report(const Measurement& measurement);

/// A line for people, on standard error.
void Note(const std::string& text);

}  // namespace ravlo::bench
