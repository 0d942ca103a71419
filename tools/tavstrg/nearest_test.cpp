// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/nearest.h"

#include <gtest/gtest.h>

namespace {

const std::vector<std::string> kNames = {"show",  "enum",  "get",     "call",      "classes",
                                         "watch", "check", "metrics", "dump-state"};

TEST(Nearest, FindsAMisspeltNameWithoutRegardToCase)
{
    for (const auto &[given, meant] : {std::pair{"shwo", "show"},
                                       {"SHOW", "show"},
                                       {"whatch", "watch"},
                                       {"metric", "metrics"},
                                       {"dumpstate", "dump-state"},
                                       {"clases", "classes"}}) {
        EXPECT_EQ(tool::nearest(given, kNames), meant);
    }
}

TEST(Nearest, FindsNothingForANameThatIsFarFromAll)
{
    for (const char *given : {"", "x", "inventory", "zz"}) {
        EXPECT_EQ(tool::nearest(given, kNames), "") << given;
    }
    EXPECT_EQ(tool::nearest(std::string(100000, 'a'), kNames), "") << "and takes no time for it";
}

} // namespace
