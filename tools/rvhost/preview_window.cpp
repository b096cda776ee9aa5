#include "rvhost/preview_window.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <future>
#include <stdexcept>
#include <thread>

#include "common/wide_text.h"
#include "platform/unique_handle.h"
#include "rvhost/preview_layout.h"
#include "rvhost/preview_painter.h"
#include "rvhost/preview_slot.h"

namespace ravlo {
namespace {

constexpr wchar_t kClassName[] = L"RavloPreview";
constexpr UINT kEnd = WM_APP;
constexpr UINT_PTR kLookTimer = 1;
/// The shortest period that the system offers for window timers, in ms.
constexpr UINT kLookPeriodMs = 10;
/// How long an ending Windows session is held back so that files are completed: the system waits five seconds.
constexpr DWORD kFarewellMs = 4000;

[[noreturn]] void ThrowNoWindow(DWORD error) {
    throw std::runtime_error("no window can be opened here: " + SystemErrorText(error));
}

/// From now on this thread sees real pixels, where the system can tell a thread so.
void SeeRealPixels() noexcept {
    const HMODULE user32 = GetModuleHandleW(L"user32.dll");
    using SetThreadAwareness = HANDLE(WINAPI*)(HANDLE);
    const FARPROC found = user32 == nullptr ? nullptr : GetProcAddress(user32, "SetThreadDpiAwarenessContext");
    if (found == nullptr) {
        return;
    }
    const auto set = reinterpret_cast<SetThreadAwareness>(reinterpret_cast<void*>(found));
    // DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2, or without "V2" on systems that do not know it yet.
    if (set(reinterpret_cast<HANDLE>(INT_PTR{-4})) == nullptr) {
        set(reinterpret_cast<HANDLE>(INT_PTR{-3}));
    }
}

/// Registers the window class for as long as it lives.
class WindowClass {
public:
    explicit WindowClass(WNDPROC procedure) {
        WNDCLASSEXW description{};
        description.cbSize = sizeof(description);
        description.style = CS_HREDRAW | CS_VREDRAW;
        description.lpfnWndProc = procedure;
        description.hInstance = GetModuleHandleW(nullptr);
        description.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
        description.hCursor = LoadCursorW(nullptr, IDC_ARROW);
        description.lpszClassName = kClassName;
        // A second preview in the same process shares the class with the first.
        if (RegisterClassExW(&description) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
            ThrowNoWindow(GetLastError());
        }
    }
    WindowClass(const WindowClass&) = delete;
    WindowClass& operator=(const WindowClass&) = delete;
    ~WindowClass() { UnregisterClassW(kClassName, GetModuleHandleW(nullptr)); }
};

}  // namespace

/// The window and the thread that it belongs to. The window exists from the constructor to the destructor; a user who
/// closes it only hides it, so that its handle stays good.
class PreviewWindow::Thread {
public:
    Thread(const FrameGeometry& geometry, const std::string& title, HANDLE closed);
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    ~Thread();

    void Offer(std::span<const std::uint8_t> nv12, const PreviewFacts& facts) noexcept;
    bool IsClosed() const noexcept { return m_isClosed.load(); }

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM first, LPARAM second) noexcept;

    void Run(const std::wstring& title, std::promise<void> opened) noexcept;
    void Open(const std::wstring& title);
    void SizeAndShow() noexcept;
    void HandleMessages() noexcept;
    LRESULT Handle(UINT message, WPARAM first, LPARAM second) noexcept;
    void ShowNewest() noexcept;
    void Paint() noexcept;
    void Close() noexcept;
    void EndSession() noexcept;

    const FrameGeometry m_geometry;
    const HANDLE m_closed;
    const UniqueObject m_ending;  ///< signalled once the window is no longer needed
    std::atomic<bool> m_isClosed{false};
    PreviewSlot m_slot;
    HWND m_window = nullptr;  ///< constant once the constructor has returned

    // The window's thread only.
    PreviewPicture m_picture;
    PreviewPainter m_painter;

    std::thread m_thread;
};

PreviewWindow::Thread::Thread(const FrameGeometry& geometry, const std::string& title, HANDLE closed)
    : m_geometry(geometry),
      m_closed(closed),
      m_ending(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_slot(static_cast<std::size_t>(FrameBytes(geometry))),
      m_painter(geometry) {
    m_picture.nv12.resize(static_cast<std::size_t>(FrameBytes(geometry)));
    std::promise<void> opened;
    std::future<void> result = opened.get_future();
    m_thread = std::thread(&Thread::Run, this, ToWide(title), std::move(opened));
    try {
        result.get();
    } catch (...) {
        m_thread.join();
        throw;
    }
}

PreviewWindow::Thread::~Thread() {
    SetEvent(m_ending.Get());
    PostMessageW(m_window, kEnd, 0, 0);
    m_thread.join();
}

void PreviewWindow::Thread::Offer(std::span<const std::uint8_t> nv12, const PreviewFacts& facts) noexcept {
    if (IsClosed() || nv12.size() != FrameBytes(m_geometry)) {
        return;
    }
    try {
        m_slot.Put(nv12, facts);
    } catch (const std::exception&) {
        return;  // no copy: the picture before stays
    }
}

void PreviewWindow::Thread::Run(const std::wstring& title, std::promise<void> opened) noexcept {
    try {
        SeeRealPixels();
        const WindowClass windowClass(&Thread::Procedure);
        Open(title);
        opened.set_value();
        HandleMessages();
    } catch (...) {
        // Only what comes before the window is open throws.
        opened.set_exception(std::current_exception());
    }
}

void PreviewWindow::Thread::Open(const std::wstring& title) {
    m_window = CreateWindowExW(0, kClassName, title.c_str(), WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT, 320,
                               240, nullptr, nullptr, GetModuleHandleW(nullptr), this);
    if (m_window == nullptr) {
        ThrowNoWindow(GetLastError());
    }
    // The window asks for pictures instead of being sent messages about them: timers yield to input and painting, so
    // that a window which cannot keep up with the camera still answers to its user. They also go on while the user
    // drags it.
    if (SetTimer(m_window, kLookTimer, kLookPeriodMs, nullptr) == 0) {
        const DWORD error = GetLastError();
        DestroyWindow(m_window);
        ThrowNoWindow(error);
    }
    SizeAndShow();
}

void PreviewWindow::Thread::SizeAndShow() noexcept {
    RECT outer{};
    RECT inner{};
    MONITORINFO monitor{};
    monitor.cbSize = sizeof(monitor);
    if (GetWindowRect(m_window, &outer) && GetClientRect(m_window, &inner) &&
        GetMonitorInfoW(MonitorFromWindow(m_window, MONITOR_DEFAULTTONEAREST), &monitor)) {
        const int frameWidth = outer.right - outer.left - inner.right;
        const int frameHeight = outer.bottom - outer.top - inner.bottom;
        RECT work = monitor.rcWork;
        if (IsRectEmpty(&work)) {  // some desktops without a screen tell of a monitor without an area
            work = {0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
        }
        const int width = std::min<int>(work.right - work.left - frameWidth, static_cast<int>(m_geometry.width));
        const int height = std::min<int>(work.bottom - work.top - frameHeight, static_cast<int>(m_geometry.height));
        const PreviewRectangle picture = FitPicture(m_geometry.width, m_geometry.height, width, height);
        const int outerWidth = picture.width + frameWidth;
        const int outerHeight = picture.height + frameHeight;
        SetWindowPos(m_window, nullptr, work.left + (work.right - work.left - outerWidth) / 2,
                     work.top + (work.bottom - work.top - outerHeight) / 2, outerWidth, outerHeight,
                     SWP_NOZORDER | SWP_NOACTIVATE);
    }
    ShowWindow(m_window, SW_SHOWNORMAL);
    UpdateWindow(m_window);
}

void PreviewWindow::Thread::HandleMessages() noexcept {
    MSG message{};
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        DispatchMessageW(&message);
    }
}

LRESULT CALLBACK PreviewWindow::Thread::Procedure(HWND window, UINT message, WPARAM first, LPARAM second) noexcept {
    if (message == WM_NCCREATE) {
        const auto* const creation = reinterpret_cast<const CREATESTRUCTW*>(second);
        auto* const self = static_cast<Thread*>(creation->lpCreateParams);
        self->m_window = window;
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    }
    auto* const self = reinterpret_cast<Thread*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    return self == nullptr ? DefWindowProcW(window, message, first, second) : self->Handle(message, first, second);
}

LRESULT PreviewWindow::Thread::Handle(UINT message, WPARAM first, LPARAM second) noexcept {
    switch (message) {
        case WM_TIMER:
            ShowNewest();
            return 0;
        case WM_PAINT:
            Paint();
            return 0;
        case WM_ERASEBKGND:
            return 1;  // painting covers everything
        case WM_KEYDOWN:
            if (first == VK_ESCAPE) {
                Close();
            }
            return 0;
        case WM_CLOSE:
            Close();
            return 0;
        case WM_ENDSESSION:
            if (first != FALSE) {
                EndSession();
            }
            return 0;
        case WM_DPICHANGED: {
            const RECT& wanted = *reinterpret_cast<const RECT*>(second);
            SetWindowPos(m_window, nullptr, wanted.left, wanted.top, wanted.right - wanted.left,
                         wanted.bottom - wanted.top, SWP_NOZORDER | SWP_NOACTIVATE);
            return 0;
        }
        case kEnd:
            DestroyWindow(m_window);
            return 0;
        case WM_DESTROY:
            PostQuitMessage(0);
            return 0;
        default:
            return DefWindowProcW(m_window, message, first, second);
    }
}

void PreviewWindow::Thread::ShowNewest() noexcept {
    // What nobody sees need not be converted.
    if (IsClosed() || IsIconic(m_window) || !m_slot.Take(m_picture)) {
        return;
    }
    try {
        m_painter.Show(m_picture);
    } catch (const std::exception&) {
        return;  // no memory for the overlay's text: the picture before stays
    }
    InvalidateRect(m_window, nullptr, FALSE);
    UpdateWindow(m_window);
}

void PreviewWindow::Thread::Paint() noexcept {
    PAINTSTRUCT paint{};
    RECT inner{};
    const HDC target = BeginPaint(m_window, &paint);
    if (target != nullptr && GetClientRect(m_window, &inner)) {
        m_painter.Paint(target, inner.right, inner.bottom);
    }
    EndPaint(m_window, &paint);
}

void PreviewWindow::Thread::Close() noexcept {
    if (!m_isClosed.exchange(true)) {
        ShowWindow(m_window, SW_HIDE);
        SetEvent(m_closed);
    }
}

void PreviewWindow::Thread::EndSession() noexcept {
    Close();
    WaitForSingleObject(m_ending.Get(), kFarewellMs);  // the process may be ended as soon as this returns
}

PreviewWindow::PreviewWindow(const FrameGeometry& geometry, const std::string& title, HANDLE closed)
    : m_thread(std::make_unique<Thread>(geometry, title, closed)) {
}

PreviewWindow::~PreviewWindow() = default;

void PreviewWindow::Offer(std::span<const std::uint8_t> nv12, const PreviewFacts& facts) noexcept {
    m_thread->Offer(nv12, facts);
}

bool PreviewWindow::IsClosed() const noexcept {
    return m_thread->IsClosed();
}

}  // namespace ravlo
