// SPDX-License-Identifier: Apache-2.0
#include "vm/checks.h"

#include <cstdio>

namespace vm {
namespace {

int failed = 0;

// One line, whatever a device put into its texts.
std::string printable(const std::string &text)
{
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, byte < 0x20 || byte > 0x7E ? "\\x%02X" : "%c", byte);
        result += escaped;
    }
    return result;
}

} // namespace

void check(const std::string &what, const std::string &expected, const std::string &got)
{
    if (expected == got) {
        std::printf("PASS %s: [%s]\n", what.c_str(), printable(got).c_str());
    } else {
        ++failed;
        std::printf("FAIL %s: expected [%s], got [%s]\n", what.c_str(), printable(expected).c_str(),
                    printable(got).c_str());
    }
    std::fflush(stdout);
}

void check(const std::string &what, bool expected, bool got)
{
    check(what, std::string(expected ? "yes" : "no"), std::string(got ? "yes" : "no"));
}

void check(const std::string &what, size_t expected, size_t got)
{
    check(what, std::to_string(expected), std::to_string(got));
}

int failures()
{
    return failed;
}

} // namespace vm
