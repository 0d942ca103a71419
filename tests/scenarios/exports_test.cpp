// SPDX-License-Identifier: Apache-2.0
// The shared object is loaded into the broker's process: the symbols that it exports and the libraries that it needs
// are part of its behaviour.
#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kProvider = TAV_BINARY_DIR "/lib/libTAVStorageProvider.so";

std::vector<std::string> linesOf(const std::vector<std::string> &command)
{
    const process::Finished finished = process::run({.words = command, .err = process::Output::inherited});
    EXPECT_EQ(finished.status, 0) << testing::PrintToString(command);
    std::vector<std::string> lines;
    std::istringstream text(finished.out);
    for (std::string line; std::getline(text, line);) {
        line.erase(line.find_last_not_of("\n ") + 1);
        lines.push_back(line);
    }
    return lines;
}

std::string lastWord(const std::string &line)
{
    return line.substr(line.rfind(' ') + 1);
}

TEST(SharedObject, ExportsExactlyTheTwoFactories)
{
    std::vector<std::string> names;
    for (const std::string &line : linesOf({"nm", "-D", "--defined-only", kProvider})) {
        names.push_back(lastWord(line));
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre("TAVStorageProvider_Create_InstanceMI",
                                                     "TAVStorageProvider_Create_MethodMI"));
}

TEST(SharedObject, NeedsNothingButTheCRuntime)
{
    std::vector<std::string> needed;
    bool sanitized = false;
    for (const std::string &line : linesOf({"readelf", "-d", kProvider})) {
        if (line.find("(NEEDED)") != std::string::npos) {
            const auto open = line.find('[');
            needed.push_back(line.substr(open + 1, line.find(']') - open - 1));
            sanitized = sanitized || needed.back().find("san") != std::string::npos;
        }
    }
    if (sanitized) { // the sanitizers' runtime needs the C++ library
        EXPECT_THAT(needed, testing::Each(testing::AnyOf("libstdc++.so.6", "libgcc_s.so.1", "libc.so.6", "libm.so.6",
                                                         "ld-linux-x86-64.so.2", testing::HasSubstr("san"))));
        return;
    }
    EXPECT_THAT(needed, testing::IsSubsetOf({"libgcc_s.so.1", "libc.so.6", "ld-linux-x86-64.so.2"}));
}

TEST(SharedObject, IsBoundAtLoadAndReadOnlyAfterwards)
{
    std::string headers;
    for (const std::string &line : linesOf({"readelf", "-dlW", kProvider})) {
        headers += line + "\n";
    }
    EXPECT_THAT(headers, testing::HasSubstr("BIND_NOW"));
    EXPECT_THAT(headers, testing::HasSubstr("GNU_RELRO"));
    EXPECT_THAT(headers, testing::Not(testing::ContainsRegex("GNU_STACK[^\n]*RWE")));
}

} // namespace
