// SPDX-License-Identifier: Apache-2.0
// Bytes as hexadecimal digits in lower case, as descriptions of machines and the kernel's names of disks have them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace sim {

inline std::string hexText(std::span<const uint8_t> bytes)
{
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

inline std::string hexText(std::string_view bytes)
{
    return hexText({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()});
}

} // namespace sim
