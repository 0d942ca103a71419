// SPDX-License-Identifier: Apache-2.0
// Texts of devices as clients get them. Records, the saved state and the segments keep the bytes of the device.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace tavstrg {

// Makes a text valid UTF-8 that an XML document may contain, without control characters and without blanks at its ends.
// Text that is so already stays as it is. In other text each byte that is not UTF-8, and each control character or
// character that XML forbids, becomes a "?"; a tab or an end of a line becomes a blank. The result is never longer than
// the text. Writes it to out, which must not overlap the text, cut at a whole character to out.size() - 1 bytes, and
// terminates it. Returns the bytes written without the terminator; nothing is written where out is empty.
size_t cleanText(std::string_view text, std::span<char> out);

// The text of a device as it is published: the text itself, or with the option clean-text the cleaned one in buffer,
// which must live as long as the result is used.
const char *publishedText(const char *text, std::span<char> buffer);

} // namespace tavstrg
