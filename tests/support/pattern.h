// A second implementation of the test pattern, to compare the module's picture with byte by byte.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace ravlo::test {

/// The test pattern of a sample index: eight vertical grey bars, stride equal to the width (8 or more), as
/// NV12.
std::vector<std::uint8_t> TestPattern(std::uint32_t index, std::uint32_t width, std::uint32_t height);

/// True when the bytes are exactly the test pattern of that sample index.
bool IsTestPattern(std::span<const std::uint8_t> bytes, std::uint32_t index, std::uint32_t width, std::uint32_t height);

/// The number of bars (0 to 7) by which these bytes are a shifted test pattern; nothing when they are none.
/// For tests that do not count samples.
std::optional<unsigned> TestPatternShift(std::span<const std::uint8_t> bytes, std::uint32_t width,
                                         std::uint32_t height);

}  // namespace ravlo::test
