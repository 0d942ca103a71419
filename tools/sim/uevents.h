// SPDX-License-Identifier: Apache-2.0
// Netlink sockets for the kernel's device events (NETLINK_KOBJECT_UEVENT). Each is one end of a pair of local sockets,
// so that poll and its kin work on it; the machine writes to the other end.
#pragma once

#include "sim/api.h"
#include "sim/tree.h"

#include <cstddef>
#include <set>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>

namespace sim {

// A new socket with the flags of socket()'s type (SOCK_NONBLOCK, SOCK_CLOEXEC). Returns its descriptor, or -1 with
// errno set.
int openEventSocket(int type);
bool isEventSocket(int descriptor);
// To be called when the descriptor of such a socket is closed.
void eventSocketClosed(int descriptor);

// The calls on such a socket. They return and set errno as the system's do.
int bindEventSocket(int descriptor, const sockaddr *address, socklen_t length);
int nameOfEventSocket(int descriptor, sockaddr *address, socklen_t *length);
// Nothing is done for an option that changes nothing here.
int setEventSocketOption(int descriptor, int level, int option, const void *value, socklen_t length);
// receive is the system's recvmsg. A cancellation point, as that is.
ssize_t receiveEvent(int descriptor, msghdr &message, int flags, ssize_t (*receive)(int, msghdr *, int));

// read() on it.
ssize_t readEvent(int descriptor, void *to, size_t size);

// Number of sockets that receive the kernel's events.
unsigned eventListeners();

// Sends the kernel's events about the block device of a node ("sda").
void sendBlockUevents(const std::string &action, const std::string &node, unsigned times, const Tree &tree);

// Sends the events of devices that only one of two trees of a machine has: removals first. replaced are the names (of
// SCSI addresses and nodes) that both have for different devices.
void sendDifferences(const Tree &before, const Tree &now, const std::set<std::string> &replaced);

} // namespace sim
