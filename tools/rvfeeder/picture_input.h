#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "rvfeeder/frame_queue.h"
#include "rvfeeder/picture_reader.h"

namespace ravlo {

/// Reads pictures on a thread of its own, so that an input that stalls stops nothing else. One other thread uses it.
class PictureInput {
public:
    /// Opens the input from its beginning. Called on the reading thread; may throw InputError.
    using Opener = std::function<std::unique_ptr<PictureReader>()>;

    /// Starts reading at once, at most `capacity` pictures ahead. With `loop` the input is opened again at its end.
    PictureInput(Opener opener, bool loop, std::size_t capacity);
    PictureInput(const PictureInput&) = delete;
    PictureInput& operator=(const PictureInput&) = delete;
    /// Does not wait for the thread: a read from a silent standard input may never return.
    ~PictureInput();

    enum class State : std::uint8_t { Opening, Open, Failed };

    /// Waits up to `patience` for the input to say what it holds.
    State WaitUntilOpen(std::chrono::milliseconds patience);

    /// What the pictures look like. Only once the input is open.
    const FrameGeometry& Geometry() const noexcept;

    /// The pictures. Only once the input is open.
    FrameQueue& Queue() noexcept;

    /// Why the input could not be opened, or why it ended early; empty unless either happened.
    std::string Error() const;

private:
    struct Shared;

    static void Run(const std::shared_ptr<Shared>& shared, const Opener& opener, bool loop, std::size_t capacity);

    std::shared_ptr<Shared> m_shared;
};

}  // namespace ravlo
