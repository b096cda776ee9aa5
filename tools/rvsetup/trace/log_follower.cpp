#include "rvsetup/trace/log_follower.h"

#include <deque>
#include <iterator>

#include "platform/unique_handle.h"
#include "rvsetup/trace/log_files.h"
#include "trace/line_layout.h"

namespace ravlo {
namespace {

constexpr DWORD kBlockBytes = 64 * 1024;
constexpr std::uint64_t kFarthestBytes = 64ULL * 1024 * 1024;

bool SeekTo(HANDLE file, std::uint64_t offset) noexcept {
    LARGE_INTEGER position{};
    position.QuadPart = static_cast<LONGLONG>(offset);
    return SetFilePointerEx(file, position, nullptr, FILE_BEGIN) != FALSE;
}

}  // namespace

bool LogFollower::Look(HANDLE file, std::uint64_t& size) {
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(file, &info)) {
        return false;
    }
    size = (std::uint64_t{info.nFileSizeHigh} << 32) | info.nFileSizeLow;
    const Identity identity{info.dwVolumeSerialNumber, (std::uint64_t{info.nFileIndexHigh} << 32) | info.nFileIndexLow};
    if (!(identity == m_identity) || size < m_next) {
        m_next = 0;
        m_splitter.TakeRest();
        m_identity = identity;
    }
    return true;
}

std::vector<std::string> LogFollower::LastLines(std::size_t count, const LineTest& isWanted) {
    const UniqueFile file(OpenSharedFile(m_path));
    std::uint64_t size = 0;
    m_exists = file && Look(file.Get(), size);
    if (!m_exists) {
        return {};
    }
    const std::uint64_t window = isWanted ? kFarthestBytes : (std::uint64_t{count} + 1) * kLineCapacity;
    m_next = size > window ? size - window : 0;
    bool isCut = m_next != 0;
    std::deque<std::string> last;
    ReadOn(file.Get(), [&](std::string&& line) {
        if (std::exchange(isCut, false) || (isWanted && !isWanted(line))) {
            return;  // the first one's beginning was not read
        }
        last.push_back(std::move(line));
        if (last.size() > count) {
            last.pop_front();
        }
    });
    return {std::make_move_iterator(last.begin()), std::make_move_iterator(last.end())};
}

std::vector<std::string> LogFollower::NewLines() {
    std::vector<std::string> lines;
    const UniqueFile file(OpenSharedFile(m_path));
    std::uint64_t size = 0;
    m_exists = file && Look(file.Get(), size);
    if (m_exists && size > m_next) {
        ReadOn(file.Get(), [&lines](std::string&& line) { lines.push_back(std::move(line)); });
    }
    return lines;
}

void LogFollower::ReadOn(HANDLE file, const std::function<void(std::string&&)>& take) {
    if (!SeekTo(file, m_next)) {
        return;
    }
    std::string block(kBlockBytes, '\0');
    DWORD read = 0;
    while (!IsSignalled(m_interrupt) && ReadFile(file, block.data(), kBlockBytes, &read, nullptr) && read != 0) {
        m_next += read;
        for (std::string& line : m_splitter.Add({block.data(), read})) {
            take(std::move(line));
        }
    }
}

}  // namespace ravlo
