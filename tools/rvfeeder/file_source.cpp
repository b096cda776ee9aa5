#include "rvfeeder/file_source.h"

#include <windows.h>

#include <algorithm>
#include <utility>

#include "common/wide_text.h"
#include "pipe/overlapped_io.h"
#include "platform/unique_handle.h"
#include "rvfeeder/input_path.h"

namespace ravlo {
namespace {

/// One system call reads at most this much; keeps the length in range of its 32-bit argument.
constexpr std::size_t kMaxReadBytes = std::size_t{1} << 24;

class HandleSource final : public ByteSource {
public:
    /// `owned` is closed at the end; without it `handle` is borrowed.
    HandleSource(HANDLE handle, UniqueFile owned, std::string name)
        : m_handle(handle), m_owned(std::move(owned)), m_name(std::move(name)) {}

    std::size_t Read(std::uint8_t* buffer, std::size_t length) override {
        DWORD got = 0;
        const auto wanted = static_cast<DWORD>(std::min(length, kMaxReadBytes));
        if (ReadFile(m_handle, buffer, wanted, &got, nullptr)) {
            return got;
        }
        const DWORD error = GetLastError();
        if (IsPeerGone(error) || error == ERROR_HANDLE_EOF) {
            return 0;  // the writer of a pipe has finished
        }
        throw InputError("cannot read " + m_name + ": " + SystemErrorText(error));
    }

    std::optional<std::uint64_t> TotalBytes() const noexcept override {
        LARGE_INTEGER size{};
        // Standard input may be a file that somebody has read from before; only an own one begins at its beginning.
        if (!m_owned || GetFileType(m_handle) != FILE_TYPE_DISK || !GetFileSizeEx(m_handle, &size)) {
            return std::nullopt;
        }
        return static_cast<std::uint64_t>(size.QuadPart);
    }

private:
    HANDLE m_handle;
    UniqueFile m_owned;
    std::string m_name;
};

std::unique_ptr<ByteSource> OpenStandardInput() {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    if (input == nullptr || input == INVALID_HANDLE_VALUE) {
        throw InputError("there is no standard input to read from");
    }
    DWORD mode = 0;
    if (GetConsoleMode(input, &mode)) {
        throw InputError(
            "standard input is the keyboard; pipe pictures into it, for example "
            "ffmpeg -i film.mp4 -pix_fmt yuv420p -f yuv4mpegpipe - | rvfeeder -");
    }
    return std::make_unique<HandleSource>(input, UniqueFile(), "standard input");
}

/// Opening a folder fails as if rights were missing, which sends people the wrong way.
std::string WhyNotOpened(const std::wstring& path, DWORD error) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    const bool isFolder = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return isFolder ? "it is a folder; give one file" : SystemErrorText(error);
}

}  // namespace

bool IsStandardInputAFile() noexcept {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    return input != nullptr && input != INVALID_HANDLE_VALUE && GetFileType(input) == FILE_TYPE_DISK;
}

std::unique_ptr<ByteSource> OpenByteSource(const std::string& path) {
    if (path == kStandardInputPath) {
        return OpenStandardInput();
    }
    const std::wstring widePath = ToWide(path);
    // Whoever serves a pipe must not act in the name of the user who reads from it.
    const DWORD flags = IsNamedPipePath(path) ? SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS : FILE_FLAG_SEQUENTIAL_SCAN;
    UniqueFile file(
        CreateFileW(widePath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, flags, nullptr));
    if (!file) {
        const DWORD error = GetLastError();
        throw InputError("cannot open " + path + ": " + WhyNotOpened(widePath, error));
    }
    const HANDLE handle = file.Get();
    return std::make_unique<HandleSource>(handle, std::move(file), path);
}

}  // namespace ravlo
