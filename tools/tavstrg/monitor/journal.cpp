// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/journal.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace tool::monitor {
namespace {

constexpr int64_t kMicroPerMilli = 1000;

std::optional<int64_t> numberOf(const char *text)
{
    int64_t number = 0;
    const char *const end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

} // namespace

unsigned addressOf(std::string_view path, sockaddr_un &address)
{
    address = {};
    address.sun_family = AF_UNIX;
    const bool isAbstract = path.starts_with('@');
    if ((!isAbstract && !path.starts_with('/')) || path.size() < 2 || path.size() >= sizeof address.sun_path) {
        return 0;
    }
    path.copy(address.sun_path, path.size());
    if (isAbstract) {
        address.sun_path[0] = '\0';
    }
    return static_cast<unsigned>(offsetof(sockaddr_un, sun_path) + path.size() + (isAbstract ? 0 : 1));
}

int sendDatagram(std::string_view path, std::string_view bytes)
{
    sockaddr_un address;
    const unsigned length = addressOf(path, address);
    if (length == 0) {
        return EINVAL;
    }
    const tavstrg::FileDesc socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        return errno;
    }
    const ssize_t sent = ::sendto(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                                  reinterpret_cast<const sockaddr *>(&address), length);
    return sent < 0 ? errno : 0;
}

std::optional<int64_t> feedInterval(const char *microseconds, const char *process, int64_t self)
{
    if (microseconds == nullptr || (process != nullptr && numberOf(process) != self)) {
        return std::nullopt;
    }
    const std::optional<int64_t> time = numberOf(microseconds);
    return time && *time >= 2 * kMicroPerMilli ? std::optional(*time / 2 / kMicroPerMilli) : std::nullopt;
}

Manager::Manager() : feedEveryMs_(feedInterval(std::getenv("WATCHDOG_USEC"), std::getenv("WATCHDOG_PID"), ::getpid()))
{
    if (const char *const socket = std::getenv("NOTIFY_SOCKET")) {
        socket_ = socket;
    }
    for (const char *const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
        ::unsetenv(name);
    }
}

void Manager::say(const std::string &assignments) const
{
    if (!socket_.empty()) {
        static_cast<void>(sendDatagram(socket_, assignments));
    }
}

} // namespace tool::monitor
