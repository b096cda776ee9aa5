#include "rvhost/y4m_recorder.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <ios>
#include <string_view>
#include <utility>

namespace ravlo {
namespace {

constexpr std::size_t kFewestBuffers = 2;
constexpr std::string_view kFrameLine = "FRAME\n";

}  // namespace

std::string Y4mFileHeader(const FrameGeometry& geometry) {
    return "YUV4MPEG2 W" + std::to_string(geometry.width) + " H" + std::to_string(geometry.height) + " F" +
           std::to_string(geometry.rateNumerator) + ":" + std::to_string(geometry.rateDenominator) +
           " Ip A1:1 C420mpeg2 XCOLORRANGE=LIMITED\n";
}

void AppendPlanar420(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry,
                     std::vector<std::uint8_t>& out) {
    const auto lumaBytes = static_cast<std::size_t>(LumaBytes(geometry));
    const auto pairs = static_cast<std::size_t>(ChromaBytes(geometry)) / 2;
    const std::size_t begin = out.size();
    out.resize(begin + lumaBytes + 2 * pairs);
    std::uint8_t* const luma = out.data() + begin;
    std::uint8_t* const cb = luma + lumaBytes;
    std::uint8_t* const cr = cb + pairs;
    std::memcpy(luma, nv12.data(), lumaBytes);
    const std::uint8_t* const chroma = nv12.data() + lumaBytes;
    for (std::size_t i = 0; i < pairs; ++i) {
        cb[i] = chroma[2 * i];
        cr[i] = chroma[2 * i + 1];
    }
}

std::unique_ptr<std::ostream> CreateOutputFile(const std::string& path) {
    const std::filesystem::path name(std::u8string(path.begin(), path.end()));
    auto file = std::make_unique<std::ofstream>(name, std::ios::binary | std::ios::trunc);
    return file->is_open() ? std::move(file) : nullptr;
}

Y4mRecorder::Y4mRecorder(std::unique_ptr<std::ostream> file, std::string name, const FrameGeometry& geometry,
                         std::size_t queueBytes)
    : m_file(std::move(file)),
      m_name(std::move(name)),
      m_geometry(geometry),
      m_most(std::max(kFewestBuffers, queueBytes / static_cast<std::size_t>(FrameBytes(geometry)))),
      m_thread([this] { Run(); }) {
}

Y4mRecorder::~Y4mRecorder() {
    if (m_thread.joinable()) {
        Finish();
    }
}

std::optional<Y4mRecorder::Frame> Y4mRecorder::TakeBuffer() {
    const std::lock_guard lock(m_mutex);
    if (m_failed || m_isCut) {
        ++m_dropped;
        m_cut += m_isCut ? 1U : 0U;
        return std::nullopt;
    }
    if (!m_free.empty()) {
        Frame frame = std::move(m_free.back());  // the one used last is still in the cache
        m_free.pop_back();
        return frame;
    }
    if (m_buffers == m_most) {
        ++m_dropped;
        return std::nullopt;
    }
    ++m_buffers;
    return Frame{};
}

bool Y4mRecorder::Offer(std::span<const std::uint8_t> nv12) {
    std::optional<Frame> frame = TakeBuffer();
    if (!frame) {
        return false;
    }
    frame->assign(nv12.begin(), nv12.end());
    const std::lock_guard lock(m_mutex);
    m_waiting.push_back(std::move(*frame));
    ++m_frames;
    m_offered.notify_one();
    return true;
}

void Y4mRecorder::DropWaiting() noexcept {
    const std::lock_guard lock(m_mutex);
    m_isCut = true;
    m_cut += m_waiting.size();
    m_dropped += m_waiting.size();
    m_frames -= m_waiting.size();
    m_waiting.clear();
}

void Y4mRecorder::Finish() noexcept {
    {
        const std::lock_guard lock(m_mutex);
        m_finishing = true;
        m_offered.notify_one();
    }
    m_thread.join();
}

std::uint64_t Y4mRecorder::Frames() const {
    const std::lock_guard lock(m_mutex);
    return m_frames;
}

std::uint64_t Y4mRecorder::Dropped() const {
    const std::lock_guard lock(m_mutex);
    return m_dropped;
}

std::string Y4mRecorder::Problem() const {
    const std::lock_guard lock(m_mutex);
    if (m_failed) {
        return "cannot write " + m_name + "; is the disk full?";
    }
    std::string problem;
    if (m_dropped != m_cut) {
        problem = m_name + " lacks " + std::to_string(m_dropped - m_cut) + " of " +
                  std::to_string(m_frames + m_dropped) +
                  " frames: they came faster than they could be written; choose a faster disk or a smaller picture";
    }
    if (m_cut != 0) {
        problem += (problem.empty() ? m_name : std::string("; it")) + " lacks the last " + std::to_string(m_cut) +
                   (m_cut == 1 ? " frame" : " frames") + ": there was no time to write them";
    }
    return problem;
}

void Y4mRecorder::Run() noexcept {
    try {
        WriteOffered();
    } catch (const std::exception&) {
        const std::lock_guard lock(m_mutex);
        m_failed = true;
    }
}

void Y4mRecorder::WriteOffered() {
    m_planar.reserve(kFrameLine.size() + static_cast<std::size_t>(FrameBytes(m_geometry)));
    m_file->exceptions(std::ios::badbit | std::ios::failbit);
    *m_file << Y4mFileHeader(m_geometry);
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_offered.wait(lock, [this] { return m_finishing || !m_waiting.empty(); });
        if (m_waiting.empty()) {
            lock.unlock();
            m_file->flush();
            return;
        }
        Frame frame = std::move(m_waiting.front());
        m_waiting.pop_front();
        lock.unlock();
        Write(frame);
        lock.lock();
        m_free.push_back(std::move(frame));
    }
}

void Y4mRecorder::Write(const Frame& nv12) {
    m_planar.assign(kFrameLine.begin(), kFrameLine.end());
    AppendPlanar420(nv12, m_geometry, m_planar);
    m_file->write(reinterpret_cast<const char*>(m_planar.data()), static_cast<std::streamsize>(m_planar.size()));
}

}  // namespace ravlo
