// SPDX-License-Identifier: Apache-2.0
#include "sim/paths.h"

#include "sim/redirect.h"
#include "sim/state.h"
#include "sim/thread.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <unistd.h>

namespace sim {

namespace {

constexpr std::array<std::string_view, 5> kRoots{"/sys", "/proc", "/dev", kConfigurationRoot, kAgentRoot};

// What the C runtime, the sanitizers and the test programs need of the real system.
constexpr std::array<std::string_view, 22> kReal{
    "/proc/self",    "/proc/thread-self", "/proc/sys",   "/proc/sysvipc",       "/proc/cpuinfo",
    "/proc/meminfo", "/sys/kernel",       "/sys/fs",     "/sys/devices/system", "/dev/null",
    "/dev/zero",     "/dev/full",         "/dev/random", "/dev/urandom",        "/dev/tty",
    "/dev/pts",      "/dev/ptmx",         "/dev/stdin",  "/dev/stdout",         "/dev/stderr",
    "/dev/fd",       "/dev/shm"};

bool isUnder(std::string_view path, std::string_view directory)
{
    return path.starts_with(directory) && (path.size() == directory.size() || path[directory.size()] == '/');
}

bool isOwnProcess(std::string_view path)
{
    constexpr std::string_view kProc = "/proc/";
    if (!path.starts_with(kProc)) {
        return false;
    }
    pid_t pid = 0;
    const char *end = path.data() + path.size();
    const auto [rest, error] = std::from_chars(path.data() + kProc.size(), end, pid);
    return error == std::errc() && (rest == end || *rest == '/') && pid == getpid();
}

bool isUnderRoot(std::string_view path)
{
    return std::any_of(kRoots.begin(), kRoots.end(), [path](std::string_view root) { return isUnder(path, root); });
}

// Most paths of a process can be told by their first letter.
bool canBeMachines(const char *path)
{
    return path[0] == '/' &&
           ((path[1] != '\0' && std::strchr("spdeo/.", path[1]) != nullptr) || std::strstr(path, "/../") != nullptr);
}

bool hasDots(std::string_view path)
{
    return path.find("//") != path.npos || path.find("/.") != path.npos;
}

} // namespace

std::string plainPath(std::string_view path)
{
    std::string plain;
    plain.reserve(path.size());
    for (size_t at = 0; at < path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        const std::string_view part = path.substr(at, end - at);
        at = end + 1;
        if (part.empty() || part == ".") {
            continue;
        }
        if (part == "..") {
            plain.erase(std::min(plain.rfind('/'), plain.size()));
            continue;
        }
        plain.append("/").append(part);
    }
    return plain.empty() ? "/" : plain;
}

bool isMachinePath(std::string_view plain)
{
    return isUnderRoot(plain) && !isOwnProcess(plain) &&
           std::none_of(kReal.begin(), kReal.end(), [plain](std::string_view real) { return isUnder(plain, real); });
}

Translated::Translated(const char *path) : result_(path)
{
    if (thisThread.inside == 0 && redirected(path, buffer_, sizeof buffer_)) {
        result_ = buffer_;
        return;
    }
    const MachineState *machine = currentMachine();
    if (machine == nullptr || path == nullptr || thisThread.inside != 0 || !canBeMachines(path)) {
        return;
    }
    const int saved = errno;
    const Inside inside;
    const OwnTime own;
    const std::string_view root = machine->root;
    const std::string plain = hasDots(path) ? plainPath(path) : std::string(path);
    // A link on the way may make ".." lead elsewhere than the text says: the kernel resolves the path as it stands
    // where that stays in the machine.
    const std::string_view tail = isUnderRoot(path) ? std::string_view(path) : std::string_view(plain);
    machines_ = isMachinePath(plain);
    if (machines_ && root.size() + tail.size() < sizeof buffer_) {
        root.copy(buffer_, root.size());
        tail.copy(buffer_ + root.size(), tail.size());
        buffer_[root.size() + tail.size()] = '\0';
        result_ = buffer_;
    } else if (!machines_ && hasDots(path) && isUnderRoot(path) && plain.size() < sizeof buffer_) {
        plain.copy(buffer_, plain.size()); // out of the machine by a directory that the real system may not have
        buffer_[plain.size()] = '\0';
        result_ = buffer_;
    }
    errno = saved;
}

size_t withoutRoot(char *text, size_t length)
{
    const MachineState *machine = currentMachine();
    if (machine == nullptr || !isUnder({text, length}, machine->root)) {
        return length;
    }
    const size_t rest = length - machine->root.size();
    std::memmove(text, text + machine->root.size(), rest);
    return rest;
}

} // namespace sim
