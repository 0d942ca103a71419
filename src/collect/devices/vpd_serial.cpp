// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/vpd_serial.h"

#include <algorithm>

using namespace tavstrg;

namespace {

constexpr size_t kHeader = 4; // bytes before the content of a VPD page; its length is in the last two

// The content of a page, as much of it as there is; empty for another page.
std::span<const uint8_t> contentOf(std::span<const uint8_t> page, uint8_t code)
{
    if (page.size() < kHeader || page[1] != code) {
        return {};
    }
    const size_t length = size_t{page[2]} << 8 | page[3];
    return page.subspan(kHeader, std::min(length, page.size() - kHeader));
}

constexpr bool isBlankOrControl(char c)
{
    return (c >= '\0' && c <= ' ') || c == '\x7F';
}

} // namespace

std::string_view tavstrg::trimmedSerial(std::string_view text)
{
    const auto *const begin = std::find_if_not(text.begin(), text.end(), isBlankOrControl);
    text.remove_prefix(static_cast<size_t>(begin - text.begin()));
    text = text.substr(0, text.find('\0'));
    while (!text.empty() && isBlankOrControl(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string_view tavstrg::serialOfPage80(std::span<const uint8_t> page)
{
    const std::span<const uint8_t> content = contentOf(page, 0x80);
    return trimmedSerial({reinterpret_cast<const char *>(content.data()), content.size()});
}

std::string_view tavstrg::serialOfPage89(std::span<const uint8_t> page, std::array<char, kAtaSerialLength> &buffer)
{
    constexpr size_t kCommandAt = 56 - kHeader;  // COMMAND CODE: the command that gave the data
    constexpr size_t kIdentifyAt = 60 - kHeader; // the 512 bytes of its data
    constexpr uint8_t kIdentify = 0xEC;
    constexpr uint8_t kIdentifyPacket = 0xA1;
    const std::span<const uint8_t> content = contentOf(page, 0x89);
    if (content.size() < kIdentifyAt + kAtaSerialAt + kAtaSerialLength ||
        (content[kCommandAt] != kIdentify && content[kCommandAt] != kIdentifyPacket)) {
        return {};
    }
    const std::span<const uint8_t> field = content.subspan(kIdentifyAt + kAtaSerialAt, kAtaSerialLength);
    for (size_t i = 0; i < kAtaSerialLength; ++i) {
        buffer[i] = static_cast<char>(field[i ^ 1U]); // the first character of a word is its high byte
    }
    return trimmedSerial({buffer.data(), buffer.size()});
}

std::string_view tavstrg::serialOfIdentity(std::string_view identity)
{
    return identity.size() < kAtaSerialAt + kAtaSerialLength
               ? std::string_view()
               : trimmedSerial(identity.substr(kAtaSerialAt, kAtaSerialLength));
}
