#include "rvhost/picture_worker.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "rvhost/nv12_rgb.h"

namespace ravlo {
namespace {

constexpr std::size_t kBuffers = 4;
constexpr std::uint32_t kSheetColumns = 6;
constexpr const char* kNoMemory = "out of memory";  // short enough to be kept without any
constexpr Rgb kLiveColour{34, 139, 60};
constexpr Rgb kPatternColour{190, 110, 10};

std::string FileName(PictureNaming naming, const PictureTag& tag) {
    std::array<char, 64> name{};
    if (naming == PictureNaming::BySample) {
        std::snprintf(name.data(), name.size(), "/%06llu-%s.png", static_cast<unsigned long long>(tag.sample),
                      PictureKindWord(tag.kind));
    } else {
        std::snprintf(name.data(), name.size(), "/%04d.%03d-%s.png", static_cast<int>(tag.elapsedMs / 1000),
                      static_cast<int>(tag.elapsedMs % 1000), PictureKindWord(tag.kind));
    }
    return name.data();
}

/// "last.png" becomes "last-000031.png".
std::string SeriesName(const std::string& file, std::uint64_t sample) {
    const std::size_t slash = file.find_last_of("/\\");
    const std::size_t begin = slash == std::string::npos ? 0 : slash + 1;
    const std::size_t dot = file.rfind('.');
    const std::size_t end = dot == std::string::npos || dot <= begin ? file.size() : dot;
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), "-%06llu", static_cast<unsigned long long>(sample));
    return file.substr(0, end) + number.data() + file.substr(end);
}

std::string Label(const PictureTag& tag) {
    std::array<char, 64> label{};
    std::snprintf(label.data(), label.size(), "%.1f s  %s", static_cast<double>(tag.elapsedMs) / 1000.0,
                  PictureKindWord(tag.kind));
    return label.data();
}

}  // namespace

PictureWorker::PictureWorker(PictureOptions options, const FrameGeometry& geometry)
    : m_options(std::move(options)), m_geometry(geometry) {
    for (std::size_t i = 0; i < kBuffers; ++i) {
        m_free.push_back({std::vector<std::uint8_t>(FrameBytes(geometry)), {}});
    }
    if (!m_options.directory.empty()) {
        std::error_code failed;
        const std::u8string name(m_options.directory.begin(), m_options.directory.end());
        std::filesystem::create_directories(std::filesystem::path(name), failed);
        if (failed) {
            m_error = "cannot create the folder " + m_options.directory;
        }
    }
    m_thread = std::thread([this] { Run(); });
}

PictureWorker::~PictureWorker() {
    if (m_thread.joinable()) {
        Finish();
    }
}

bool PictureWorker::Offer(std::span<const std::uint8_t> nv12, const PictureTag& tag) {
    Job job;
    {
        const std::lock_guard lock(m_mutex);
        if (m_free.empty()) {
            ++m_dropped;
            return false;
        }
        job = std::move(m_free.front());
        m_free.pop_front();
    }
    std::copy_n(nv12.begin(), std::min(nv12.size(), job.nv12.size()), job.nv12.begin());
    job.tag = tag;
    const std::lock_guard lock(m_mutex);
    m_waiting.push_back(std::move(job));
    m_offered.notify_one();
    return true;
}

void PictureWorker::Finish() noexcept {
    {
        const std::lock_guard lock(m_mutex);
        m_finishing = true;
        m_offered.notify_one();
    }
    m_thread.join();
    try {
        WriteContactSheet();
    } catch (const std::bad_alloc&) {
        KeepError(kNoMemory);
    } catch (const std::exception& error) {
        KeepError(error.what());
    }
}

std::uint64_t PictureWorker::Dropped() const {
    const std::lock_guard lock(m_mutex);
    return m_dropped;
}

std::string PictureWorker::Error() const {
    const std::lock_guard lock(m_mutex);
    return m_error;
}

std::string PictureWorker::SheetNote() const {
    if (m_leftOut == 0) {
        return {};
    }
    return "the contact sheet is full: it shows the first " + std::to_string(m_sheet.Pictures()) +
           " pictures and leaves out " + std::to_string(m_leftOut);
}

void PictureWorker::Run() noexcept {
    try {
        WriteOffered();
    } catch (const std::bad_alloc&) {
        KeepError(kNoMemory);
    } catch (const std::exception& error) {
        KeepError(error.what());
    }
}

void PictureWorker::WriteOffered() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_offered.wait(lock, [this] { return m_finishing || !m_waiting.empty(); });
        if (m_waiting.empty()) {
            return;
        }
        Job job = std::move(m_waiting.front());
        m_waiting.pop_front();
        lock.unlock();
        Write(job);
        lock.lock();
        m_free.push_back(std::move(job));
    }
}

void PictureWorker::Write(const Job& job) {
    if (!m_options.series.empty()) {
        Save(SeriesName(m_options.series, job.tag.sample), ConvertNv12ToRgb(job.nv12, m_geometry));
    }
    if (!m_options.directory.empty() || !m_options.contactSheet.empty()) {
        WriteSmall(job);
    }
}

void PictureWorker::WriteSmall(const Job& job) {
    RgbImage picture = MakeThumbnail(job.nv12, m_geometry, m_options.thumbnailWidth);
    if (!m_options.directory.empty()) {
        Save(m_options.directory + FileName(m_options.naming, job.tag), picture);
    }
    if (!m_options.contactSheet.empty()) {
        const bool added = m_sheet.Add(std::move(picture), Label(job.tag),
                                       job.tag.kind == PictureKind::Live ? kLiveColour : kPatternColour);
        m_leftOut += added ? 0U : 1U;
    }
}

void PictureWorker::WriteContactSheet() {
    if (m_options.contactSheet.empty() || m_sheet.IsEmpty()) {
        return;
    }
    std::array<char, 128> title{};
    std::snprintf(title.data(), title.size(), "%ux%u at %u/%u   green: live   orange: test pattern", m_geometry.width,
                  m_geometry.height, m_geometry.rateNumerator, m_geometry.rateDenominator);
    Save(m_options.contactSheet, m_sheet.Draw(kSheetColumns, title.data()));
}

void PictureWorker::Save(const std::string& path, const RgbImage& image) {
    if (!WritePng(path, image, m_effort.load())) {
        KeepError("cannot write " + path);
    }
}

void PictureWorker::KeepError(std::string sentence) noexcept {
    const std::lock_guard lock(m_mutex);
    m_error = std::move(sentence);
}

}  // namespace ravlo
