#include "common/report_writer.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace ravlo {
namespace {

constexpr std::size_t kMostWaiting = 16;

}  // namespace

/// Owned by both threads, because the writing one may be stuck in a write when the other has gone.
struct ReportWriter::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::string> texts;
    bool writing = false;
    bool closed = false;      ///< nobody reads any more, or nobody writes
    bool readerGone = false;  ///< nobody reads any more
};

ReportWriter::ReportWriter(Write write) : m_shared(std::make_shared<Shared>()) {
    std::thread([shared = m_shared, write = std::move(write)] { Run(shared, write); }).detach();
}

ReportWriter::~ReportWriter() {
    const std::lock_guard lock(m_shared->mutex);
    m_shared->closed = true;
    m_shared->changed.notify_all();
}

void ReportWriter::Put(std::string text) {
    const std::lock_guard lock(m_shared->mutex);
    if (m_shared->closed) {
        return;
    }
    if (m_shared->texts.size() == kMostWaiting) {
        m_shared->texts.pop_front();
    }
    m_shared->texts.push_back(std::move(text));
    m_shared->changed.notify_all();
}

bool ReportWriter::Flush(std::chrono::milliseconds patience) {
    std::unique_lock lock(m_shared->mutex);
    const auto isDone = [this] { return m_shared->closed || (m_shared->texts.empty() && !m_shared->writing); };
    return m_shared->changed.wait_for(lock, patience, isDone) && m_shared->texts.empty();
}

bool ReportWriter::IsReaderGone() const {
    const std::lock_guard lock(m_shared->mutex);
    return m_shared->readerGone;
}

void ReportWriter::Run(const std::shared_ptr<Shared>& shared, const Write& write) {
    std::unique_lock lock(shared->mutex);
    for (;;) {
        shared->changed.wait(lock, [&shared] { return shared->closed || !shared->texts.empty(); });
        if (shared->closed) {
            return;
        }
        const std::string text = std::move(shared->texts.front());
        shared->texts.pop_front();
        shared->writing = true;
        lock.unlock();
        const bool isRead = write(text);
        lock.lock();
        shared->writing = false;
        shared->readerGone = !isRead;
        shared->closed = shared->closed || !isRead;
        shared->changed.notify_all();
    }
}

}  // namespace ravlo
