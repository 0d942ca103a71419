// SPDX-License-Identifier: Apache-2.0
// The netlink socket for device events, and waiting for it.
#include "sim/sim.h"
#include "support/machines.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using testing::HasSubstr;

class Socket {
public:
    explicit Socket(int flags = SOCK_NONBLOCK | SOCK_CLOEXEC, uint32_t groups = 1)
        : fd(socket(AF_NETLINK, SOCK_RAW | flags, NETLINK_KOBJECT_UEVENT))
    {
        sockaddr_nl address{};
        address.nl_family = AF_NETLINK;
        address.nl_groups = groups;
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    ~Socket() { close(fd); }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    // The next message with '|' for each zero byte; the error's name if there is none.
    std::string next(int flags = 0) const
    {
        std::array<char, 4096> text{};
        const ssize_t length = recv(fd, text.data(), text.size(), flags);
        if (length < 0) {
            return strerrorname_np(errno);
        }
        std::string message(text.data(), static_cast<size_t>(length));
        std::replace(message.begin(), message.end(), '\0', '|');
        return message;
    }
    bool isReady(int timeoutMs = 0) const
    {
        pollfd wait{fd, POLLIN, 0};
        return poll(&wait, 1, timeoutMs) == 1 && wait.revents == POLLIN;
    }

    const int fd;
};

const char *const kOneDisk = R"({"hosts": [{"devices": [{"ata": true, "serial": "S1"}]}]})";
const char *const kTwoPluggable =
    R"({"hosts": [{"devices": [{"ata": true, "serial": "S1"}, {"ata": true, "id": 1, "serial": "S2"}]}]})";

TEST(Uevents, MessageIsTheKernels)
{
    sim::Machine machine(kOneDisk);
    const Socket events;
    EXPECT_EQ(machine.ueventListeners(), 1U);
    EXPECT_FALSE(events.isReady());
    EXPECT_EQ(events.next(), "EAGAIN");
    machine.uevent("change", "sda");
    EXPECT_TRUE(events.isReady());
    const std::string path = "/devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:0:0/block/sda";
    EXPECT_THAT(events.next(),
                testing::StartsWith("change@" + path + "|ACTION=change|DEVPATH=" + path +
                                    "|SUBSYSTEM=block|MAJOR=8|MINOR=0|DEVNAME=sda|DEVTYPE=disk|SEQNUM="));
    EXPECT_EQ(events.next(), "EAGAIN");
}

TEST(Uevents, ChangeOfTheMachineReportsItsDevices)
{
    sim::Machine machine(kOneDisk);
    const Socket events;
    machine.change(kTwoPluggable);
    EXPECT_THAT(events.next(), HasSubstr("|SUBSYSTEM=scsi|DEVTYPE=scsi_device|"));
    EXPECT_THAT(events.next(), HasSubstr("|SUBSYSTEM=scsi|DEVTYPE=scsi_target|"));
    EXPECT_THAT(events.next(), HasSubstr("|DEVNAME=sdb|"));
    EXPECT_EQ(events.next(), "EAGAIN");
    machine.change(kTwoPluggable);
    EXPECT_EQ(events.next(), "EAGAIN");
    machine.change(kOneDisk);
    EXPECT_THAT(events.next(),
                HasSubstr("ACTION=remove|DEVPATH=/devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:1/"
                          "0:0:1:0/block/sdb|"));
}

TEST(Uevents, SwapOfADiskIsReported)
{
    sim::Machine machine(kOneDisk);
    const Socket events;
    machine.change(R"({"hosts": [{"devices": [{"ata": true, "serial": "OTHER"}]}]})");
    EXPECT_THAT(events.next(), HasSubstr("ACTION=remove|"));
    EXPECT_THAT(events.next(), HasSubstr("ACTION=remove|"));
    EXPECT_THAT(events.next(), HasSubstr("/0:0:0:0|SUBSYSTEM=scsi|"));
    EXPECT_THAT(events.next(), testing::AllOf(HasSubstr("ACTION=add|"), HasSubstr("|DEVNAME=sda|")));
    EXPECT_EQ(events.next(), "EAGAIN");
}

TEST(Uevents, NvmeIsReportedWithItsNamespaces)
{
    sim::Machine machine("{}");
    const Socket events;
    machine.change(R"({"nvme": [{"namespaces": [{}]}]})");
    EXPECT_THAT(events.next(), HasSubstr("/nvme/nvme0/nvme0n1|SUBSYSTEM=block|MAJOR=259|MINOR=1|DEVNAME=nvme0n1|"));
    EXPECT_THAT(events.next(), HasSubstr("/nvme/nvme0|SUBSYSTEM=nvme|MAJOR=240|MINOR=0|DEVNAME=nvme0|SEQNUM="));
    EXPECT_EQ(events.next(), "EAGAIN");
}

TEST(Uevents, AddressAndCredentialsAreTheKernels)
{
    sim::Machine machine(kOneDisk);
    const Socket events;
    const int on = 1;
    ASSERT_EQ(setsockopt(events.fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on), 0);
    const auto receive = [&events](sockaddr_nl &from, ucred &user) {
        std::array<char, 64> text{};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control{};
        iovec part{text.data(), text.size()};
        msghdr message{&from, sizeof from, &part, 1, control.data(), control.size(), 0};
        const ssize_t length = recvmsg(events.fd, &message, 0);
        std::memcpy(&user, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof user);
        return std::string(text.data(), length < 0 ? 0 : static_cast<size_t>(length)) +
               ((message.msg_flags & MSG_TRUNC) != 0 ? "..." : "");
    };
    sockaddr_nl from{};
    ucred user{1, 1, 1};
    sim::sendUevent("x@/y");
    EXPECT_EQ(receive(from, user), "x@/y");
    EXPECT_EQ(from.nl_family, AF_NETLINK);
    EXPECT_EQ(from.nl_pid, 0U);
    EXPECT_EQ(from.nl_groups, 1U);
    EXPECT_EQ(user.uid, 0U);
    sim::sendUevent(std::string(80, 'z'), {4711, 1, 1000}); // a process that pretends
    EXPECT_EQ(receive(from, user), std::string(64, 'z') + "...");
    EXPECT_EQ(from.nl_pid, 4711U);
    EXPECT_EQ(user.uid, 1000U);
}

TEST(Uevents, OnlyTheGroupsListenedToAreReceived)
{
    sim::Machine machine(kOneDisk);
    const Socket udev(SOCK_NONBLOCK, 2);
    const Socket none(SOCK_NONBLOCK, 0);
    const Socket other;
    EXPECT_EQ(machine.ueventListeners(), 1U);
    machine.uevent("add", "sda");
    EXPECT_FALSE(udev.isReady());
    EXPECT_FALSE(none.isReady());
    EXPECT_TRUE(other.isReady());
    sim::sendUevent("libudev", {1, 2, 0});
    EXPECT_EQ(udev.next(), "libudev");
    const int group = 1;
    ASSERT_EQ(setsockopt(none.fd, 270, NETLINK_ADD_MEMBERSHIP, &group, sizeof group), 0);
    EXPECT_EQ(machine.ueventListeners(), 2U);
}

TEST(Uevents, SocketsHavePortsOfTheirOwn)
{
    const sim::Machine machine(kOneDisk);
    const Socket first;
    const Socket second;
    sockaddr_nl name{};
    socklen_t length = sizeof name;
    ASSERT_EQ(getsockname(first.fd, reinterpret_cast<sockaddr *>(&name), &length), 0);
    EXPECT_EQ(name.nl_pid, static_cast<uint32_t>(getpid()));
    ASSERT_EQ(getsockname(second.fd, reinterpret_cast<sockaddr *>(&name), &length), 0);
    EXPECT_NE(name.nl_pid, static_cast<uint32_t>(getpid()));
    name.nl_pid = 0;
    EXPECT_EQ(bind(first.fd, reinterpret_cast<sockaddr *>(&name), sizeof name), -1); // another port
    EXPECT_EQ(errno, EINVAL);
}

TEST(Uevents, LostMessagesAreReportedOnce)
{
    sim::Machine machine(kOneDisk);
    const Socket events;
    machine.uevent("change", "sda", 20000);
    EXPECT_EQ(events.next(), "ENOBUFS");
    unsigned received = 0;
    for (std::string text = events.next(); text != "EAGAIN"; text = events.next()) {
        ASSERT_THAT(text, testing::StartsWith("change@"));
        ++received;
    }
    EXPECT_GE(received, 100U);
    EXPECT_LT(received, 20000U);
    machine.uevent("change", "sda");
    EXPECT_THAT(events.next(), testing::StartsWith("change@"));
}

TEST(Uevents, CallsCanFail)
{
    sim::countCallsOf("");
    const sim::Machine machine(kOneDisk);
    sim::failNth(sim::Call::socket, 1);
    EXPECT_EQ(socket(AF_NETLINK, SOCK_RAW, NETLINK_KOBJECT_UEVENT), -1);
    EXPECT_EQ(errno, EMFILE);
    const Socket events;
    sim::failNth(sim::Call::socket, 1);
    EXPECT_EQ(events.next(), "ENOBUFS");
    EXPECT_EQ(events.next(), "EAGAIN");
    sim::failNth(sim::Call::thread, 1);
    pthread_t thread{};
    EXPECT_EQ(pthread_create(
                  &thread, nullptr, [](void *) -> void * { return nullptr; }, nullptr),
              EAGAIN);
    sim::failNth(sim::Call::thread, 0);
    sim::countCallsOf("libTAVStorageProvider.so");
}

TEST(Uevents, DescriptorsAreCounted)
{
    sim::countCallsOf("");
    {
        const sim::Machine machine(kOneDisk);
        const int64_t before = sim::liveDescriptors();
        {
            const Socket events;
            EXPECT_EQ(sim::liveDescriptors(), before + 1);
            EXPECT_EQ(machine.openDescriptors(), 1);
        }
        EXPECT_EQ(sim::liveDescriptors(), before);
        EXPECT_EQ(machine.openDescriptors(), 0);
        EXPECT_EQ(machine.ueventListeners(), 0U);
    }
    sim::countCallsOf("libTAVStorageProvider.so");
}

// ---- waiting ----

TEST(Poll, EventEndsAWait)
{
    sim::Machine machine(kOneDisk);
    const Socket events;
    bool ready = false;
    std::thread waiting([&] { ready = events.isReady(-1); });
    machine.uevent("add", "sda");
    waiting.join();
    EXPECT_TRUE(ready);
}

TEST(Poll, HeldWaitLastsUntilWokenOrReady)
{
    sim::countCallsOf("");
    sim::Machine machine(kOneDisk);
    const Socket events;
    sim::holdSleeps(true);
    const auto wait = [&events] {
        pollfd one{events.fd, POLLIN, 0};
        return poll(&one, 1, 1);
    };
    int result = -1;
    std::thread woken([&] { result = wait(); });
    EXPECT_TRUE(sim::awaitSleep(1, 30));
    EXPECT_EQ(sim::sleepers(), 1U);
    sim::wakeSleepers();
    woken.join();
    EXPECT_EQ(result, 0); // as after its timeout
    std::thread ready([&] { result = wait(); });
    EXPECT_TRUE(sim::awaitSleep(2, 30));
    machine.uevent("add", "sda");
    ready.join();
    EXPECT_EQ(result, 1);
    EXPECT_EQ(sim::sleepers(), 0U);
    sim::holdSleeps(false);
    sim::countCallsOf("libTAVStorageProvider.so");
}

TEST(Poll, HeldWaitCanBeCancelled)
{
    sim::countCallsOf("");
    const sim::Machine machine(kOneDisk);
    const Socket events;
    sim::holdSleeps(true);
    pthread_t thread{};
    const auto wait = [](void *argument) -> void * {
        pollfd one{*static_cast<const int *>(argument), POLLIN, 0};
        poll(&one, 1, 1000);
        return nullptr;
    };
    int descriptor = events.fd;
    ASSERT_EQ(pthread_create(&thread, nullptr, wait, &descriptor), 0);
    EXPECT_TRUE(sim::awaitSleep(1, 30));
    ASSERT_EQ(pthread_cancel(thread), 0);
    void *result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(sim::sleepers(), 0U);
    sim::holdSleeps(false);
    sim::countCallsOf("libTAVStorageProvider.so");
}

TEST(Poll, SkippedWaitTakesNoTime)
{
    sim::countCallsOf("");
    const sim::Machine machine(kOneDisk);
    const Socket events;
    sim::skipSleeps(true);
    EXPECT_FALSE(events.isReady(3600 * 1000));
    EXPECT_DOUBLE_EQ(sim::sleptSeconds(), 3600);
    sim::skipSleeps(false);
    sim::countCallsOf("libTAVStorageProvider.so");
}

} // namespace
