// SPDX-License-Identifier: Apache-2.0
// The kernel's events about disks that come and go, and a sleep that they end.
#pragma once

#include "runtime/holders.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace tavstrg {

constexpr int64_t kBurstQuietMs = 500;    // a burst has ended when so long nothing came
constexpr int64_t kLongestBurstMs = 3000; // after this a pass begins though events go on

// Whether a message of the kernel (Documentation/ABI/testing/sysfs-uevent: "add@PATH", then NAME=VALUE, each ended by a
// NUL) calls for a pass: a disk or SCSI device was added or removed, or reports another size or identity. Deliberate:
// no other "change" does. udev gives one for each node that was open for writing, which a pass does itself, and one for
// changed mode parameters may come from a pass's MODE SELECT.
bool callsForPass(std::string_view message);

// When a sleep ends. Times are milliseconds of one clock.
class WakeTime {
public:
    WakeTime(int64_t now, int64_t sleep) : end_(now + sleep), wake_(end_) {}
    // An event: the sleep ends when no other one came for a while, but not later than it would have, and not much later
    // than the first event.
    void event(int64_t now);
    int64_t left(int64_t now) const { return wake_ > now ? wake_ - now : 0; }

private:
    int64_t end_;
    int64_t wake_;
    std::optional<int64_t> burstEnd_;
};

// What a sleep ended with.
enum class Slept : uint8_t { whole, untilEvent, failed };

// The socket for the kernel's events (netlink(7), NETLINK_KOBJECT_UEVENT), and the sleep. An owner: a cancellation
// closes it.
class UeventSocket {
public:
    // Opens the socket unless it is open. Returns 0 or an errno.
    int open();
    void drop() { socket_.reset(); } // closes it
    bool isOpen() const { return socket_.has_value(); }
    int descriptor() const { return socket_ ? socket_->get() : -1; } // to poll

    // For callers with a loop of their own: receives what has arrived, without waiting, and sets called if something
    // calls for a pass. Returns 0, or an errno; the socket is then closed.
    int take(bool &called);

    // Sleeps for so many seconds, or until an event and the end of its burst. Events since the socket was opened count,
    // also those from before the sleep. The first sleep of a socket ends soon: what happened before it was opened is
    // not known. The thread can be cancelled here, and only while it waits. After failed the socket is closed, and what
    // is left of the sleep is in secondsLeft.
    Slept sleep(unsigned seconds, unsigned &secondsLeft);

private:
    enum class Received : uint8_t { nothing, event, failed };
    Received receive() const;
    Received receiveAll() const;

    std::optional<FileDesc> socket_;
    bool isNew_ = false;
};

} // namespace tavstrg
