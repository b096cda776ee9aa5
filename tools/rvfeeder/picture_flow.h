#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "rvfeeder/frame_clock.h"
#include "rvfeeder/picture_input.h"

namespace ravlo {

/// The pictures of one input, each at its time, and none while nobody wants them: an input that can wait then stands
/// still and later goes on with the next picture; a live one is read on at its own pace and thrown away. One thread
/// uses it. Times are steady, in units of 100 ns.
class PictureFlow {
public:
    /// Starts reading at once. `live` input does not wait while nobody wants its pictures.
    PictureFlow(PictureInput::Opener opener, bool loop, bool live);

    enum class Kind : std::uint8_t {
        Opening,  ///< the input has said only now what it holds, or not yet: see Geometry()
        Failed,   ///< it cannot be opened: see Error()
        Silent,   ///< it has brought no picture within the patience given
        Paused,   ///< it stands still, because nobody wants pictures
        Wait,     ///< the next picture is due in `wait`
        Send,     ///< the picture `frame` is due: send it, then call Done
        Late,     ///< a picture was dropped: its moment had passed
        Drained,  ///< a picture was dropped: nobody wanted it
        End,      ///< no picture follows: see Error()
    };
    struct Step {
        Kind kind;
        std::int64_t wait = 0;         ///< for Wait
        QueuedFrame* frame = nullptr;  ///< for Send; lives until Done
    };

    /// What comes next at time `now`, waiting up to `patience` for the input to bring it. Ask again after every answer
    /// but Failed and End.
    Step Next(std::int64_t now, bool wanted, std::chrono::milliseconds patience);

    /// The picture of the last Send has been sent, or given up.
    void Done();

    /// Set once the input is open.
    const std::optional<FrameGeometry>& Geometry() const noexcept { return m_geometry; }

    /// Number of the picture that Send gave last, counted from 1 over all that the input brought.
    std::uint64_t PictureNumber() const noexcept { return m_number; }

    std::uint64_t ClockRestarts() const noexcept { return m_clock ? m_clock->Restarts() : 0; }

    /// Why the input could not be opened or ended early; empty when it ended as it should.
    std::string Error() const { return m_input.Error(); }

private:
    Kind Open(std::chrono::milliseconds patience);
    void Follow(bool wanted);
    Step Judge(std::int64_t now, bool wanted);
    void Discard();

    PictureInput m_input;
    bool m_live;
    bool m_wanted = true;
    std::optional<FrameGeometry> m_geometry;
    std::optional<FrameClock> m_clock;
    std::optional<QueuedFrame> m_frame;
    std::uint64_t m_number = 0;
};

}  // namespace ravlo
