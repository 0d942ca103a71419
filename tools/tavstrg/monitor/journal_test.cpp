// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/journal.h"

#include "support/datagrams.h"
#include "support/tool_fixture.h"

#include <sys/un.h>

#include <cerrno>
#include <cstdlib>

namespace {

using tool::monitor::addressOf;
using tool::monitor::feedInterval;
using tool::monitor::Manager;
using tool::monitor::sendDatagram;
using tool::testing_support::Datagrams;

class MonitorDatagram : public tool::testing_support::ToolTest {};

TEST_F(MonitorDatagram, ArrivesAtAPathAndAtAnAbstractName)
{
    const std::string path = (directory_ / "socket").string();
    const std::string name = "@tavstrg-test-" + std::to_string(getpid());
    for (const std::string &where : {path, name}) {
        Datagrams receiver(where);
        EXPECT_EQ(sendDatagram(where, "A=1\n"), 0);
        EXPECT_EQ(receiver.next(), "A=1\n");
    }
    EXPECT_EQ(sendDatagram((directory_ / "none").string(), "A=1\n"), ENOENT);
    EXPECT_EQ(sendDatagram(path, "A=1\n"), ECONNREFUSED) << "nobody reads there any more";
}

TEST_F(MonitorDatagram, ReceiverThatDoesNotReadIsNotWaitedFor)
{
    const std::string path = (directory_ / "socket").string();
    const Datagrams receiver(path);
    int error = 0;
    for (int i = 0; i < 100000 && error == 0; ++i) {
        error = sendDatagram(path, "A=1\n");
    }
    EXPECT_EQ(error, EAGAIN);
}

TEST(MonitorAddress, FitsOrIsNone)
{
    sockaddr_un address;
    EXPECT_EQ(addressOf("", address), 0U);
    EXPECT_EQ(addressOf("@", address), 0U);
    EXPECT_EQ(addressOf("relative", address), 0U);
    EXPECT_EQ(addressOf("vsock:2:1", address), 0U);
    EXPECT_EQ(addressOf("/" + std::string(sizeof address.sun_path, 'x'), address), 0U);
    EXPECT_EQ(addressOf("@ab", address), offsetof(sockaddr_un, sun_path) + 3);
    EXPECT_EQ(addressOf("/ab", address), offsetof(sockaddr_un, sun_path) + 4);
}

TEST(MonitorWatchdog, IsFedAtHalfOfItsTime)
{
    EXPECT_EQ(feedInterval("900000000", nullptr, 7), 450000);
    EXPECT_EQ(feedInterval("900000000", "7", 7), 450000);
    EXPECT_EQ(feedInterval("900000000", "8", 7), std::nullopt);
    for (const char *none : {"", "0", "x", "100", "-1"}) {
        EXPECT_EQ(feedInterval(none, nullptr, 7), std::nullopt) << none;
    }
    EXPECT_EQ(feedInterval(nullptr, nullptr, 7), std::nullopt);
}

TEST_F(MonitorDatagram, ManagerIsTakenOutOfTheEnvironment)
{
    const std::string path = (directory_ / "socket").string();
    Datagrams receiver(path);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    setenv("WATCHDOG_USEC", "2000000", 1);
    const Manager manager;
    EXPECT_EQ(getenv("NOTIFY_SOCKET"), nullptr);
    EXPECT_EQ(manager.feedEveryMs(), 1000);
    manager.say("READY=1");
    EXPECT_EQ(receiver.next(), "READY=1");
    Manager().say("READY=1");
    EXPECT_TRUE(receiver.all().empty());
}

} // namespace
