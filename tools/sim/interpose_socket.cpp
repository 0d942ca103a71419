// SPDX-License-Identifier: Apache-2.0
// Netlink sockets for device events, and waiting on descriptors. All other sockets are real.
#include "sim/acting.h"
#include "sim/interpose.h"
#include "sim/sanitizers.h"
#include "sim/uevents.h"

#include <cstring>
#include <linux/netlink.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/uio.h>

using namespace sim;

namespace {

constinit Real<int(int, int, int)> realSocket{"socket"};
constinit Real<int(int, const sockaddr *, socklen_t)> realBind{"bind"};
constinit Real<int(int, sockaddr *, socklen_t *)> realGetsockname{"getsockname"};
constinit Real<int(int, int, int, const void *, socklen_t)> realSetsockopt{"setsockopt"};
constinit Real<ssize_t(int, void *, size_t, int)> realRecv{"recv"};
constinit Real<ssize_t(int, void *, size_t, size_t, int)> realRecvChk{"__recv_chk"};
constinit Real<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)> realRecvfrom{"recvfrom"};
constinit Real<ssize_t(int, void *, size_t, size_t, int, sockaddr *, socklen_t *)> realRecvfromChk{"__recvfrom_chk"};
constinit Real<ssize_t(int, msghdr *, int)> realRecvmsg{"recvmsg"};

ssize_t receiveReal(int descriptor, msghdr *message, int flags)
{
    MayUnwind here;
    const ssize_t length = realRecvmsg(descriptor, message, flags);
    here.returned();
    return length;
}

ssize_t receiveInto(int descriptor, iovec part, int flags, sockaddr *address, socklen_t *addressLength)
{
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_name = addressLength == nullptr ? nullptr : address;
    message.msg_namelen = addressLength == nullptr ? 0 : *addressLength;
    const ssize_t length = receiveEvent(descriptor, message, flags, receiveReal);
    if (length >= 0 && addressLength != nullptr) {
        *addressLength = message.msg_namelen;
    }
    return length;
}

} // namespace

namespace sim {

ssize_t readEvent(int descriptor, void *to, size_t size)
{
    return receiveInto(descriptor, {to, size}, 0, nullptr, nullptr);
}

} // namespace sim

SIM_EXPORT int simSocket(int family, int type, int protocol) __asm__("socket");
SIM_EXPORT int simBind(int descriptor, const sockaddr *address, socklen_t length) __asm__("bind");
SIM_EXPORT int simGetsockname(int descriptor, sockaddr *address, socklen_t *length) __asm__("getsockname");
SIM_EXPORT int simSetsockopt(int descriptor, int level, int option, const void *value,
                             socklen_t length) __asm__("setsockopt");
SIM_EXPORT ssize_t simRecv(int descriptor, void *to, size_t size, int flags) __asm__("recv");
SIM_EXPORT ssize_t simRecvChk(int descriptor, void *to, size_t size, size_t room, int flags) __asm__("__recv_chk");
SIM_EXPORT ssize_t simRecvfrom(int descriptor, void *to, size_t size, int flags, sockaddr *address,
                               socklen_t *length) __asm__("recvfrom");
SIM_EXPORT ssize_t simRecvfromChk(int descriptor, void *to, size_t size, size_t room, int flags, sockaddr *address,
                                  socklen_t *length) __asm__("__recvfrom_chk");
SIM_EXPORT ssize_t simRecvmsg(int descriptor, msghdr *message, int flags) __asm__("recvmsg");

extern "C" int simSocket(int family, int type, int protocol)
{
    if (SIM_FAILS(socket, "socket")) {
        return failedWith(EMFILE);
    }
    const bool events = family == AF_NETLINK && protocol == NETLINK_KOBJECT_UEVENT;
    const bool simulated = events && currentMachine() != nullptr && thisThread.inside == 0;
    const bool product = SIM_IS_PRODUCT("socket");
    int descriptor = -1;
    if (simulated) {
        const Inside inside;
        descriptor = openEventSocket(type);
    } else {
        descriptor = realSocket(family, type, protocol);
    }
    if (descriptor >= 0 && thisThread.inside == 0 && (simulated || product)) {
        opened(descriptor, static_cast<uint8_t>((simulated ? kOfMachine | kOfEvents : 0) | (product ? kOfProduct : 0)),
               nullptr);
    }
    return descriptor;
}

extern "C" int simBind(int descriptor, const sockaddr *address, socklen_t length)
{
    if (SIM_FAILS(socket, "bind")) {
        return failedWith(ENOMEM);
    }
    return isEventSocket(descriptor) ? bindEventSocket(descriptor, address, length)
                                     : realBind(descriptor, address, length);
}

extern "C" int simGetsockname(int descriptor, sockaddr *address, socklen_t *length)
{
    return isEventSocket(descriptor) ? nameOfEventSocket(descriptor, address, length)
                                     : realGetsockname(descriptor, address, length);
}

extern "C" int simSetsockopt(int descriptor, int level, int option, const void *value, socklen_t length)
{
    if (SIM_FAILS(socket, "setsockopt")) {
        return failedWith(ENOMEM);
    }
    if (!isEventSocket(descriptor)) {
        return realSetsockopt(descriptor, level, option, value, length);
    }
    const Inside inside;
    return setEventSocketOption(descriptor, level, option, value, length);
}

extern "C" ssize_t simRecv(int descriptor, void *to, size_t size, int flags)
{
    if (SIM_FAILS(socket, "recv")) {
        return failedWith<ssize_t>(ENOBUFS);
    }
    return isEventSocket(descriptor) ? receiveInto(descriptor, {to, size}, flags, nullptr, nullptr)
                                     : realRecv(descriptor, to, size, flags);
}

extern "C" ssize_t simRecvChk(int descriptor, void *to, size_t size, size_t room, int flags)
{
    if (SIM_FAILS(socket, "__recv_chk")) {
        return failedWith<ssize_t>(ENOBUFS);
    }
    return isEventSocket(descriptor) ? receiveInto(descriptor, {to, size}, flags, nullptr, nullptr)
                                     : realRecvChk(descriptor, to, size, room, flags);
}

extern "C" ssize_t simRecvfrom(int descriptor, void *to, size_t size, int flags, sockaddr *address, socklen_t *length)
{
    if (SIM_FAILS(socket, "recvfrom")) {
        return failedWith<ssize_t>(ENOBUFS);
    }
    return isEventSocket(descriptor) ? receiveInto(descriptor, {to, size}, flags, address, length)
                                     : realRecvfrom(descriptor, to, size, flags, address, length);
}

extern "C" ssize_t simRecvfromChk(int descriptor, void *to, size_t size, size_t room, int flags, sockaddr *address,
                                  socklen_t *length)
{
    if (SIM_FAILS(socket, "__recvfrom_chk")) {
        return failedWith<ssize_t>(ENOBUFS);
    }
    return isEventSocket(descriptor) ? receiveInto(descriptor, {to, size}, flags, address, length)
                                     : realRecvfromChk(descriptor, to, size, room, flags, address, length);
}

extern "C" ssize_t simRecvmsg(int descriptor, msghdr *message, int flags)
{
    if (SIM_FAILS(socket, "recvmsg")) {
        return failedWith<ssize_t>(ENOBUFS);
    }
    return isEventSocket(descriptor) && message != nullptr ? receiveEvent(descriptor, *message, flags, receiveReal)
                                                           : realRecvmsg(descriptor, message, flags);
}
