// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/progress.h"

#include <gmock/gmock.h>

#include <array>
#include <string>

namespace tool {
namespace {

using std::chrono::milliseconds;

std::string toldWithin(bool terminal, milliseconds quiet, milliseconds work)
{
    std::FILE *const out = std::tmpfile();
    {
        const Progress progress(terminal, out, quiet);
        std::this_thread::sleep_for(work);
    }
    std::rewind(out);
    std::array<char, 256> text{};
    const size_t length = std::fread(text.data(), 1, text.size(), out);
    std::fclose(out);
    return {text.data(), length};
}

TEST(Progress, IsToldWhenItTakesLongAndErasedAtTheEnd)
{
    EXPECT_THAT(toldWithin(true, milliseconds(1), milliseconds(300)),
                testing::MatchesRegex("(\rAsking the disks, [0-9]+ s \\.\\.\\.)+\r\x1b\\[K"));
}

TEST(Progress, SaysNothingOfWhatIsQuick)
{
    EXPECT_EQ(toldWithin(true, milliseconds(60000), milliseconds(1)), "");
}

TEST(Progress, SaysNothingToWhatIsNoTerminal)
{
    EXPECT_EQ(toldWithin(false, milliseconds(1), milliseconds(100)), "");
}

} // namespace
} // namespace tool
