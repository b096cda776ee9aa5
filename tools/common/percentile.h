#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace ravlo {

/// The smallest value that at least `percent` of all values do not exceed (nearest rank); 0 for no values at all.
/// `percent` is 1..100.
inline std::int64_t Percentile(std::vector<std::int64_t> values, std::size_t percent) {
    if (values.empty()) {
        return 0;
    }
    const std::size_t rank = (values.size() * percent + 99) / 100 - 1;
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

}  // namespace ravlo
