// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <vector>

namespace compare {

// Of an even number of values the mean of the two in the middle; 0 of none.
inline double medianOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n == 0 ? 0 : n % 2 != 0 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

} // namespace compare
