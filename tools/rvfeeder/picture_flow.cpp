#include "rvfeeder/picture_flow.h"

#include <cstddef>
#include <utility>

namespace ravlo {
namespace {

/// Enough to ride out a decoder that delivers unevenly, short enough that the picture stays recent.
constexpr std::size_t kPicturesAhead = 4;

}  // namespace

PictureFlow::PictureFlow(PictureInput::Opener opener, bool loop, bool live)
    : m_input(std::move(opener), loop, kPicturesAhead), m_live(live) {
}

PictureFlow::Step PictureFlow::Next(std::int64_t now, bool wanted, std::chrono::milliseconds patience) {
    if (!m_geometry) {
        return {Open(patience)};
    }
    Follow(wanted);
    if (!wanted && !m_live) {
        return {Kind::Paused};
    }
    if (!m_frame) {
        QueuedFrame frame;
        switch (m_input.Queue().TakeFilled(frame, patience)) {
            case FrameQueue::Take::Nothing:
                return {Kind::Silent};
            case FrameQueue::Take::End:
                return {Kind::End};
            case FrameQueue::Take::Frame:
                m_frame = std::move(frame);
                ++m_number;
                break;
        }
    }
    return Judge(now, wanted);
}

void PictureFlow::Done() {
    m_clock->Advance();
    Discard();
}

PictureFlow::Kind PictureFlow::Open(std::chrono::milliseconds patience) {
    const PictureInput::State state = m_input.WaitUntilOpen(patience);
    if (state == PictureInput::State::Open) {
        m_geometry = m_input.Geometry();
        m_clock.emplace(m_geometry->rateNumerator, m_geometry->rateDenominator);
    }
    return state == PictureInput::State::Failed ? Kind::Failed : Kind::Opening;
}

void PictureFlow::Follow(bool wanted) {
    if (wanted == m_wanted) {
        return;
    }
    m_wanted = wanted;
    if (wanted) {
        m_clock->Restart();  // the first picture goes out at once, and those after it in their own time
    }
    if (m_live) {
        m_input.Queue().SetSkipping(!wanted);
    }
}

PictureFlow::Step PictureFlow::Judge(std::int64_t now, bool wanted) {
    if (wanted && m_frame->skipped) {
        Discard();  // read past a moment ago; whoever has just begun to look need not wait for its time
        return {Kind::Drained};
    }
    const FrameStep step = m_clock->Judge(now, {m_frame->asked, m_frame->arrived});
    if (step.kind == FrameStep::Kind::Wait) {
        return {Kind::Wait, step.wait};
    }
    if (wanted && step.kind == FrameStep::Kind::Send) {
        return {Kind::Send, 0, &*m_frame};
    }
    Done();
    return {wanted ? Kind::Late : Kind::Drained};
}

void PictureFlow::Discard() {
    m_input.Queue().PutEmpty(std::move(*m_frame));
    m_frame.reset();
}

}  // namespace ravlo
