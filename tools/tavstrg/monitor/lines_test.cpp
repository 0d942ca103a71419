// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/lines.h"

#include "support/tool_fixture.h"

#include <cerrno>

namespace {

using tool::monitor::appendLine;
using tool::testing_support::contentOf;

constexpr size_t kLimit = 40;

class MonitorLines : public tool::testing_support::ToolTest {
protected:
    std::string path() const { return (directory_ / "events").string(); }
};

TEST_F(MonitorLines, AreAppended)
{
    EXPECT_EQ(appendLine(path(), "{1}\n", false, kLimit), 0);
    EXPECT_EQ(appendLine(path(), "{2}\n", false, kLimit), 0);
    EXPECT_EQ(appendLine(path(), "{2}\n", false, kLimit), 0);
    EXPECT_EQ(contentOf(path()), "{1}\n{2}\n{2}\n");
}

TEST_F(MonitorLines, RepeatedLineIsThereOnce)
{
    write("events", "{1}\n{2}\n");
    EXPECT_EQ(appendLine(path(), "{2}\n", true, kLimit), 0);
    EXPECT_EQ(contentOf(path()), "{1}\n{2}\n");
    EXPECT_EQ(appendLine(path(), "{3}\n", true, kLimit), 0);
    EXPECT_EQ(contentOf(path()), "{1}\n{2}\n{3}\n");
    write("events", "{1}\n{2");
    EXPECT_EQ(appendLine(path(), "{2}\n", true, kLimit), 0);
    EXPECT_EQ(contentOf(path()), "{1}\n{2}\n") << "half of it was there";
    write("events", "{{2}\n");
    EXPECT_EQ(appendLine(path(), "{2}\n", true, kLimit), 0);
    EXPECT_EQ(contentOf(path()), "{{2}\n{2}\n") << "the end of another line is not it";
}

TEST_F(MonitorLines, FileIsBegunAgainAtItsLimit)
{
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(appendLine(path(), "{12345678}\n", false, kLimit), 0);
        EXPECT_LE(contentOf(path()).size(), kLimit);
    }
    EXPECT_LE(contentOf(path() + ".1").size(), kLimit);
    EXPECT_EQ(appendLine(path(), std::string(100, 'x') + "\n", false, kLimit), 0) << "a line above the limit";
    EXPECT_EQ(contentOf(path()).size(), 101U);
}

TEST_F(MonitorLines, OtherFilesAreLeftAsTheyAre)
{
    write("events", "no line of ours");
    EXPECT_EQ(appendLine(path(), "{1}\n", false, kLimit), EINVAL);
    EXPECT_EQ(contentOf(path()), "no line of ours");
    std::filesystem::remove(path());
    std::filesystem::create_symlink(directory_ / "small.json", path());
    EXPECT_EQ(appendLine(path(), "{1}\n", false, kLimit), ELOOP);
    std::filesystem::remove(path());
    std::filesystem::create_hard_link(directory_ / "small.json", path());
    EXPECT_EQ(appendLine(path(), "{1}\n", false, kLimit), EINVAL);
    EXPECT_EQ(appendLine("/dev/null", "{1}\n", false, kLimit), EINVAL);
}

} // namespace
