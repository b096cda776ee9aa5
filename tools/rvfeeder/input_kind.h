#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace ravlo {

/// What an input is, by its first bytes.
enum class InputKind : std::uint8_t { Y4m, Png, Jpeg, Other };

/// Sixteen bytes are enough. An input too short for what it might have become is Other.
InputKind RecogniseInput(std::span<const std::uint8_t> firstBytes) noexcept;

/// For an input that is none of those that can be shown: what it is or begins with, and what to do, as a sentence.
std::string WhyNotShown(std::span<const std::uint8_t> firstBytes);

}  // namespace ravlo
