#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "rvhost/preview_facts.h"
#include "stream/geometry.h"

namespace ravlo {

/// A window that shows a stream's newest picture with a line about it. It lives on a thread of its own, so that the
/// thread which pulls samples never waits for painting.
class PreviewWindow {
public:
    /// Opens the window; it is on the screen when this returns. `title` is UTF-8. `closed` is borrowed, must outlive
    /// this object, and is signalled when the user closes the window. Throws std::runtime_error with a sentence when no
    /// window can be opened, for instance where there is no desktop.
    PreviewWindow(const FrameGeometry& geometry, const std::string& title, HANDLE closed);
    PreviewWindow(const PreviewWindow&) = delete;
    PreviewWindow& operator=(const PreviewWindow&) = delete;

    /// Closes the window without signalling `closed`.
    ~PreviewWindow();

    /// Hands over one packed NV12 frame of the geometry; it is copied. A picture that the window has not yet begun to
    /// draw is replaced: the newest one wins. One thread at a time. Frames of another size are ignored.
    void Offer(std::span<const std::uint8_t> nv12, const PreviewFacts& facts) noexcept;

    /// Any thread: true once the user has closed the window.
    bool IsClosed() const noexcept;

private:
    class Thread;
    std::unique_ptr<Thread> m_thread;
};

}  // namespace ravlo
