// SPDX-License-Identifier: Apache-2.0
// netlink(7), lib/kobject_uevent.c of the kernel.
#include "sim/uevents.h"

#include "sim/descriptors.h"
#include "sim/failed_with.h"
#include "sim/paths.h"
#include "sim/thread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <linux/netlink.h>
#include <map>
#include <mutex>
#include <pthread.h>
#include <string>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace sim {

namespace {

// Precedes each message in the pair of sockets.
struct Sender {
    uint32_t port, groups, user;
};

struct Listener {
    int sending = -1; // the other end
    uint32_t port = 0, groups = 0;
    bool credentials = false; // SO_PASSCRED
    bool overrun = false;     // a message was lost, which the next receive reports
};

constinit std::mutex guarding;
std::map<int, Listener> &listeners()
{
    static auto *const all = new std::map<int, Listener>; // never destroyed: threads may still receive at exit
    return *all;
}

constinit std::atomic<uint64_t> sequence{0};

bool isPortTaken(uint32_t port)
{
    return std::any_of(listeners().begin(), listeners().end(),
                       [port](const auto &entry) { return entry.second.port == port; });
}

// The first socket of a process has its process ID as port, others a large number.
uint32_t freePort()
{
    auto port = static_cast<uint32_t>(getpid());
    for (uint32_t other = 0xFFFFF000; isPortTaken(port); --other) {
        port = other;
    }
    return port;
}

// A new size of the receiver's buffer: here the sending end limits what is on its way.
void setBufferSize(int sending, bool force, const void *value, socklen_t length)
{
    if (!force || setsockopt(sending, SOL_SOCKET, SO_SNDBUFFORCE, value, length) != 0) {
        setsockopt(sending, SOL_SOCKET, SO_SNDBUF, value, length);
    }
}

void putCredentials(msghdr &message, const Sender &sender)
{
    const ucred credentials{static_cast<pid_t>(sender.port), sender.user, sender.user};
    if (message.msg_control == nullptr || message.msg_controllen < CMSG_SPACE(sizeof credentials)) {
        message.msg_flags |= MSG_CTRUNC;
        message.msg_controllen = 0;
        return;
    }
    cmsghdr *const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_CREDENTIALS;
    header->cmsg_len = CMSG_LEN(sizeof credentials);
    std::memcpy(CMSG_DATA(header), &credentials, sizeof credentials);
    message.msg_controllen = CMSG_SPACE(sizeof credentials);
}

void putAddress(msghdr &message, const Sender &sender)
{
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = sender.port;
    address.nl_groups = sender.groups;
    if (message.msg_name != nullptr) {
        std::memcpy(message.msg_name, &address, std::min<size_t>(message.msg_namelen, sizeof address));
        message.msg_namelen = sizeof address;
    }
}

void deliver(Listener &listener, std::string_view text, Sender sender)
{
    iovec parts[] = {{&sender, sizeof sender}, {const_cast<char *>(text.data()), text.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (sendmsg(listener.sending, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 && (errno == EAGAIN || errno == ENOBUFS)) {
        listener.overrun = true;
    }
}

struct Announced {
    std::string subsystem, path, type, node, number; // path as in DEVPATH
};

std::string ueventText(const std::string &action, const Announced &device)
{
    std::string text = action + "@" + device.path;
    const auto add = [&text](const char *name, const std::string &value) {
        if (!value.empty()) {
            text += '\0' + std::string(name) + "=" + value;
        }
    };
    add("ACTION", action);
    add("DEVPATH", device.path);
    add("SUBSYSTEM", device.subsystem);
    if (const size_t colon = device.number.find(':'); colon != device.number.npos) {
        add("MAJOR", device.number.substr(0, colon));
        add("MINOR", device.number.substr(colon + 1));
    }
    add("DEVNAME", device.node);
    add("DEVTYPE", device.type);
    add("SEQNUM", std::to_string(++sequence));
    return text + '\0';
}

void sendToAll(std::string_view text, const Sender &sender)
{
    const std::lock_guard held(guarding);
    for (auto &[descriptor, listener] : listeners()) {
        if ((listener.groups & sender.groups) != 0) {
            deliver(listener, text, sender);
        }
    }
}

constexpr Sender kKernel{0, 1, 0};

std::string contentOf(const Tree &tree, const std::string &path)
{
    const auto found = tree.find(TreePath(path));
    return found == tree.end() ? "" : found->second.content.substr(0, found->second.content.find('\n'));
}

// The device to which an entry of a class or bus leads.
Announced announced(const Tree &tree, const TreePath &link, const std::string &target, const char *subsystem)
{
    const std::string place = plainPath(link.text() + "/../" + target);
    const std::string name(link.name());
    Announced device{subsystem, place.substr(std::strlen("/sys")), "", "", ""};
    if (device.subsystem == "scsi") {
        device.type = name.starts_with("host")     ? "scsi_host"
                      : name.starts_with("target") ? "scsi_target"
                                                   : "scsi_device";
    } else {
        device.type = device.subsystem == "block" ? "disk" : "";
        device.number = contentOf(tree, place + "/dev");
        device.node = device.number.empty() ? "" : name;
    }
    return device;
}

std::vector<Announced> onlyIn(const Tree &tree, const Tree &other, const std::set<std::string> &replaced)
{
    struct Watched {
        const char *directory;
        const char *subsystem;
    };
    constexpr Watched kWatched[] = {
        {"/sys/bus/scsi/devices/", "scsi"}, {"/sys/class/block/", "block"}, {"/sys/class/nvme/", "nvme"}};
    std::vector<Announced> found;
    for (const Watched &watched : kWatched) {
        // "!" sorts before all names that the kernel gives.
        for (auto entry = tree.lower_bound(TreePath(watched.directory) / "!");
             entry != tree.end() && entry->first.text().starts_with(watched.directory); ++entry) {
            const auto same = other.find(entry->first);
            const bool differs = same == other.end() || same->second != entry->second ||
                                 replaced.contains(std::string(entry->first.name()));
            if (entry->second.type == Node::link && differs) {
                const Announced device = announced(tree, entry->first, entry->second.content, watched.subsystem);
                if (device.subsystem != "block" || !device.node.empty()) { // the kernel does not report hidden paths
                    found.push_back(device);
                }
            }
        }
    }
    return found;
}

} // namespace

int openEventSocket(int type)
{
    // A child of a program with threads must not find the lock held by a thread that it does not have.
    [[maybe_unused]] static const int prepared =
        pthread_atfork([] { guarding.lock(); }, [] { guarding.unlock(); }, [] { guarding.unlock(); });
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) != 0) {
        return -1;
    }
    const int flags = type & (SOCK_NONBLOCK | SOCK_CLOEXEC);
    int descriptor = ends[0];
    if ((flags & SOCK_NONBLOCK) != 0) {
        fcntl(descriptor, F_SETFL, O_RDWR | O_NONBLOCK);
    }
    if ((flags & SOCK_CLOEXEC) == 0) {
        fcntl(descriptor, F_SETFD, 0);
    }
    const std::lock_guard held(guarding);
    listeners()[descriptor].sending = ends[1];
    return descriptor;
}

bool isEventSocket(int descriptor)
{
    return (flagsOfDescriptor(descriptor) & kOfEvents) != 0;
}

void eventSocketClosed(int descriptor)
{
    const Inside inside;
    const std::lock_guard held(guarding);
    const auto found = listeners().find(descriptor);
    if (found != listeners().end()) {
        close(found->second.sending);
        listeners().erase(found);
    }
}

int bindEventSocket(int descriptor, const sockaddr *address, socklen_t length)
{
    sockaddr_nl wanted{};
    if (address == nullptr || length < sizeof wanted) {
        return failedWith(EINVAL);
    }
    std::memcpy(&wanted, address, sizeof wanted);
    const std::lock_guard held(guarding);
    Listener &listener = listeners()[descriptor];
    if (wanted.nl_family != AF_NETLINK || (listener.port != 0 && listener.port != wanted.nl_pid)) {
        return failedWith(EINVAL);
    }
    if (wanted.nl_pid != 0 && listener.port == 0 && isPortTaken(wanted.nl_pid)) {
        return failedWith(EADDRINUSE);
    }
    if (listener.port == 0) {
        listener.port = wanted.nl_pid != 0 ? wanted.nl_pid : freePort();
    }
    listener.groups = wanted.nl_groups;
    return 0;
}

int nameOfEventSocket(int descriptor, sockaddr *address, socklen_t *length)
{
    if (address == nullptr || length == nullptr) {
        return failedWith(EFAULT);
    }
    const std::lock_guard held(guarding);
    const Listener &listener = listeners()[descriptor];
    sockaddr_nl name{};
    name.nl_family = AF_NETLINK;
    name.nl_pid = listener.port;
    name.nl_groups = listener.groups;
    std::memcpy(address, &name, std::min<size_t>(*length, sizeof name));
    *length = sizeof name;
    return 0;
}

int setEventSocketOption(int descriptor, int level, int option, const void *value, socklen_t length)
{
    int number = 0;
    if (value == nullptr || length < sizeof number) {
        return failedWith(EINVAL);
    }
    std::memcpy(&number, value, sizeof number);
    constexpr int kNetlink = 270; // SOL_NETLINK
    const std::lock_guard held(guarding);
    Listener &listener = listeners()[descriptor];
    if (level == SOL_SOCKET && option == SO_PASSCRED) {
        listener.credentials = number != 0;
    } else if (level == SOL_SOCKET && (option == SO_RCVBUF || option == SO_RCVBUFFORCE)) {
        setBufferSize(listener.sending, option == SO_RCVBUFFORCE, value, length);
    } else if (level == kNetlink && option == NETLINK_ADD_MEMBERSHIP && number > 0 && number <= 32) {
        listener.groups |= 1U << static_cast<unsigned>(number - 1);
    } else if (level == kNetlink && option == NETLINK_DROP_MEMBERSHIP && number > 0 && number <= 32) {
        listener.groups &= ~(1U << static_cast<unsigned>(number - 1));
    }
    return 0;
}

ssize_t receiveEvent(int descriptor, msghdr &message, int flags, ssize_t (*receive)(int, msghdr *, int))
{
    bool credentials = false;
    {
        const std::lock_guard held(guarding);
        Listener &listener = listeners()[descriptor];
        credentials = listener.credentials;
        if (std::exchange(listener.overrun, false)) {
            return failedWith(ENOBUFS);
        }
    }
    constexpr size_t kMostParts = 16;
    if (message.msg_iovlen > kMostParts - 1) {
        return failedWith(EMSGSIZE);
    }
    Sender sender{};
    std::array<iovec, kMostParts> parts{iovec{&sender, sizeof sender}};
    std::copy_n(message.msg_iov, message.msg_iovlen, parts.begin() + 1);
    msghdr inner{};
    inner.msg_iov = parts.data();
    inner.msg_iovlen = message.msg_iovlen + 1;
    const ssize_t length = receive(descriptor, &inner, flags);
    if (length < 0) {
        return length;
    }
    message.msg_flags = inner.msg_flags;
    putAddress(message, sender);
    if (credentials) {
        putCredentials(message, sender);
    } else {
        message.msg_controllen = 0;
    }
    return std::max<ssize_t>(length - static_cast<ssize_t>(sizeof sender), 0);
}

unsigned eventListeners()
{
    const std::lock_guard held(guarding);
    return static_cast<unsigned>(std::count_if(listeners().begin(), listeners().end(), [](const auto &entry) {
        return (entry.second.groups & kKernel.groups) != 0;
    }));
}

void sendUevent(std::string_view text, UeventSender sender)
{
    const Inside inside;
    sendToAll(text, {sender.port, sender.groups, sender.user});
}

void sendDifferences(const Tree &before, const Tree &now, const std::set<std::string> &replaced)
{
    if (eventListeners() == 0) {
        return;
    }
    std::vector<Announced> removed = onlyIn(before, now, replaced);
    std::reverse(removed.begin(), removed.end());
    for (const Announced &device : removed) {
        sendToAll(ueventText("remove", device), kKernel);
    }
    for (const Announced &device : onlyIn(now, before, replaced)) {
        sendToAll(ueventText("add", device), kKernel);
    }
}

void sendBlockUevents(const std::string &action, const std::string &node, unsigned times, const Tree &tree)
{
    const TreePath link = TreePath("/sys/class/block") / node;
    const auto found = tree.find(link);
    const Announced device = found == tree.end()
                                 ? Announced{"block", "/devices/virtual/block/" + node, "disk", node, ""}
                                 : announced(tree, link, found->second.content, "block");
    for (unsigned i = 0; i < times; ++i) {
        sendToAll(ueventText(action, device), kKernel);
    }
}

} // namespace sim
