#include "rvhost/sample_csv.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <filesystem>

#include "common/clock.h"

namespace ravlo {

SampleCsv::SampleCsv(const std::string& path, std::int64_t startArrival, std::int64_t startUnixMs)
    : m_startArrival(startArrival) {
    const std::u8string name(path.begin(), path.end());
    m_file.open(std::filesystem::path(name), std::ios::binary | std::ios::trunc);
    m_file << "# start_unix_ms=" << startUnixMs << "\nseconds,arrival,sample_time,kind,on_grid\n";
}

void SampleCsv::Write(const SampleRecord& sample) {
    const double seconds = static_cast<double>(sample.arrival - m_startArrival) / static_cast<double>(kTicksPerSecond);
    std::array<char, 128> line{};
    const int length = std::snprintf(line.data(), line.size(), "%.4f,%lld,%lld,%s,%d\n", seconds,
                                     static_cast<long long>(sample.arrival), static_cast<long long>(sample.sampleTime),
                                     PictureKindWord(sample.kind), sample.onGrid ? 1 : 0);
    m_file.write(line.data(), length);
}

bool SampleCsv::Flush() {
    m_file.flush();
    return !m_file.fail();
}

}  // namespace ravlo
