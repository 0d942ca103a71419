// SPDX-License-Identifier: Apache-2.0
// FNV-1a, 64 bits: tells whether a text has changed. It protects against damage, not against intent.
#pragma once

#include <cstdint>
#include <string_view>

namespace tavstrg {

class Checksum {
public:
    constexpr void add(char c) { sum_ = (sum_ ^ static_cast<unsigned char>(c)) * kPrime; }
    constexpr void add(std::string_view text)
    {
        for (const char c : text) {
            add(c);
        }
    }
    constexpr uint64_t value() const { return sum_; }

private:
    static constexpr uint64_t kPrime = 0x100000001b3;
    uint64_t sum_ = 0xcbf29ce484222325;
};

constexpr uint64_t checksumOf(std::string_view text)
{
    Checksum sum;
    sum.add(text);
    return sum.value();
}
static_assert(checksumOf("a") == 0xaf63dc4c8601ec8c);

} // namespace tavstrg
