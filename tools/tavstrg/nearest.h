// SPDX-License-Identifier: Apache-2.0
// Suggestions for names that were misspelt.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tool {

// The candidate that differs least from the given name, without regard to case; empty if none is near enough to be
// meant: more than a third of its letters, and more than two, would have to be changed.
std::string nearest(std::string_view given, const std::vector<std::string> &candidates);

} // namespace tool
