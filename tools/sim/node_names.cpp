// SPDX-License-Identifier: Apache-2.0
#include "sim/node_names.h"

#include <array>
#include <charconv>

namespace sim {

namespace {

// The first 256 disks have 16 major numbers with 16 disks each.
NodeNumber diskNumber(std::string_view letters)
{
    unsigned n = 0;
    for (const char letter : letters) {
        if (letter < 'a' || letter > 'z' || n > 10000) {
            return {};
        }
        n = n * 26 + static_cast<unsigned>(letter - 'a' + 1);
    }
    --n;
    const unsigned group = n / 16 % 16;
    const unsigned major = group == 0 ? 8 : group < 8 ? 64 + group : 120 + group;
    return {true, major, n % 16 * 16 + (n / 256 << 8)};
}

NodeNumber ideNumber(char letter)
{
    constexpr std::array<unsigned, 6> kMajors{3, 22, 33, 34, 56, 57};
    const auto n = static_cast<unsigned>(letter - 'a');
    return n < 2 * kMajors.size() ? NodeNumber{true, kMajors[n / 2], n % 2 * 64} : NodeNumber{};
}

} // namespace

NodeNumber nodeNumber(std::string_view name)
{
    if (name.size() < 3) {
        return {};
    }
    const std::string_view kind = name.substr(0, 2);
    const std::string_view rest = name.substr(2);
    if (kind == "sd") {
        return diskNumber(rest);
    }
    if (kind == "hd") {
        return ideNumber(rest[0]);
    }
    unsigned n = 0;
    std::from_chars(rest.data(), rest.data() + rest.size(), n);
    if (kind == "sr") {
        return {true, 11, n};
    }
    return kind == "st" ? NodeNumber{false, 9, n} : kind == "sg" ? NodeNumber{false, 21, n} : NodeNumber{};
}

std::string diskName(unsigned n)
{
    std::string letters;
    for (unsigned rest = n + 1; rest != 0; rest = (rest - 1) / 26) {
        letters.insert(letters.begin(), static_cast<char>('a' + (rest - 1) % 26));
    }
    return "sd" + letters;
}

} // namespace sim
