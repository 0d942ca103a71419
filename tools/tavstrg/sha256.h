// SPDX-License-Identifier: Apache-2.0
// SHA-256 (FIPS 180-4): a page's Content-Security-Policy names its own script and style by it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tool {

using Sha256 = std::array<uint8_t, 32>;

Sha256 sha256(std::string_view text);

// "sha256-" and the hash in base 64, as a Content-Security-Policy writes it (Content Security Policy Level 3, 2.3.1).
std::string policyHash(std::string_view text);

} // namespace tool
