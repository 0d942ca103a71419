// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/colour.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

using namespace tool;

struct ColourCase {
    ColourWhen when;
    bool terminal;
    const char *term;
    const char *noColor;
    bool wanted;
};

void PrintTo(const ColourCase &given, std::ostream *out)
{
    *out << static_cast<int>(given.when) << (given.terminal ? " terminal " : " no terminal ")
         << (given.term == nullptr ? "unset" : given.term) << " NO_COLOR "
         << (given.noColor == nullptr ? "unset" : given.noColor);
}

class WantsColour : public testing::TestWithParam<ColourCase> {};

TEST_P(WantsColour, AsTheTerminalAndTheUserSay)
{
    const ColourCase &given = GetParam();
    EXPECT_EQ(wantsColour(given.when, given.terminal, given.term, given.noColor), given.wanted);
}

INSTANTIATE_TEST_SUITE_P(All, WantsColour,
                         testing::Values(ColourCase{ColourWhen::automatic, true, "xterm", nullptr, true},
                                         ColourCase{ColourWhen::automatic, true, "xterm", "", true},
                                         ColourCase{ColourWhen::automatic, true, "xterm", "1", false},
                                         ColourCase{ColourWhen::automatic, true, "xterm", "0", false},
                                         ColourCase{ColourWhen::automatic, true, "dumb", nullptr, false},
                                         ColourCase{ColourWhen::automatic, true, "", nullptr, false},
                                         ColourCase{ColourWhen::automatic, true, nullptr, nullptr, false},
                                         ColourCase{ColourWhen::automatic, false, "xterm", nullptr, false},
                                         ColourCase{ColourWhen::always, false, "dumb", "1", true},
                                         ColourCase{ColourWhen::never, true, "xterm", nullptr, false}));

TEST(Painted, PutsTheTextBetweenAColourAndItsEnd)
{
    EXPECT_EQ(painted("x", Mark::failure, true), "\x1b[1;31mx\x1b[0m");
    EXPECT_EQ(painted("x", Mark::warning, true), "\x1b[33mx\x1b[0m");
    EXPECT_EQ(painted("x", Mark::information, true), "\x1b[36mx\x1b[0m");
}

TEST(Painted, LeavesWhatNeedsNoColour)
{
    EXPECT_EQ(painted("x", Mark::none, true), "x");
    EXPECT_EQ(painted("", Mark::failure, true), "");
    EXPECT_EQ(painted("x", Mark::failure, false), "x");
}

} // namespace
