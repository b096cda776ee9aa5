#include "rvfeeder/file_source.h"

#include <windows.h>

#include <algorithm>
#include <utility>

#include "common/wide_text.h"
#include "platform/unique_handle.h"

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
        if (error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF) {
            return 0;  // the writer of a pipe has finished
        }
        throw InputError("cannot read " + m_name + ": " + SystemErrorText(error));
    }

private:
    HANDLE m_handle;
    UniqueFile m_owned;
    std::string m_name;
};

}  // namespace

std::unique_ptr<ByteSource> OpenByteSource(const std::string& path) {
    if (path == "-") {
        const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
        if (input == nullptr || input == INVALID_HANDLE_VALUE) {
            throw InputError("there is no standard input to read from");
        }
        return std::make_unique<HandleSource>(input, UniqueFile(), "standard input");
    }
    UniqueFile file(CreateFileW(ToWide(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file) {
        throw InputError("cannot open " + path + ": " + SystemErrorText(GetLastError()));
    }
    const HANDLE handle = file.Get();
    return std::make_unique<HandleSource>(handle, std::move(file), path);
}

}  // namespace ravlo
