// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/nearest.h"

#include "tavstrg/words.h"

#include <algorithm>
#include <cstddef>

namespace tool {
namespace {

// Letters to insert, remove or replace, or neighbours to swap (optimal string alignment).
size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                d[i][j] = i + j;
                continue;
            }
            const bool same = lower(a[i - 1]) == lower(b[j - 1]);
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1])) {
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
            }
        }
    }
    return d[a.size()][b.size()];
}

} // namespace

std::string nearest(std::string_view given, const std::vector<std::string> &candidates)
{
    constexpr size_t kLongest = 64; // a longer text is no misspelt name
    std::string best;
    size_t least = given.size();
    for (const std::string &candidate : candidates) {
        if (given.size() > kLongest) {
            break;
        }
        const size_t changes = distance(given, candidate);
        if (changes < least && changes <= std::max<size_t>(2, candidate.size() / 3)) {
            least = changes;
            best = candidate;
        }
    }
    return best;
}

} // namespace tool
