// The preview's painting, on bitmaps, and its window. A window needs a desktop, which no test run has: a child process
// opens it on a desktop of its own that Wine's explorer makes, with a graphics driver that draws nowhere.
#include "rvhost/preview_window.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/unique_handle.h"
#include "rvhost/preview_painter.h"
#include "support/handles.h"
#include "support/import_hooks.h"
#include "support/process.h"
#include "tools/program.h"

namespace ravlo::test {
namespace {

constexpr FrameGeometry kSmall{320, 180, 30, 1};
constexpr wchar_t kPreviewClass[] = L"RavloPreview";

/// One frame of a single colour.
std::vector<std::uint8_t> Plain(const FrameGeometry& geometry, std::uint8_t luma, std::uint8_t cb, std::uint8_t cr) {
    std::vector<std::uint8_t> nv12(FrameBytes(geometry), luma);
    for (std::size_t i = LumaBytes(geometry); i < nv12.size(); i += 2) {
        nv12[i] = cb;
        nv12[i + 1] = cr;
    }
    return nv12;
}

std::vector<std::uint8_t> Red() {
    return Plain(kSmall, 63, 102, 240);
}

/// A bitmap in memory to paint on, pink to begin with.
class Paper {
public:
    Paper(int width, int height) : m_dc(CreateCompatibleDC(nullptr)) {
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof(info.bmiHeader);
        info.bmiHeader.biWidth = width;
        info.bmiHeader.biHeight = -height;
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        void* bits = nullptr;
        m_bitmap = CreateDIBSection(m_dc, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
        m_before = SelectObject(m_dc, m_bitmap);
        const RECT all{0, 0, width, height};
        const HBRUSH brush = CreateSolidBrush(RGB(255, 0, 255));
        FillRect(m_dc, &all, brush);
        DeleteObject(brush);
    }
    Paper(const Paper&) = delete;
    Paper& operator=(const Paper&) = delete;
    ~Paper() {
        SelectObject(m_dc, m_before);
        DeleteObject(m_bitmap);
        DeleteDC(m_dc);
    }

    HDC Dc() const { return m_dc; }
    /// As 0xBBGGRR.
    COLORREF At(int x, int y) const { return GetPixel(m_dc, x, y); }

private:
    HDC m_dc;
    HBITMAP m_bitmap = nullptr;
    HGDIOBJ m_before = nullptr;
};

TEST(PreviewPainter, IsBlackBeforeTheFirstPicture) {
    PreviewPainter painter(kSmall);
    const Paper paper(320, 180);
    painter.Paint(paper.Dc(), 320, 180);
    EXPECT_EQ(paper.At(0, 0), RGB(0, 0, 0));
    EXPECT_EQ(paper.At(319, 179), RGB(0, 0, 0));
}

TEST(PreviewPainter, ShowsThePictureInItsColoursWithTheStripBelow) {
    PreviewPainter painter(kSmall);
    painter.Show({Red(), {PictureKind::Live, 30, 0, 1, std::nullopt}});
    const Paper paper(320, 180);
    painter.Paint(paper.Dc(), 320, 180);
    EXPECT_EQ(paper.At(0, 0), RGB(255, 1, 0));
    EXPECT_EQ(paper.At(319, 100), RGB(255, 1, 0));
    EXPECT_EQ(paper.At(0, 179), RGB(22, 128, 57));
    EXPECT_EQ(paper.At(319, 179), RGB(109, 20, 20));
}

TEST(PreviewPainter, KeepsTheProportionsWithBlackBars) {
    PreviewPainter painter(kSmall);
    painter.Show({Red(), {PictureKind::Live, 30, 0, 1, std::nullopt}});
    const Paper tall(320, 300);
    painter.Paint(tall.Dc(), 320, 300);
    EXPECT_EQ(tall.At(160, 59), RGB(0, 0, 0));
    EXPECT_EQ(tall.At(160, 61), RGB(255, 1, 0));
    EXPECT_EQ(tall.At(319, 239), RGB(109, 20, 20));
    EXPECT_EQ(tall.At(160, 240), RGB(0, 0, 0));
    EXPECT_EQ(tall.At(160, 299), RGB(0, 0, 0));

    const Paper wide(1000, 360);
    painter.Paint(wide.Dc(), 1000, 360);
    EXPECT_EQ(wide.At(179, 10), RGB(0, 0, 0));
    EXPECT_EQ(wide.At(181, 10), RGB(255, 1, 0));
    EXPECT_EQ(wide.At(818, 10), RGB(255, 1, 0));
    EXPECT_EQ(wide.At(820, 10), RGB(0, 0, 0));
}

TEST(PreviewPainter, ObjectsOfTheSystemAreGivenBack) {
    const auto paint = [] {
        PreviewPainter painter(kSmall);
        const Paper paper(400, 400);
        for (int size = 10; size < 400; size += 10) {
            painter.Paint(paper.Dc(), size, size);
        }
    };
    paint();
    const DWORD before = GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS);
    paint();
    EXPECT_EQ(GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS), before);
}

TEST(PreviewPainter, WithoutMemoryForABufferItPaintsDirectly) {
    PreviewPainter painter(kSmall);
    painter.Show({Red(), {PictureKind::Live, 30, 0, 1, std::nullopt}});
    RAVLO_HOOK(CreateCompatibleBitmap) bitmaps(GetModuleHandleW(nullptr));
    bitmaps.FailEvery(nullptr);
    const Paper paper(320, 180);
    painter.Paint(paper.Dc(), 320, 180);
    EXPECT_EQ(bitmaps.Count(), 1U);
    EXPECT_EQ(paper.At(0, 0), RGB(255, 1, 0));
}

/// What the constructor says when it fails; empty when it does not.
std::string FailureOf(HANDLE closed) {
    try {
        const PreviewWindow window(kSmall, "test", closed);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return {};
}

TEST(PreviewWindow, WithoutADesktopTheConstructorSaysSo) {
    const UniqueObject closed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    RAVLO_HOOK(CreateWindowExW) windows(GetModuleHandleW(nullptr));
    windows.FailEvery(nullptr, ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_EQ(FailureOf(closed.Get()), "no window can be opened here: Invalid window handle (error 1400)");
    EXPECT_EQ(windows.Count(), 1U);
    EXPECT_EQ(WaitForSingleObject(closed.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST(PreviewWindow, WithoutAWindowClassTheConstructorSaysSo) {
    const UniqueObject closed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    RAVLO_HOOK(RegisterClassExW) classes(GetModuleHandleW(nullptr));
    classes.FailEvery(ATOM{0}, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_NE(FailureOf(closed.Get()).find("no window can be opened here: "), std::string::npos);
}

/// The only preview window of this process; null when there is none.
HWND FindPreview() {
    return FindWindowW(kPreviewClass, nullptr);
}

bool IsSignalled(const UniqueObject& event, DWORD milliseconds) {
    return WaitForSingleObject(event.Get(), milliseconds) == WAIT_OBJECT_0;
}

/// Opens a preview, sends its window a message that a user causes, and expects it to count as closed.
void ExpectToClose(UINT message, WPARAM first) {
    const UniqueObject closed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    PreviewWindow preview(kSmall, "Kamera \xC3\xA9", closed.Get());
    const HWND window = FindPreview();
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(IsWindowVisible(window));
    EXPECT_FALSE(preview.IsClosed());
    preview.Offer(Red(), {PictureKind::Live, 30, 0, 1, std::nullopt});
    PostMessageW(window, message, first, 0);
    EXPECT_TRUE(IsSignalled(closed, kPatienceMs));
    EXPECT_TRUE(preview.IsClosed());
    EXPECT_FALSE(IsWindowVisible(window));
    preview.Offer(Red(), {PictureKind::Live, 30, 0, 2, std::nullopt});
}

/// A window opens with its title and its picture's size, other keys leave it open, and its end takes no user.
void ExpectAWindowOfThePicturesSize() {
    const UniqueObject closed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    {
        PreviewWindow preview(kSmall, "Kamera \xC3\xA9", closed.Get());
        const HWND window = FindPreview();
        ASSERT_NE(window, nullptr);
        std::array<wchar_t, 64> title{};
        GetWindowTextW(window, title.data(), static_cast<int>(title.size()));
        EXPECT_EQ(std::wstring(title.data()), L"Kamera \u00E9");
        RECT inner{};
        EXPECT_TRUE(GetClientRect(window, &inner));
        EXPECT_EQ(inner.right, 320);
        EXPECT_EQ(inner.bottom, 180);
        SendMessageW(window, WM_KEYDOWN, 'A', 0);
        EXPECT_FALSE(preview.IsClosed());
        preview.Offer(std::vector<std::uint8_t>(17), {});
        SendMessageW(window, WM_SIZE, SIZE_RESTORED, MAKELPARAM(500, 200));
    }
    EXPECT_EQ(FindPreview(), nullptr);
    EXPECT_FALSE(IsSignalled(closed, 0)) << "only a user closes";
}

/// A picture larger than the screen gets a window that fits.
void ExpectALargePictureToFitTheScreen() {
    const UniqueObject closed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const PreviewWindow preview({3840, 2160, 30, 1}, "large", closed.Get());
    RECT outer{};
    RECT inner{};
    EXPECT_TRUE(GetWindowRect(FindPreview(), &outer));
    EXPECT_TRUE(GetClientRect(FindPreview(), &inner));
    EXPECT_LE(outer.right - outer.left, GetSystemMetrics(SM_CXSCREEN));
    EXPECT_LE(outer.bottom - outer.top, GetSystemMetrics(SM_CYSCREEN));
    EXPECT_NEAR(inner.right * 9.0 / 16.0, inner.bottom, 1.0);
}

/// A window of the platform's own on a thread of its own: what is left of it is the platform's affair.
void OpenAndClosePlainWindow() {
    std::thread([] {
        const HWND window = CreateWindowExW(0, L"STATIC", L"plain", WS_OVERLAPPEDWINDOW, 0, 0, 320, 180, nullptr,
                                            nullptr, nullptr, nullptr);
        EXPECT_NE(window, nullptr);
        ShowWindow(window, SW_SHOWNORMAL);
        DestroyWindow(window);
    }).join();
}

void OpenAndClosePreview() {
    const UniqueObject closed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    PreviewWindow preview(kSmall, "test", closed.Get());
    preview.Offer(Red(), {});
}

constexpr int kRounds = 5;

/// How many handles the rounds leave behind, after one that may leave what is made once.
std::size_t HandlesLeftBy(void (*openAndClose)()) {
    openAndClose();
    const std::size_t before = SettledHandles();
    for (int i = 0; i < kRounds; ++i) {
        openAndClose();
    }
    const std::size_t after = SettledHandles();
    return after > before ? after - before : 0;
}

/// Newer versions of Wine keep some handles for each thread that ever had a window. A handle that the preview leaves each
/// time would come on top, once a round.
void ExpectNoHandleToStay() {
    const std::size_t plain = HandlesLeftBy(OpenAndClosePlainWindow);
    EXPECT_LT(HandlesLeftBy(OpenAndClosePreview), plain + kRounds);
}

/// Argument: the file that is to take what the expectations say.
RAVLO_ROLE(UsePreviewWindow) {
    if (_wfreopen(arguments.at(0).c_str(), L"w", stdout) == nullptr) {
        return 1;
    }
    ExpectAWindowOfThePicturesSize();
    ExpectALargePictureToFitTheScreen();
    ExpectToClose(WM_KEYDOWN, VK_ESCAPE);
    ExpectToClose(WM_CLOSE, 0);
    ExpectToClose(WM_SYSCOMMAND, SC_CLOSE);
    ExpectToClose(WM_ENDSESSION, TRUE);
    ExpectNoHandleToStay();
    std::printf("\nthe role is over\n");
    std::fflush(stdout);
    return 0;
}

/// Runs this program in a role on a desktop of its own for as long as the object lives.
class DesktopRole {
public:
    DesktopRole(const std::wstring& role, const std::wstring& argument) {
        std::wstring name = L"ravlo_preview_" + std::to_wstring(GetCurrentProcessId());
        std::array<wchar_t, 1040> program{};
        GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
        // Explorer starts on the desktop that it is to make: on one without a screen it would first wait for it.
        m_desktop = CreateDesktopW(name.c_str(), nullptr, nullptr, 0, GENERIC_ALL, nullptr);
        std::wstring commandLine = L"explorer.exe /desktop=" + name + L",1024x768,null \"" + program.data() +
                                   L"\" --role=" + role + L" \"" + argument + L"\"";
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        startup.lpDesktop = name.data();
        PROCESS_INFORMATION process{};
        if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                            &process)) {
            throw std::runtime_error("explorer does not start, error " + std::to_string(GetLastError()));
        }
        CloseHandle(process.hThread);
        m_explorer.Reset(process.hProcess);
    }
    DesktopRole(const DesktopRole&) = delete;
    DesktopRole& operator=(const DesktopRole&) = delete;
    ~DesktopRole() {
        // It would take ten seconds to end by itself.
        TerminateProcess(m_explorer.Get(), 0);
        CloseDesktop(m_desktop);
    }

private:
    HDESK m_desktop;
    UniqueObject m_explorer;
};

TEST(PreviewWindow, OpensShowsAndClosesOnADesktop) {
    const TemporaryFolder folder;
    const DesktopRole role(L"UsePreviewWindow", folder.File(L"said.txt"));
    const auto said = [&folder] { return folder.Read(L"said.txt"); };
    EXPECT_TRUE(WaitUntil([&said] { return said().find("the role is over") != std::string::npos; }, 40000)) << said();
    EXPECT_EQ(said().find("Failure"), std::string::npos) << said();
}

}  // namespace
}  // namespace ravlo::test
