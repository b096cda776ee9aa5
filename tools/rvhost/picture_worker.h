#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "rvhost/contact_sheet.h"
#include "rvhost/picture_kind.h"
#include "rvhost/png_file.h"
#include "stream/geometry.h"

namespace ravlo {

/// What the files of small pictures are called.
enum class PictureNaming : std::uint8_t {
    ByTime,    ///< seconds since the start, such as 0012.340-live.png
    BySample,  ///< number of the sample, such as 000123-live.png
};

/// Where pictures go. Paths are UTF-8; an empty one means "not wanted".
struct PictureOptions {
    std::string directory;
    std::string contactSheet;
    std::uint32_t thumbnailWidth;
    PictureNaming naming = PictureNaming::ByTime;
    /// Pictures in full size lie beside this PNG file and are called after it and the sample's number: last-000031.png.
    std::string series = {};
};

/// Which picture it is.
struct PictureTag {
    std::int64_t elapsedMs;  ///< since the start
    std::uint64_t sample;    ///< counts from 1
    PictureKind kind;
};

/// Scales, converts and writes pictures on a thread of its own, so that the thread which pulls samples never waits for
/// it: when it cannot keep up, pictures are dropped and counted.
class PictureWorker {
public:
    PictureWorker(PictureOptions options, const FrameGeometry& geometry);
    PictureWorker(const PictureWorker&) = delete;
    PictureWorker& operator=(const PictureWorker&) = delete;
    ~PictureWorker();

    /// Copies one packed NV12 frame for writing. False, and counted, when all buffers are in use. Pulling thread.
    bool Offer(std::span<const std::uint8_t> nv12, const PictureTag& tag);

    /// Any thread: pictures that are not written yet, and the contact sheet, are not compressed.
    void Hurry() noexcept { m_effort.store(PngEffort::Quick); }

    /// Waits until everything offered is written, then writes the contact sheet. Call it once, after the last Offer.
    void Finish() noexcept;

    std::uint64_t Dropped() const;
    /// Why a file could not be written, as a sentence; empty when all went well. Complete after Finish.
    std::string Error() const;
    /// What the user should know about the contact sheet, as a sentence; mostly empty. Only after Finish.
    std::string SheetNote() const;

private:
    struct Job {
        std::vector<std::uint8_t> nv12;
        PictureTag tag{};
    };

    void Run() noexcept;
    void WriteOffered();
    void Write(const Job& job);
    void WriteSmall(const Job& job);
    void WriteContactSheet();
    void Save(const std::string& path, const RgbImage& image);
    void KeepError(std::string sentence) noexcept;

    const PictureOptions m_options;
    const FrameGeometry m_geometry;
    std::atomic<PngEffort> m_effort{PngEffort::Small};
    ContactSheet m_sheet;         ///< touched by the worker, and by others after the worker has ended
    std::uint64_t m_leftOut = 0;  ///< pictures for which the sheet had no room; touched like the sheet

    mutable std::mutex m_mutex;
    std::condition_variable m_offered;
    std::deque<Job> m_free;
    std::deque<Job> m_waiting;
    std::string m_error;
    std::uint64_t m_dropped = 0;
    bool m_finishing = false;
    std::thread m_thread;
};

}  // namespace ravlo
