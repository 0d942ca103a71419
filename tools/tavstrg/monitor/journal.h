// SPDX-License-Identifier: Apache-2.0
// Datagrams to the sockets of the system's manager: journald's, and that in NOTIFY_SOCKET. Nothing here waits.
#pragma once

#include "runtime/holders.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct sockaddr_un;

namespace tool::monitor {

// The address of a path, or of "@NAME" in the abstract namespace (unix(7)), and its length; 0 if it fits no address.
unsigned addressOf(std::string_view path, sockaddr_un &address);

// Sends one datagram. Returns 0 or an errno: EAGAIN if the receiver has too much to read, ENOENT or ECONNREFUSED if
// there is none.
int sendDatagram(std::string_view path, std::string_view bytes);

// The service's manager: sd_notify(3). Without NOTIFY_SOCKET nothing is sent.
class Manager {
public:
    Manager(); // takes NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID out of the environment
    void say(const std::string &assignments) const; // "READY=1\nSTATUS=..."
    // Half of the time after which the manager takes the service for hung, in milliseconds; nothing if it does not
    // care.
    std::optional<int64_t> feedEveryMs() const { return feedEveryMs_; }

private:
    std::string socket_;
    std::optional<int64_t> feedEveryMs_;
};

// Half of WATCHDOG_USEC in milliseconds if WATCHDOG_PID is this process or not set. Null: not set.
std::optional<int64_t> feedInterval(const char *microseconds, const char *process, int64_t self);

} // namespace tool::monitor
