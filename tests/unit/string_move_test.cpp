#include "stream/string_move.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace ravlo {
namespace {

constexpr std::uint8_t kUntouched = 0xEE;

/// Bytes that tell their place: a shifted copy is no copy.
std::vector<std::uint8_t> NumberedBytes(std::size_t count) {
    std::vector<std::uint8_t> bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::uint8_t>((i * 7 + i / 251) % 239);
    }
    return bytes;
}

class StringMoveSizes : public testing::TestWithParam<std::size_t> {};

TEST_P(StringMoveSizes, CopiesAllBytesAndNoOthersWhereverTheBlocksLie) {
    const std::size_t count = GetParam();
    for (const std::size_t from : {0, 1, 16, 63}) {
        for (const std::size_t to : {0, 1, 16, 63}) {
            const std::vector<std::uint8_t> source = NumberedBytes(from + count + 1);
            std::vector<std::uint8_t> destination(to + count + 64, kUntouched);
            StringMove(destination.data() + to, source.data() + from, count);

            std::vector<std::uint8_t> expected(to, kUntouched);
            expected.insert(expected.end(), source.begin() + static_cast<std::ptrdiff_t>(from), source.end() - 1);
            expected.insert(expected.end(), 64, kUntouched);
            ASSERT_EQ(destination, expected) << "from offset " << from << " to offset " << to;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, StringMoveSizes, testing::Values(0, 1, 63, 64, 4096, 32767, 32768, 100'001));

}  // namespace
}  // namespace ravlo
