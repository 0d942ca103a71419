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
#include <stdexcept>
#include <unistd.h>

namespace sim {

namespace {

constexpr std::array<std::string_view, 5> kRoots{"/sys", "/proc", "/dev", kConfigurationRoot, kAgentRoot};

// Real paths that the C runtime, the sanitizers and the test programs need.
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

// A quick test by the first letter excludes most paths.
bool mayBeInMachine(const char *path)
{
    return path[0] == '/' &&
           ((path[1] != '\0' && std::strchr("spdeo/.", path[1]) != nullptr) || std::strstr(path, "/../") != nullptr);
}

// Whether ".." leads above "/", which is "/" again; in the machine's directory it would be the directory above.
bool risesAboveRoot(std::string_view path)
{
    int depth = 0;
    for (size_t at = 0; at < path.size() && depth >= 0;) {
        const size_t end = std::min(path.find('/', at), path.size());
        const std::string_view part = path.substr(at, end - at);
        depth += part == ".." ? -1 : part.empty() || part == "." ? 0 : 1;
        at = end + 1;
    }
    return depth < 0;
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

bool isFileName(std::string_view text)
{
    return !text.empty() && text != "." && text != ".." && text.size() <= NAME_MAX &&
           text.find_first_of(std::string_view("/\0", 2)) == text.npos;
}

TreePath::TreePath(std::string_view text)
{
    if (!text.starts_with('/')) {
        throw std::invalid_argument("the path is not absolute");
    }
    for (size_t at = 1; at < text.size();) {
        const size_t end = std::min(text.find('/', at), text.size());
        if (end != at) {
            append(text.substr(at, end - at));
        }
        at = end + 1;
    }
    if (!isMachinePath(text_)) {
        throw std::invalid_argument("the path is not one of the simulated machine");
    }
}

TreePath TreePath::operator/(std::string_view name) const
{
    TreePath entry(*this);
    entry.append(name);
    return entry;
}

void TreePath::append(std::string_view name)
{
    if (!isFileName(name)) {
        throw std::invalid_argument(
            "a part of the path is not a file name (empty, \".\", \"..\", with '/' or too long)");
    }
    text_.append("/").append(name);
}

std::string TreePath::relativeTo(const TreePath &link) const
{
    const auto [here, there] = std::mismatch(text_.begin(), text_.end(), link.text_.begin(), link.text_.end());
    const size_t common = text_.rfind('/', static_cast<size_t>(here - text_.begin()));
    const size_t up = static_cast<size_t>(std::count(there, link.text_.end(), '/'));
    std::string target;
    for (size_t i = 0; i < up; ++i) {
        target += "../";
    }
    return target + text_.substr(common + 1);
}

Translated::Translated(const char *path) : result_(path)
{
    if (thisThread.inside == 0 && redirected(path, buffer_, sizeof buffer_)) {
        result_ = buffer_;
        return;
    }
    const MachineState *machine = currentMachine();
    if (machine == nullptr || path == nullptr || thisThread.inside != 0 || !mayBeInMachine(path)) {
        return;
    }
    const int saved = errno;
    const Inside inside;
    const OwnTime own;
    const std::string_view root = machine->root;
    const std::string plain = hasDots(path) ? plainPath(path) : std::string(path);
    // ".." after a symbolic link leads elsewhere than the text suggests, so the path is left for the kernel to resolve.
    const bool asGiven = isUnderRoot(path) && !risesAboveRoot(path);
    const std::string_view tail = asGiven ? std::string_view(path) : std::string_view(plain);
    inMachine_ = isMachinePath(plain);
    if (inMachine_ && root.size() + tail.size() < sizeof buffer_) {
        root.copy(buffer_, root.size());
        tail.copy(buffer_ + root.size(), tail.size());
        buffer_[root.size() + tail.size()] = '\0';
        result_ = buffer_;
    } else if (!inMachine_ && hasDots(path) && isUnderRoot(path) && plain.size() < sizeof buffer_) {
        plain.copy(buffer_,
                   plain.size()); // leads out of the machine through a directory that the real system may not have
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
