#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace ravlo::bench {

/// The middle value, or the mean of the two in the middle; 0 for no values at all.
inline double Median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 != 0) {
        return *middle;
    }
    return (*std::max_element(values.begin(), middle) + *middle) / 2;
}

}  // namespace ravlo::bench
