// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/alert_pipe.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tool::AlertPipe;

// As the library does it: by name, opened again for each alert.
void write(const std::string &text)
{
    const int file = open(std::getenv("TAVALERT_FILE"), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0640);
    ASSERT_GE(file, 0);
    EXPECT_EQ(::write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(file);
}

TEST(AlertPipe, GivesWholeLinesAsTheyCome)
{
    AlertPipe pipe;
    EXPECT_THAT(pipe.lines(), IsEmpty());
    write("one\ntwo\nthr");
    EXPECT_THAT(pipe.lines(), ElementsAre("one", "two"));
    EXPECT_THAT(pipe.lines(), IsEmpty());
    write("ee\n");
    EXPECT_THAT(pipe.lines(), ElementsAre("three"));
}

TEST(AlertPipe, AlertsDoNotGoToStandardErrorToo)
{
    const AlertPipe pipe;
    EXPECT_NE(std::getenv("TAVALERT_QUIET"), nullptr);
}

TEST(AlertPipe, LeavesNoNameOfItselfBehind)
{
    {
        const AlertPipe pipe;
        EXPECT_NE(std::getenv("TAVALERT_FILE"), nullptr);
    }
    EXPECT_EQ(std::getenv("TAVALERT_FILE"), nullptr);
}

} // namespace
