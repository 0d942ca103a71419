// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/output_file.h"

#include "support/tool_fixture.h"
#include "tavstrg/failure.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace tool;
using namespace tool::testing_support;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace fs = std::filesystem;

class OutputFile : public ToolTest {
protected:
    size_t files() const
    {
        return static_cast<size_t>(std::distance(fs::directory_iterator(directory_ / "collector"), {}));
    }
    void SetUp() override
    {
        ToolTest::SetUp();
        fs::create_directory(directory_ / "collector");
        path_ = (directory_ / "collector/storage.prom").string();
    }
    std::string path_;
};

TEST_F(OutputFile, IsReplacedAsAWholeAndReadableByAll)
{
    writeWhole(path_, "old\n");
    for (const mode_t mask : {mode_t(0), mode_t(077)}) {
        const mode_t before = umask(mask);
        writeWhole(path_, "new\n");
        umask(before);
        struct stat status = {};
        ASSERT_EQ(lstat(path_.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
    }
    EXPECT_EQ(contentOf(path_), "new\n");
    EXPECT_EQ(files(), 1U) << "no temporary file is left";
    EXPECT_THROW(writeWhole((directory_ / "none/storage.prom").string(), "new\n"), Failure);
}

struct Unexpected {
    const char *name;
    void (*make)(const std::string &path);
    const char *why;
};

void PrintTo(const Unexpected &one, std::ostream *out)
{
    *out << one.name;
}

class UnexpectedOutput : public OutputFile, public testing::WithParamInterface<Unexpected> {};

// As root, a device node that is replaced is gone for the whole system.
TEST_P(UnexpectedOutput, IsRefusedAndLeftAsItIs)
{
    GetParam().make(path_);
    struct stat before = {};
    struct stat after = {};
    ASSERT_EQ(lstat(path_.c_str(), &before), 0);
    const Finished finished = runSmall({"metrics", "--output", path_});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "tavstrg: " + path_ + ": " + GetParam().why + "\n");
    ASSERT_EQ(lstat(path_.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ(files(), 1U);
    EXPECT_TRUE(leftNothing(finished));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, UnexpectedOutput,
    testing::Values(Unexpected{"Fifo", [](const std::string &path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); },
                               "not a regular file; it is left as it is"},
                    Unexpected{"LinkToAFile",
                               [](const std::string &path) {
                                   std::ofstream(path + "/../../victim") << "precious";
                                   fs::create_symlink("../victim", path);
                               },
                               "not a regular file; it is left as it is"},
                    Unexpected{"LinkToADevice", [](const std::string &path) { fs::create_symlink("/dev/null", path); },
                               "not a regular file; it is left as it is"},
                    Unexpected{"DanglingLink", [](const std::string &path) { fs::create_symlink("nowhere", path); },
                               "not a regular file; it is left as it is"},
                    Unexpected{"Directory", [](const std::string &path) { fs::create_directory(path); },
                               "Is a directory"}),
    [](const auto &test) { return std::string(test.param.name); });

using DeviceOutput = ToolTest;

// A terminal of the test's own: a tool that replaced /dev/null as root would harm the machine.
TEST_F(DeviceOutput, IsRefusedBeforeAnyDiskIsAsked)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    const std::string path = ptsname(terminal);
    const Finished finished = run({"--provider", "/nonexistent.so", "metrics", "--output", path});
    EXPECT_EQ(finished.err, "tavstrg: " + path + ": not a regular file; it is left as it is\n");
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    close(terminal);
}

TEST_F(DeviceOutput, WithoutANameIsWrongUsage)
{
    for (const char *word : {"--output=", "--output"}) {
        const Finished finished = runSmall({"metrics", word, ""});
        EXPECT_EQ(finished.status, 2);
        EXPECT_THAT(finished.err, MatchesRegex("tavstrg: [^\n]+ \\(see tavstrg metrics --help\\)\n"));
        EXPECT_EQ(finished.out, "");
    }
}

} // namespace
