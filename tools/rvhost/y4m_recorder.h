#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "stream/geometry.h"

namespace ravlo {

/// The first line of a Y4M file with pictures of this geometry: progressive 4:2:0 in limited range, line feed included.
std::string Y4mFileHeader(const FrameGeometry& geometry);

/// One packed NV12 frame as Y4M has it: the luma plane, then all Cb, then all Cr.
void AppendPlanar420(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry, std::vector<std::uint8_t>& out);

/// Makes an empty file for writing. `path` is UTF-8. Nothing when that cannot be done.
std::unique_ptr<std::ostream> CreateOutputFile(const std::string& path);

/// Writes every frame that it is offered into a Y4M file, on a thread of its own, so that the thread which pulls
/// samples never waits for a disk: what does not fit into the queue is dropped and counted.
class Y4mRecorder {
public:
    /// Takes over the open file, which messages call `name`. At most `queueBytes` of frames wait for the disk, but
    /// there is always room for two.
    Y4mRecorder(std::unique_ptr<std::ostream> file, std::string name, const FrameGeometry& geometry,
                std::size_t queueBytes);
    Y4mRecorder(const Y4mRecorder&) = delete;
    Y4mRecorder& operator=(const Y4mRecorder&) = delete;
    ~Y4mRecorder();

    /// Copies one packed NV12 frame. False, and counted, when the queue is full. One thread.
    bool Offer(std::span<const std::uint8_t> nv12);

    /// Any thread, for a user who waits for the program to end: only the frame that is being written still gets into
    /// the file, of what was offered and of what is offered later.
    void DropWaiting() noexcept;

    /// Waits until everything offered is in the file. Call it once, after the last Offer.
    void Finish() noexcept;

    /// Any thread: frames taken, and frames dropped.
    std::uint64_t Frames() const;
    std::uint64_t Dropped() const;

    /// Why the file is not what was asked for, as a sentence; empty when every frame is in it. Complete after Finish.
    std::string Problem() const;

private:
    using Frame = std::vector<std::uint8_t>;

    std::optional<Frame> TakeBuffer();
    void Run() noexcept;
    void WriteOffered();
    void Write(const Frame& nv12);

    const std::unique_ptr<std::ostream> m_file;  ///< the worker's, as is the next one
    std::vector<std::uint8_t> m_planar;
    const std::string m_name;
    const FrameGeometry m_geometry;
    const std::size_t m_most;  ///< buffers that may exist

    mutable std::mutex m_mutex;
    std::condition_variable m_offered;
    std::deque<Frame> m_free;
    std::deque<Frame> m_waiting;
    std::size_t m_buffers = 0;
    std::uint64_t m_frames = 0;
    std::uint64_t m_dropped = 0;  ///< for want of speed or of time
    std::uint64_t m_cut = 0;      ///< of them, for want of time at the end
    bool m_failed = false;
    bool m_isCut = false;  ///< nothing more gets into the file
    bool m_finishing = false;
    std::thread m_thread;
};

}  // namespace ravlo
