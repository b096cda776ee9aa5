#pragma once

#include <cstdint>
#include <fstream>
#include <string>

#include "rvhost/sample_statistics.h"

namespace ravlo {

/// One line a sample: seconds since the start, arrival and sample time in units of 100 ns, live or pattern, and 1 or 0
/// for a time on or off the grid. The first line gives the wall clock at the start (ms since 1970, UTC), the second
/// names the columns. One thread uses it.
class SampleCsv {
public:
    /// `path` is UTF-8; IsOpen tells whether the file could be made.
    SampleCsv(const std::string& path, std::int64_t startArrival, std::int64_t startUnixMs);

    bool IsOpen() const { return m_file.is_open(); }
    void Write(const SampleRecord& sample);

    /// Writes out what is buffered. False when anything could not be written.
    bool Flush();

private:
    std::ofstream m_file;
    std::int64_t m_startArrival;
};

}  // namespace ravlo
