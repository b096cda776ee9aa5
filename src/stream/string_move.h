#pragma once

#include <cstddef>

namespace ravlo {

/// Copies `count` bytes between blocks that do not overlap, with the processor's own string instruction where it is
/// fast: worth it from some kilobytes on. The instruction knows how much it will write and, unlike a loop of wide
/// moves, need not first read the lines that it overwrites; but it takes its time to begin, so that a single row is
/// copied faster without it. Elsewhere, and under memory checkers, which cannot see into it, this is memcpy.
void StringMove(void* destination, const void* source, std::size_t count) noexcept;

}  // namespace ravlo
