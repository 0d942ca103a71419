// SPDX-License-Identifier: Apache-2.0
#include "sim/node_names.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

namespace sim {

namespace {

// 0 for "a", 26 for "aa"; nothing if these are not the letters of a disk.
std::optional<unsigned> diskIndex(std::string_view letters)
{
    unsigned n = 0;
    for (const char letter : letters) {
        if (letter < 'a' || letter > 'z' || n > 10000) {
            return std::nullopt;
        }
        n = n * 26 + static_cast<unsigned>(letter - 'a' + 1);
    }
    return n - 1;
}

// The first 256 disks have 16 major numbers with 16 disks each.
NodeNumber diskNumber(std::string_view letters)
{
    const std::optional<unsigned> index = diskIndex(letters);
    if (!index) {
        return {};
    }
    const unsigned n = *index;
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

// Names with a number; dynamic majors as a server of 2025 has them.
NodeNumber numberedNode(std::string_view name)
{
    const auto numberAfter = [name](size_t at) {
        unsigned n = 0;
        std::from_chars(name.data() + std::min(at, name.size()), name.data() + name.size(), n);
        return n;
    };
    if (name.starts_with("mmcblk")) {
        return {true, 179, numberAfter(6) * 8};
    }
    const size_t space = name.find('n', 4);
    return space == name.npos ? NodeNumber{false, 240, numberAfter(4)}
                              : NodeNumber{true, 259, numberAfter(4) * 16 + numberAfter(space + 1)};
}

} // namespace

NodeNumber nodeNumber(std::string_view name)
{
    if (name.size() < 3) {
        return {};
    }
    if (name.starts_with("nvme") || name.starts_with("mmcblk")) {
        return numberedNode(name);
    }
    const std::string_view kind = name.substr(0, 2);
    const std::string_view rest = name.substr(2);
    if (kind == "sd") {
        return diskNumber(rest);
    }
    if (kind == "vd") {
        const std::optional<unsigned> index = diskIndex(rest);
        return index ? NodeNumber{true, 254, *index * 16} : NodeNumber{};
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
