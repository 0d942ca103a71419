// SPDX-License-Identifier: Apache-2.0
#include "support/process.h"

#include <gtest/gtest.h>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

using process::Command;
using process::Finished;
using process::Output;
using process::Process;

Command shell(const std::string &line)
{
    return {.words = {"sh", "-c", line}};
}

TEST(Process, BothOutputsAndTheStatusAreKept)
{
    const Finished finished = process::run(shell("echo out; echo err >&2; exit 7"));
    EXPECT_EQ(finished.status, 7);
    EXPECT_EQ(finished.signal, 0);
    EXPECT_EQ(finished.out, "out\n");
    EXPECT_EQ(finished.err, "err\n");
}

TEST(Process, OutputsLargerThanAPipeAreRead)
{
    const Finished finished = process::run(shell("head -c 300000 /dev/zero; head -c 300000 /dev/zero >&2"));
    EXPECT_EQ(finished.out.size(), 300000U);
    EXPECT_EQ(finished.err.size(), 300000U);
}

TEST(Process, UnknownProgramThrows)
{
    EXPECT_THROW(process::run({.words = {"/no/such/program"}}), std::runtime_error);
}

TEST(Process, EnvironmentEntriesReplaceAndExtend)
{
    ::setenv("PROCESS_TEST", "before", 1);
    Command command = shell("echo $PROCESS_TEST $PROCESS_TEST_OTHER");
    command.environment = {"PROCESS_TEST=after", "PROCESS_TEST_OTHER=new"};
    EXPECT_EQ(process::run(command).out, "after new\n");
    ::unsetenv("PROCESS_TEST");
}

TEST(Process, OutputsThatCannotBeWrittenFail)
{
    for (const Output output : {Output::full, Output::closed}) {
        Command command = shell("echo text");
        command.out = output;
        EXPECT_NE(process::run(command).status, 0);
    }
    Command command = shell("exec head -c 1000000 /dev/zero");
    command.out = Output::unread;
    EXPECT_EQ(process::run(command).signal, SIGPIPE);
}

TEST(Process, TerminalHasItsWidth)
{
    Command command = shell("stty size <&1");
    command.out = Output::terminal;
    command.columns = 132;
    EXPECT_EQ(process::run(command).out, "24 132\r\n");
}

TEST(Process, SaysReturnsWhenTheTextHasCome)
{
    Process process(shell("echo ready; exec sleep 60"));
    EXPECT_TRUE(process.says("ready"));
    EXPECT_FALSE(process.says("never", std::chrono::milliseconds(20)));
    process.send(SIGTERM);
    const Finished finished = process.wait();
    EXPECT_EQ(finished.signal, SIGTERM);
    EXPECT_EQ(finished.status, -1);
    EXPECT_FALSE(finished.late);
}

TEST(Process, DeadlineKillsTheProcess)
{
    Process process(shell("exec sleep 60"));
    const Finished finished = process.wait(std::chrono::milliseconds(50));
    EXPECT_TRUE(finished.late);
    EXPECT_EQ(finished.signal, SIGKILL);
}

TEST(Process, DestructorKillsTheProcess)
{
    pid_t pid = 0;
    {
        const Process process(shell("exec sleep 60"));
        pid = process.pid();
    }
    EXPECT_EQ(::kill(pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST(Process, WorkEndsWithItsResult)
{
    Process process([] { return 5; });
    const Finished finished = process.wait(std::chrono::seconds(60));
    EXPECT_EQ(finished.status, 5);
    EXPECT_FALSE(finished.late);
    EXPECT_GT(finished.peakKb, 0);
}

TEST(Segments, OnlyThoseOfTheCreatorAreFoundAndRemoved)
{
    const int id = ::shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    const auto found = process::segmentsOf(::getpid());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].id, id);
    EXPECT_EQ(found[0].bytes, 4096U);
    EXPECT_TRUE(process::segmentsOf(::getppid()).empty());
    process::removeSegmentsOf(::getpid());
    EXPECT_TRUE(process::segmentsOf(::getpid()).empty());
}

} // namespace
