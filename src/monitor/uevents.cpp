// SPDX-License-Identifier: Apache-2.0
#include "monitor/uevents.h"

#include "runtime/cancel.h"
#include "runtime/progress.h"
#include "runtime/trace.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

using namespace tavstrg;

namespace {

constexpr uint32_t kKernelGroup = 1;  // multicast group of the kernel's own messages; udev's is 2
constexpr size_t kMessageSize = 8192; // bytes; the kernel's messages have at most 2048 (UEVENT_BUFFER_SIZE)
constexpr int kMostAtOnce = 1000;     // messages that are received before the time is looked at again
constexpr int64_t kMsPerSecond = 1000;

int64_t nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(ProgressClock::now().time_since_epoch()).count();
}

// The fields of a message that decide.
struct Uevent {
    std::string_view action;
    std::string_view subsystem;
    std::string_view type;
    bool otherSize = false;
    bool otherIdentity = false;
};

void takeField(Uevent &event, std::string_view name, std::string_view value)
{
    if (name == "ACTION") {
        event.action = value;
    } else if (name == "SUBSYSTEM") {
        event.subsystem = value;
    } else if (name == "DEVTYPE") {
        event.type = value;
    } else if (name == "RESIZE") { // of a block device
        event.otherSize = value == "1";
    } else if (name == "SDEV_UA") { // unit attention of a SCSI device (drivers/scsi/scsi_lib.c, scsi_evt_emit)
        event.otherSize = value == "CAPACITY_DATA_HAS_CHANGED";
        event.otherIdentity = value == "INQUIRY_DATA_HAS_CHANGED";
    }
}

Uevent parse(std::string_view message)
{
    Uevent event;
    while (!message.empty()) {
        const std::string_view field = message.substr(0, message.find('\0'));
        message.remove_prefix(std::min(field.size() + 1, message.size()));
        if (const size_t equals = field.find('='); equals != std::string_view::npos) {
            takeField(event, field.substr(0, equals), field.substr(equals + 1));
        }
    }
    return event;
}

// Waits until the descriptor is readable, as poll does.
int waitFor(int fd, int64_t milliseconds)
{
    pollfd wait = {fd, POLLIN, 0};
    const CancelSwitch on(PTHREAD_CANCEL_ENABLE);
    return ::poll(&wait, 1, static_cast<int>(std::min<int64_t>(milliseconds, INT_MAX)));
}

} // namespace

bool tavstrg::callsForPass(std::string_view message)
{
    const Uevent event = parse(message);
    const bool isDisk = event.subsystem == "block" && event.type == "disk";
    const bool isScsi = event.subsystem == "scsi" && event.type == "scsi_device";
    if (!isDisk && !isScsi) {
        return false;
    }
    return event.action == "add" || event.action == "remove" ||
           (event.action == "change" && (event.otherSize || event.otherIdentity));
}

void WakeTime::event(int64_t now)
{
    burstEnd_ = burstEnd_.value_or(now + kLongestBurstMs);
    wake_ = std::min({now + kBurstQuietMs, *burstEnd_, end_});
}

int UeventSocket::open()
{
    if (socket_) {
        return 0;
    }
    socket_.emplace(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT));
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kKernelGroup;
    if (!*socket_ || ::bind(socket_->get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const int error = errno;
        drop();
        return error;
    }
    isNew_ = true;
    return 0;
}

// One message. Messages that were lost count as an event, those of another sender than the kernel (port 0) do not.
UeventSocket::Received UeventSocket::receive() const
{
    char message[kMessageSize];
    sockaddr_nl from = {};
    socklen_t size = sizeof from;
    const ssize_t length =
        ::recvfrom(socket_->get(), message, sizeof message, 0, reinterpret_cast<sockaddr *>(&from), &size);
    if (length < 0) {
        return errno == ENOBUFS ? Received::event : Received::failed;
    }
    const bool counts = from.nl_pid == 0 && callsForPass({message, static_cast<size_t>(length)});
    return counts ? Received::event : Received::nothing;
}

UeventSocket::Received UeventSocket::receiveAll() const
{
    Received all = Received::nothing;
    for (int i = 0; i < kMostAtOnce; ++i) {
        const Received one = receive();
        if (one == Received::failed) {
            return errno == EAGAIN ? all : one;
        }
        all = one == Received::event ? one : all;
    }
    return all;
}

int UeventSocket::take(bool &called)
{
    const Received received = receiveAll();
    if (received == Received::failed) {
        const int error = errno;
        drop();
        return error;
    }
    called = received == Received::event;
    return 0;
}

Slept UeventSocket::sleep(unsigned seconds, unsigned &secondsLeft)
{
    secondsLeft = 0;
    const int64_t begin = nowMs();
    WakeTime wake(begin, static_cast<int64_t>(seconds) * kMsPerSecond);
    bool woken = isNew_;
    if (isNew_) {
        wake.event(begin);
        isNew_ = false;
    }
    for (int64_t now = begin; wake.left(now) > 0; now = nowMs()) {
        const int ready = waitFor(socket_->get(), wake.left(now));
        if (ready == 0) {
            break;
        }
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        const Received received = ready < 0 ? Received::failed : receiveAll();
        if (received == Received::failed) {
            const int error = errno;
            drop();
            const int64_t left = wake.left(nowMs());
            secondsLeft = static_cast<unsigned>((left + kMsPerSecond - 1) / kMsPerSecond);
            return TRACED(Slept::failed, kFailure, "uevents are no longer received: errno=[%d]", error);
        }
        if (received == Received::event) {
            wake.event(nowMs());
            woken = true;
        }
    }
    return woken ? Slept::untilEvent : Slept::whole;
}
