#pragma once

#include <string_view>

namespace ravlo {

/// What the user types for standard input.
inline constexpr std::string_view kStandardInputPath = "-";

/// True for the path of a named pipe, on this machine or another: \\.\pipe\name, \\server\pipe\name, with slashes of
/// either kind and letters of either case.
bool IsNamedPipePath(std::string_view path) noexcept;

}  // namespace ravlo
