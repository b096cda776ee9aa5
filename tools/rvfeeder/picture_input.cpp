#include "rvfeeder/picture_input.h"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "common/clock.h"
#include "rvfeeder/byte_source.h"

namespace ravlo {

/// Owned by both threads, because the reading one may be stuck in a read when the other has gone.
struct PictureInput::Shared {
    mutable std::mutex mutex;
    std::condition_variable changed;
    State state = State::Opening;
    std::string openError;
    FrameGeometry geometry{};
    std::unique_ptr<FrameQueue> queue;  ///< set once, before the state becomes Open
    bool abandoned = false;

    void Announce(State next, std::string error) {
        const std::lock_guard lock(mutex);
        state = next;
        openError = std::move(error);
        changed.notify_one();
    }
};

namespace {

/// Fills the queue from one pass over the input. False when the queue was closed; `pictures` counts what was read.
/// `asked` is when the next picture was asked for, 0 before it has been: opening the input again is a part of the time
/// that it takes to bring the first picture of a round.
bool ReadThrough(PictureReader& reader, FrameQueue& queue, std::uint64_t& pictures, std::int64_t& asked) {
    QueuedFrame frame;
    while (queue.TakeEmpty(frame)) {
        asked = asked == 0 ? SteadyTicks() : asked;
        if (!(frame.skipped ? reader.SkipPicture(frame.nv12) : reader.ReadPicture(frame.nv12))) {
            queue.PutEmpty(std::move(frame));
            return true;
        }
        frame.asked = std::exchange(asked, 0);
        frame.arrived = SteadyTicks();
        queue.PutFilled(std::move(frame));
        ++pictures;
    }
    return false;
}

}  // namespace

PictureInput::PictureInput(Opener opener, bool loop, std::size_t capacity) : m_shared(std::make_shared<Shared>()) {
    std::thread([shared = m_shared, open = std::move(opener), loop, capacity] {
        Run(shared, open, loop, capacity);
    }).detach();
}

PictureInput::~PictureInput() {
    const std::lock_guard lock(m_shared->mutex);
    m_shared->abandoned = true;
    if (m_shared->queue) {
        m_shared->queue->Close();
    }
}

PictureInput::State PictureInput::WaitUntilOpen(std::chrono::milliseconds patience) {
    std::unique_lock lock(m_shared->mutex);
    m_shared->changed.wait_for(lock, patience, [this] { return m_shared->state != State::Opening; });
    return m_shared->state;
}

const FrameGeometry& PictureInput::Geometry() const noexcept {
    return m_shared->geometry;
}

FrameQueue& PictureInput::Queue() noexcept {
    return *m_shared->queue;
}

std::string PictureInput::Error() const {
    const std::lock_guard lock(m_shared->mutex);
    return m_shared->queue ? m_shared->queue->Error() : m_shared->openError;
}

void PictureInput::Run(const std::shared_ptr<Shared>& shared, const Opener& opener, bool loop, std::size_t capacity) {
    FrameQueue* queue = nullptr;
    const auto fail = [&shared, &queue](const char* sentence) {
        if (queue == nullptr) {
            shared->Announce(State::Failed, sentence);
        } else {
            queue->Finish(sentence);
        }
    };
    try {
        std::unique_ptr<PictureReader> reader = opener();
        shared->geometry = reader->Geometry();
        auto frames = std::make_unique<FrameQueue>(capacity, FrameBytes(shared->geometry));
        queue = frames.get();
        {
            const std::lock_guard lock(shared->mutex);
            shared->queue = std::move(frames);
            if (shared->abandoned) {
                return;
            }
        }
        shared->Announce(State::Open, {});
        std::uint64_t pictures = 0;
        std::int64_t asked = 0;
        while (ReadThrough(*reader, *queue, pictures, asked) && loop && pictures != 0) {
            pictures = 0;
            reader = opener();
            // The buffers in the queue and the stream of the camera have the size of the first round.
            if (reader->Geometry() != shared->geometry) {
                throw InputError("the input changed its size or rate between two rounds");
            }
        }
        queue->Finish({});
    } catch (const std::bad_alloc&) {
        fail("not enough memory for the pictures of this input");
    } catch (const std::exception& error) {
        fail(error.what());
    }
}

}  // namespace ravlo
