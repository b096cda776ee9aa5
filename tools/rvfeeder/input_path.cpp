#include "rvfeeder/input_path.h"

#include <cstddef>

namespace ravlo {
namespace {

bool IsSlash(char character) noexcept {
    return character == '\\' || character == '/';
}

char Lower(char character) noexcept {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

/// Takes the text up to the next slash, and the slash, off the front; empty when there is no slash.
std::string_view TakeComponent(std::string_view& path) noexcept {
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (IsSlash(path[i])) {
            const std::string_view component = path.substr(0, i);
            path.remove_prefix(i + 1);
            return component;
        }
    }
    return {};
}

}  // namespace

bool IsNamedPipePath(std::string_view path) noexcept {
    constexpr std::string_view kPipe = "pipe";
    if (path.size() < 2 || !IsSlash(path[0]) || !IsSlash(path[1])) {
        return false;
    }
    path.remove_prefix(2);
    if (TakeComponent(path).empty()) {
        return false;
    }
    const std::string_view device = TakeComponent(path);
    if (device.size() != kPipe.size() || path.empty()) {
        return false;
    }
    for (std::size_t i = 0; i < device.size(); ++i) {
        if (Lower(device[i]) != kPipe[i]) {
            return false;
        }
    }
    return true;
}

}  // namespace ravlo
