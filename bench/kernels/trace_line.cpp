// One line of the trace log, from its arguments to the closed file. Floor: open, append and close of the same number of
// bytes with the same calls and rights, on a file beside the log. Both in batches of lines, for one line takes little
// more than the steps of the clock; both files end as they were before.
#include "kernels/trace_line.h"

#include <windows.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "harness/bare_log.h"
#include "harness/live_camera.h"
#include "harness/pairs.h"
#include "platform/unique_handle.h"
#include "trace/trace.h"

namespace ravlo::bench {
namespace {

constexpr wchar_t kLogPath[] = L"C:\\ProgramData\\Ravlo\\trace.log";
constexpr wchar_t kFloorPath[] = L"C:\\ProgramData\\Ravlo\\bench-floor.log";
constexpr int kLinesPerBatch = 20;

/// A file that ends where it ended before, however much was appended meanwhile.
class KeptSize {
public:
    explicit KeptSize(const wchar_t* path) : m_path(path), m_before(Size()) {}
    ~KeptSize() { TakeBack(); }
    KeptSize(const KeptSize&) = delete;
    KeptSize& operator=(const KeptSize&) = delete;

    /// Bytes in the file now; -1 when there is none.
    std::int64_t Size() const noexcept {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        if (!GetFileAttributesExW(m_path, GetFileExInfoStandard, &data)) {
            return -1;
        }
        return static_cast<std::int64_t>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
    }

private:
    void TakeBack() const noexcept {
        if (m_before < 0) {
            DeleteFileW(m_path);
            return;
        }
        const UniqueFile file(CreateFileW(m_path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        LARGE_INTEGER end{};
        end.QuadPart = m_before;
        if (file && SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN)) {
            SetEndOfFile(file.Get());
        }
    }

    const wchar_t* m_path;
    std::int64_t m_before;
};

void TraceBatch() {
    for (int i = 0; i < kLinesPerBatch; ++i) {
        RvTraceResult("STM.RequestSample", S_OK);
    }
}

void FloorBatch(const std::string& line) {
    for (int i = 0; i < kLinesPerBatch; ++i) {
        AppendLine(kFloorPath, line);
    }
}

}  // namespace

void MeasureTraceLine(bool quick) {
    const CameraGround ground;
    const KeptSize log(kLogPath);
    const KeptSize floorFile(kFloorPath);
    // The first line chooses where the log goes; the directory exists from then on.
    RvTraceResult("STM.RequestSample", S_OK);
    const std::int64_t before = log.Size();
    RvTraceResult("STM.RequestSample", S_OK);
    const std::int64_t lineBytes = log.Size() - before;
    if (before < 0 || lineBytes <= 0) {
        throw std::runtime_error("the trace log does not go where it is measured");
    }
    const std::string line(static_cast<std::size_t>(lineBytes), 'x');

    Measurement measurement{.row = "trace_line", .size = "", .unit = "us", .floor = {}, .product = {}};
    measurement.context.emplace_back("lines", kLinesPerBatch);
    measurement.context.emplace_back("line_bytes", static_cast<double>(lineBytes));
    MeasurePairs(
        measurement, quick ? 20 : 2000, [] {}, [&line] { FloorBatch(line); }, TraceBatch);
    const auto lines = static_cast<std::int64_t>(1 + kLinesPerBatch * measurement.product.size());
    if (log.Size() - before != lines * lineBytes) {
        throw std::runtime_error("the trace log lacks lines that were measured");
    }
    Report(measurement);
}

}  // namespace ravlo::bench
