// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/monitor/programs.h"

#include "tavstrg/pointers.h"

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>

namespace tool::monitor {
namespace {

constexpr std::string_view kLeftovers[] = {".bak",      ".disabled", ".dpkg-bak", ".dpkg-dist", ".dpkg-new",
                                           ".dpkg-old", ".dpkg-tmp", ".orig",     ".rpmnew",    ".rpmorig",
                                           ".rpmsave",  ".ucf-dist", ".ucf-new",  ".ucf-old"};

// What posix_spawn needs, released at the end of the scope.
class SpawnForm {
public:
    SpawnForm()
    {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null",
                                             descriptor == STDIN_FILENO ? O_RDONLY : O_WRONLY, 0);
        }
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0); // one of its own
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnForm()
    {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }
    SpawnForm(const SpawnForm &) = delete;
    SpawnForm &operator=(const SpawnForm &) = delete;

    int spawn(pid_t &process, const std::vector<char *> &words, const std::vector<char *> &environment) const
    {
        return posix_spawn(&process, words[0], &actions_, &attributes_, words.data(), environment.data());
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

// A program that was not waited for yet, so that nobody else can have its number; it may have left the group.
void killWithGroup(pid_t process)
{
    kill(-process, SIGKILL);
    kill(process, SIGKILL);
}

std::string distrustOwner(const struct stat &info, uid_t user)
{
    if (info.st_uid != 0 && info.st_uid != user) {
        return "does not belong to root";
    }
    return (info.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? "can be written by others than its owner" : "";
}

std::vector<std::string> namesIn(const std::string &directory)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR *)> open(opendir(directory.c_str()), closedir);
    while (const dirent *const entry = open == nullptr ? nullptr : readdir(open.get())) {
        if (isProgramName(entry->d_name)) {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

bool isProgramName(std::string_view name)
{
    constexpr std::string_view kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-.";
    return !name.empty() && !name.starts_with('.') && name.find_first_not_of(kAllowed) == std::string_view::npos &&
           std::none_of(std::begin(kLeftovers), std::end(kLeftovers),
                        [name](std::string_view suffix) { return name.ends_with(suffix); });
}

std::string distrust(const struct stat &info, uid_t user)
{
    if (!S_ISREG(info.st_mode)) {
        return "is not a regular file";
    }
    const std::string reason = distrustOwner(info, user);
    return !reason.empty() || (info.st_mode & S_IXUSR) != 0 ? reason : "is not executable";
}

std::string distrustDirectory(const struct stat &info, uid_t user)
{
    return S_ISDIR(info.st_mode) ? distrustOwner(info, user) : "is not a directory";
}

ProgramList listPrograms(const std::string &directory)
{
    ProgramList list;
    struct stat info = {};
    if (lstat(directory.c_str(), &info) != 0) {
        list.exists = errno != ENOENT;
        if (list.exists) {
            list.skipped.push_back(directory + ": " + std::strerror(errno));
        }
        return list;
    }
    list.exists = true;
    if (const std::string reason = distrustDirectory(info, geteuid()); !reason.empty()) {
        list.skipped.push_back(directory + ": " + reason);
        return list;
    }
    for (const std::string &name : namesIn(directory)) {
        std::string path = directory;
        path.append("/").append(name);
        std::string reason = lstat(path.c_str(), &info) != 0 ? std::strerror(errno) : distrust(info, geteuid());
        reason = reason.empty() && list.paths.size() == kMostPrograms ? "one too many" : reason;
        if (reason.empty()) {
            list.paths.push_back(path);
        } else {
            list.skipped.push_back(path.append(": ").append(reason));
        }
    }
    return list;
}

std::string endWords(const Ended &ended)
{
    if (ended.error != 0) {
        return ended.path + " cannot be started: " + std::strerror(ended.error);
    }
    if (ended.late) {
        return ended.path + " was killed after " + std::to_string(kLongestRunMs / 1000) + " seconds";
    }
    if (ended.signal != 0) {
        return ended.path + " was ended by signal " + std::to_string(ended.signal);
    }
    return ended.status == 0 ? "" : ended.path + " failed with status " + std::to_string(ended.status);
}

void Programs::start(const std::vector<Command> &commands, const std::vector<std::string> &environment, int64_t now)
{
    ended_.clear();
    finished_ = false;
    const SpawnForm form;
    const std::vector<char *> variables = pointersTo(environment);
    for (const Command &command : commands) {
        pid_t process = 0;
        const int error = form.spawn(process, pointersTo(command.words), variables);
        if (error != 0) {
            ended_.push_back({command.words[0], 0, 0, error, false});
        } else {
            running_.push_back({process, command.words[0], now + kLongestRunMs, false});
        }
    }
}

// Whether it has ended. What it left in its process group ends with it; it stays a zombie until then, so that no other
// group can have got its number.
bool Programs::reap(const Running &one)
{
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(one.process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0) {
        return false;
    }
    kill(-one.process, SIGKILL);
    int status = 0;
    waitpid(one.process, &status, 0);
    ended_.push_back({one.path, WIFEXITED(status) ? WEXITSTATUS(status) : 0,
                      WIFSIGNALED(status) && !one.late ? WTERMSIG(status) : 0, 0, one.late});
    return true;
}

bool Programs::look(int64_t now)
{
    for (Running &one : running_) {
        if (now >= one.deadline && !one.late) {
            one.late = true;
            killWithGroup(one.process);
        }
    }
    std::erase_if(running_, [this](const Running &one) { return reap(one); });
    const bool ends = running_.empty() && !finished_;
    finished_ = finished_ || ends;
    return ends;
}

std::optional<int64_t> Programs::deadline() const
{
    std::optional<int64_t> first;
    for (const Running &one : running_) {
        if (!one.late) { // a killed one ends with SIGCHLD
            first = std::min(first.value_or(one.deadline), one.deadline);
        }
    }
    return first;
}

void Programs::killAll()
{
    for (const Running &one : running_) {
        killWithGroup(one.process);
        waitpid(one.process, nullptr, WNOHANG);
    }
    running_.clear();
    finished_ = true;
}

} // namespace tool::monitor
