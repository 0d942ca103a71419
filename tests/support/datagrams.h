// SPDX-License-Identifier: Apache-2.0
// A socket that receives datagrams, as journald and the system's manager have them.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace tool::testing_support {

class Datagrams {
public:
    // path: of the socket, or "@NAME" in the abstract namespace.
    explicit Datagrams(const std::string &path) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const bool isAbstract = path.starts_with('@');
        if (isAbstract) {
            address.sun_path[0] = '\0';
        }
        const size_t length = offsetof(sockaddr_un, sun_path) + path.size() + (isAbstract ? 0 : 1);
        if (::bind(socket_, reinterpret_cast<const sockaddr *>(&address), static_cast<socklen_t>(length)) != 0) {
            throw std::runtime_error("cannot bind " + path);
        }
    }
    ~Datagrams() { ::close(socket_); }
    Datagrams(const Datagrams &) = delete;
    Datagrams &operator=(const Datagrams &) = delete;

    // The next one; empty if none comes in time.
    std::string next(std::chrono::milliseconds time = std::chrono::seconds(30))
    {
        pollfd wait{socket_, POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(time.count())) != 1) {
            return "";
        }
        std::string bytes(65536, '\0');
        const ssize_t got = ::recv(socket_, bytes.data(), bytes.size(), 0);
        bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
        return bytes;
    }
    // Those that are there.
    std::vector<std::string> all()
    {
        std::vector<std::string> found;
        for (std::string one = next(std::chrono::milliseconds(0)); !one.empty();
             one = next(std::chrono::milliseconds(0))) {
            found.push_back(one);
        }
        return found;
    }
    // Waits for one that contains the text. Returns it; empty if none comes in time.
    std::string await(const std::string &text, std::chrono::seconds time = std::chrono::seconds(30))
    {
        const auto end = std::chrono::steady_clock::now() + time;
        for (;;) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            std::string one = next(std::max(left, std::chrono::milliseconds(0)));
            if (one.empty() || one.find(text) != std::string::npos) {
                return one;
            }
        }
    }

private:
    int socket_;
};

} // namespace tool::testing_support
