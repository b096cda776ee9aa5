#include "rvsetup/install/locations.h"

#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <cstddef>
#include <memory>

#include "common/wide_text.h"
#include "rvsetup/system/camera_names.h"

namespace ravlo {
namespace {

struct TaskMemoryDeleter {
    void operator()(wchar_t* memory) const noexcept { CoTaskMemFree(memory); }
};

}  // namespace

std::optional<Places> FindPlaces() {
    wchar_t* found = nullptr;
    const HRESULT hr = SHGetKnownFolderPath(FOLDERID_ProgramFiles, KF_FLAG_DEFAULT, nullptr, &found);
    const std::unique_ptr<wchar_t, TaskMemoryDeleter> folder(found);
    if (FAILED(hr) || !folder) {
        return std::nullopt;
    }
    return Places{ToUtf8(folder.get()) + "\\Ravlo", kCameraLogFolder};
}

std::string OwnFolder() {
    constexpr std::size_t kLongestPath = 32768;
    std::wstring path(kLongestPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    const std::size_t end = path.rfind(L'\\');
    return end == std::wstring::npos ? std::string() : ToUtf8(path.substr(0, end));
}

}  // namespace ravlo
