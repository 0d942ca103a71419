// SPDX-License-Identifier: Apache-2.0
// Text that is not the tool's own, in markup.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// A text for an element or a quoted attribute of HTML and XML: markup as references, and U+FFFD for each byte that is
// not UTF-8 and each character that XML forbids, controls the text, or changes its direction.
std::string escapedHtml(std::string_view text);

} // namespace tool
