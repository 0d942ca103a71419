// SPDX-License-Identifier: Apache-2.0
// The results of the test inside the virtual machine: one line on standard output per check.
#pragma once

#include <string>

namespace vm {

// "PASS what: value", or "FAIL what: expected [...], got [...]".
void check(const std::string &what, const std::string &expected, const std::string &got);
void check(const std::string &what, bool expected, bool got);
void check(const std::string &what, size_t expected, size_t got);

// How many checks have failed.
int failures();

} // namespace vm
