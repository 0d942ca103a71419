// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/programs.h"

#include "support/tool_fixture.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <thread>

namespace {

using namespace tool::monitor;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using tool::testing_support::contentOf;

TEST(MonitorProgramName, LeftoversAreNotRun)
{
    EXPECT_TRUE(isProgramName("50-mail.sh"));
    for (const char *name : {"", ".", "..", ".hidden", "mail~", "mail.dpkg-old", "mail.rpmsave", "mail.bak", "a b",
                             "a;b", "$(reboot)", "mail.disabled"}) {
        EXPECT_FALSE(isProgramName(name)) << name;
    }
}

struct stat fileOf(mode_t mode, uid_t owner)
{
    struct stat info = {};
    info.st_mode = mode;
    info.st_uid = owner;
    return info;
}

TEST(MonitorTrust, OnlyFilesOfRootThatOthersCannotWriteAreTrusted)
{
    EXPECT_EQ(distrust(fileOf(S_IFREG | 0755, 0), 0), "");
    EXPECT_EQ(distrust(fileOf(S_IFREG | 0700, 1000), 1000), "");
    EXPECT_EQ(distrust(fileOf(S_IFREG | 0755, 1000), 0), "does not belong to root");
    EXPECT_EQ(distrust(fileOf(S_IFREG | 0775, 0), 0), "can be written by others than its owner");
    EXPECT_EQ(distrust(fileOf(S_IFREG | 0757, 0), 0), "can be written by others than its owner");
    EXPECT_EQ(distrust(fileOf(S_IFREG | 0644, 0), 0), "is not executable");
    EXPECT_EQ(distrust(fileOf(S_IFLNK | 0777, 0), 0), "is not a regular file");
    EXPECT_EQ(distrust(fileOf(S_IFIFO | 0755, 0), 0), "is not a regular file");
    EXPECT_EQ(distrustDirectory(fileOf(S_IFDIR | 0755, 0), 0), "");
    EXPECT_EQ(distrustDirectory(fileOf(S_IFDIR | 01777, 0), 0), "can be written by others than its owner");
    EXPECT_EQ(distrustDirectory(fileOf(S_IFREG | 0755, 0), 0), "is not a directory");
}

class MonitorPrograms : public tool::testing_support::ToolTest {
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        std::filesystem::create_directory(directory_ / "hooks");
        chmod((directory_ / "hooks").c_str(), 0755);
    }
    std::string script(const std::string &name, const std::string &text, mode_t mode = 0755) const
    {
        std::string path = write("hooks/" + name, "#!/bin/sh\n" + text);
        chmod(path.c_str(), mode);
        return path;
    }
    std::string path(const std::string &name) const { return (directory_ / name).string(); }
    // Until all have ended; now as the programs see it.
    static bool awaitEnd(Programs &programs, int64_t now)
    {
        for (int i = 0; i < 3000; ++i) {
            if (programs.look(now)) {
                return true;
            }
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }
    // Until a file has been written, as a sign of its writer.
    static std::string awaitContent(const std::string &file)
    {
        for (int i = 0; i < 3000; ++i) {
            std::ifstream stream(file);
            std::string line;
            if (std::getline(stream, line)) {
                return line;
            }
            std::this_thread::sleep_for(10ms);
        }
        return "";
    }
};

TEST_F(MonitorPrograms, OfADirectoryAreSortedAndBadOnesSkipped)
{
    script("20-b", "");
    script("10-a", "");
    script("30-open", "", 0777);
    script("40-plain", "", 0644);
    script("10-a.bak", "");
    std::filesystem::create_symlink("/bin/true", directory_ / "hooks" / "50-link");
    const ProgramList list = listPrograms(path("hooks"));
    EXPECT_TRUE(list.exists);
    EXPECT_THAT(list.paths, ElementsAre(path("hooks/10-a"), path("hooks/20-b")));
    EXPECT_THAT(list.skipped, ElementsAre(HasSubstr("30-open: can be written"), HasSubstr("40-plain: is not exec"),
                                          HasSubstr("50-link: is not a regular file")));
    chmod(path("hooks").c_str(), 0777);
    EXPECT_TRUE(listPrograms(path("hooks")).paths.empty());
    EXPECT_FALSE(listPrograms(path("nothing")).exists);
}

TEST_F(MonitorPrograms, GetTheEnvironmentAndNothingElse)
{
    const std::string program = script("a", "env > " + path("out") + "\n[ -z \"$1\" ]\n");
    Programs programs;
    programs.start({{{program}}}, {"SERIAL=$(touch " + path("reboot") + ")", "PATH=/usr/bin:/bin"}, 0);
    ASSERT_TRUE(awaitEnd(programs, 1));
    EXPECT_EQ(endWords(programs.ended().at(0)), "");
    EXPECT_THAT(contentOf(path("out")), HasSubstr("SERIAL=$(touch " + path("reboot") + ")\n"));
    EXPECT_THAT(contentOf(path("out")), testing::Not(HasSubstr("HOME=")));
    EXPECT_FALSE(std::filesystem::exists(path("reboot")));
    EXPECT_FALSE(programs.look(2)) << "the end is reported once";
}

TEST_F(MonitorPrograms, FailuresAreReportedInWords)
{
    Programs programs;
    programs.start({{{script("a", "exit 3")}}, {{script("b", "kill -9 $$")}}, {{path("none")}}}, {}, 0);
    ASSERT_TRUE(awaitEnd(programs, 1));
    std::vector<std::string> words;
    for (const Ended &ended : programs.ended()) {
        words.push_back(endWords(ended));
    }
    EXPECT_THAT(words, testing::UnorderedElementsAre(path("hooks/a") + " failed with status 3",
                                                     path("hooks/b") + " was ended by signal 9",
                                                     path("none") + " cannot be started: No such file or directory"));
}

// A process whose parent is gone ends as init, or a reaper that is slow, takes note of it.
bool isAlive(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text);
    const size_t end = text.rfind(')');
    return end != std::string::npos && text.size() > end + 2 && text[end + 2] != 'Z';
}

bool awaitDeath(pid_t process)
{
    for (int i = 0; i < 3000 && isAlive(process); ++i) {
        std::this_thread::sleep_for(10ms);
    }
    return !isAlive(process);
}

TEST_F(MonitorPrograms, OneThatHangsIsKilledWithItsProcessGroup)
{
    Programs programs;
    programs.start({{{script("a", "trap '' TERM\nsleep 1000 & echo $! > " + path("child") + "\nwait")}}},
                   {"PATH=/usr/bin:/bin"}, 1000);
    const pid_t child = std::stoi(awaitContent(path("child")));
    EXPECT_EQ(programs.deadline(), 1000 + kLongestRunMs);
    EXPECT_FALSE(programs.look(1000 + kLongestRunMs - 1));
    ASSERT_TRUE(awaitEnd(programs, 1000 + kLongestRunMs));
    EXPECT_EQ(endWords(programs.ended().at(0)), path("hooks/a") + " was killed after 30 seconds");
    EXPECT_TRUE(awaitDeath(child));
}

TEST_F(MonitorPrograms, OneThatLeavesItsProcessGroupIsKilledToo)
{
    if (!std::filesystem::exists("/usr/bin/perl")) {
        GTEST_SKIP() << "it is a script of Perl";
    }
    const std::string program =
        write("hooks/a", "#!/usr/bin/perl\nsetpgrp(0, getpgrp(getppid()));\n"
                         "open(F, '>', '" +
                             path("child") + "'); print F \"$$\\n\"; close(F);\nsleep(1000);\n");
    chmod(program.c_str(), 0755);
    for (const bool late : {true, false}) {
        std::filesystem::remove(path("child"));
        Programs programs;
        programs.start({{{program}}}, {}, 0);
        const pid_t child = std::stoi(awaitContent(path("child")));
        if (late) {
            EXPECT_TRUE(awaitEnd(programs, kLongestRunMs));
        } else {
            programs.killAll();
        }
        EXPECT_TRUE(awaitDeath(child));
    }
}

TEST_F(MonitorPrograms, WhatOneLeavesBehindEndsWithIt)
{
    Programs programs;
    programs.start({{{script("a", "sleep 1000 &\necho $! > " + path("child"))}}}, {"PATH=/usr/bin:/bin"}, 0);
    ASSERT_TRUE(awaitEnd(programs, 1));
    EXPECT_TRUE(awaitDeath(std::stoi(contentOf(path("child")))));
}

TEST_F(MonitorPrograms, OutputOfAGigabyteIsDiscarded)
{
    Programs programs;
    programs.start({{{script("a", "head -c 1073741824 /dev/zero && head -c 1048576 /dev/zero >&2")}}},
                   {"PATH=/usr/bin:/bin"}, 0);
    ASSERT_TRUE(awaitEnd(programs, 1));
    EXPECT_EQ(endWords(programs.ended().at(0)), "");
}

TEST_F(MonitorPrograms, StopKillsThem)
{
    Programs programs;
    programs.start({{{script("a", "echo $$ > " + path("child") + "\nsleep 1000")}}}, {"PATH=/usr/bin:/bin"}, 0);
    const pid_t child = std::stoi(awaitContent(path("child")));
    programs.killAll();
    EXPECT_FALSE(programs.isRunning());
    EXPECT_TRUE(awaitDeath(child));
}

} // namespace
