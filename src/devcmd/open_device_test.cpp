// SPDX-License-Identifier: Apache-2.0
#include "devcmd/open_device.h"

#include "runtime/holders.h"
#include "support/ioctl_double.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace tavstrg;

namespace {

TEST(OpenDevice, AFifoInPlaceOfANodeIsAFailedOpen)
{
    const std::string path = testing::TempDir() + "tavfifo" + std::to_string(getpid());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(openDevice(path.c_str(), O_RDONLY), -1);
    EXPECT_EQ(openDevice(path.c_str(), O_RDWR), -1);
    EXPECT_EQ(openProcText(path.c_str()), nullptr);
    unlink(path.c_str());
}

TEST(OpenDevice, NullAndMissingPathsAreFailedOpens)
{
    errno = 0;
    EXPECT_EQ(openDevice(nullptr, O_RDONLY), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(openDevice("/nonexistent/sda", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(OpenProcText, OnlyRegularFilesAreOpened)
{
    const int before = openDescriptors();
    EXPECT_EQ(openProcText("/proc"), nullptr);
    EXPECT_EQ(openProcText("/dev/null"), nullptr);
    EXPECT_EQ(openProcText("/nonexistent"), nullptr);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(OpenDevice, AFifoIsRefusedEachTimeWhileNodesAreKnown)
{
    const KnownNodes nodes;
    const std::string path = testing::TempDir() + "tavfifo" + std::to_string(getpid());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    for (int i = 0; i < 2; ++i) {
        errno = 0;
        EXPECT_EQ(openDevice(path.c_str(), O_RDONLY), -1);
        EXPECT_EQ(errno, ENODEV);
    }
    unlink(path.c_str());
}

// Opens a FIFO by the path of a node that was opened before. For reading and writing it would not be waited for.
bool opensFifoInPlaceOf(const char *path)
{
    {
        const FileDesc node(openDevice(path, O_RDWR));
    }
    unlink(path);
    mkfifo(path, 0600);
    const FileDesc fifo(openDevice(path, O_RDWR));
    return bool(fifo);
}

TEST(OpenDevice, ANodeIsLookedAtOnceInTheLifeOfKnownNodes)
{
    const std::string path = "/tmp/tav" + std::to_string(getpid() % 100000); // short enough to be known
    const auto makeNode = [&path] { return FileDesc(::creat(path.c_str(), 0600)).get() >= 0; };
    ASSERT_TRUE(makeNode());
    EXPECT_FALSE(opensFifoInPlaceOf(path.c_str())) << "without the object, at each open";
    unlink(path.c_str());
    ASSERT_TRUE(makeNode());
    {
        const KnownNodes outer;
        EXPECT_TRUE(opensFifoInPlaceOf(path.c_str()));
        const KnownNodes inner;
        EXPECT_EQ(openDevice(path.c_str(), O_RDWR), -1) << "another object knows nothing of it";
    }
    EXPECT_EQ(openDevice(path.c_str(), O_RDWR), -1) << "nor does anything after the object";
    unlink(path.c_str());
}

std::string nodeName(int i)
{
    return "/dev/node" + std::to_string(i);
}

TEST(KnownNodes, HasWhatWasAdded)
{
    KnownNodes nodes;
    EXPECT_FALSE(nodes.has("/dev/sda"));
    EXPECT_FALSE(nodes.has(""));
    nodes.add("/dev/sda");
    nodes.add("/dev/sda");
    nodes.add("");
    EXPECT_TRUE(nodes.has("/dev/sda"));
    EXPECT_FALSE(nodes.has("/dev/sd"));
    EXPECT_FALSE(nodes.has("/dev/sdaa"));
    EXPECT_FALSE(nodes.has(""));
}

TEST(KnownNodes, TooLongAPathStaysUnknown)
{
    KnownNodes nodes;
    nodes.add("/dev/fifteen456");
    nodes.add("/dev/sixteen4567");
    EXPECT_TRUE(nodes.has("/dev/fifteen456"));
    EXPECT_FALSE(nodes.has("/dev/sixteen4567"));
}

TEST(KnownNodes, WithoutRoomThePathStaysUnknownAndASearchStillEnds)
{
    KnownNodes nodes;
    for (int i = 0; i < 1000; ++i) {
        nodes.add(nodeName(i));
    }
    int known = 0;
    for (int i = 0; i < 1000; ++i) {
        known += nodes.has(nodeName(i)) ? 1 : 0;
    }
    EXPECT_EQ(known, 192);
    EXPECT_TRUE(nodes.has(nodeName(0)) && nodes.has(nodeName(191)));
}

} // namespace
