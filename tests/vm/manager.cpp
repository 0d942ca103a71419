// SPDX-License-Identifier: Apache-2.0
#include "vm/manager.h"

#include "vm/facts.h"
#include "vm/session.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vm {
namespace {

namespace fs = std::filesystem;

const char *const kDropIn = "/run/systemd/system/tavstrg-monitor.service.d/test.conf";

[[noreturn]] void giveUp(const char *what)
{
    std::printf("FAIL %s: %s\n", what, std::strerror(errno));
    std::fflush(stdout);
    _exit(2);
}

void expect(bool done, const char *what)
{
    if (!done) {
        giveUp(what);
    }
}

void writeFile(const std::string &path, const std::string &text)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << text;
}

// What an installed system has.
void prepareFiles()
{
    writeFile("/etc/machine-id", "0123456789abcdef0123456789abcdef\n");
    writeFile("/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n");
    writeFile("/etc/group", "root:x:0:\n");
    writeFile("/etc/systemd/journald.conf.d/test.conf", "[Journal]\nStorage=volatile\nRuntimeMaxUse=8M\n");
    writeFile("/etc/systemd/system/sysinit.target.d/test.conf", "[Unit]\nRequires=systemd-journald.service\n");
    fs::create_directories("/root");
    fs::create_directories(fs::path(kMetricsFile).parent_path());
}

[[noreturn]] void becomeManager()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    expect(mount("proc", "/proc", "proc", 0, nullptr) == 0, "mounting /proc");
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(null, STDIN_FILENO);
    setenv("PATH", "/bin", 1);
    execl("/lib/systemd/systemd", "systemd", "--system", "--unit=sysinit.target", "--show-status=no", nullptr);
    giveUp("starting systemd");
}

// The parent of systemd. Says through the pipe that the namespaces are there.
[[noreturn]] void keepManager(int ready)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // deliberate: no namespace of control groups, by which systemd knows a container, where the unit does not start.
    expect(unshare(CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWPID) == 0, "making namespaces");
    expect(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "separating the mounts");
    expect(mount("cgroup2", "/sys/fs/cgroup", "cgroup2", 0, nullptr) == 0, "mounting the control groups");
    const pid_t manager = fork();
    if (manager == 0) {
        close(ready);
        becomeManager();
    }
    expect(write(ready, "", 1) == 1, "a pipe");
    close(ready);
    int status = 0;
    waitpid(manager, &status, 0);
    _exit(0);
}

void join(pid_t keeper, const char *kind, int flag)
{
    const std::string path = "/proc/" + std::to_string(keeper) + "/ns/" + kind;
    const int space = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    expect(space >= 0 && setns(space, flag) == 0, path.c_str());
    close(space);
}

} // namespace

Manager::Manager()
{
    prepareFiles();
    std::array<int, 2> ready{};
    expect(pipe(ready.data()) == 0, "a pipe");
    std::fflush(stdout);
    keeper_ = fork();
    if (keeper_ == 0) {
        close(ready[0]);
        keepManager(ready[1]);
    }
    close(ready[1]);
    char byte = 0;
    expect(read(ready[0], &byte, 1) == 1, "the start of systemd");
    close(ready[0]);
    join(keeper_, "uts", CLONE_NEWUTS);
    join(keeper_, "pid_for_children", CLONE_NEWPID);
    join(keeper_, "mnt", CLONE_NEWNS);
    expect(waitUntil([] { return fs::exists("/run/systemd/private"); }), "systemd is up");
}

Manager::~Manager()
{
    kill(keeper_, SIGKILL);
    waitpid(keeper_, nullptr, 0);
}

bool systemctl(const std::string &command)
{
    return outputOf("systemctl " + command + " >/dev/null 2>&1 && echo done") == "done\n";
}

std::string property(const std::string &name)
{
    const std::string text = outputOf("systemctl show --value -p " + name + " " + kUnitName);
    return text.substr(0, text.find('\n'));
}

std::vector<std::string> settings(const std::string &name)
{
    std::vector<std::string> lines;
    std::ifstream unit(kUnitFile);
    for (std::string line; std::getline(unit, line);) {
        if (line.starts_with(name + "=")) {
            lines.push_back(line);
        }
    }
    return lines;
}

bool restartWith(const std::string &lines)
{
    writeFile(kDropIn, "[Service]\n" + lines);
    return systemctl("daemon-reload") && systemctl("restart " + kUnitName);
}

bool startWith(const std::string &lines)
{
    fs::remove(kMetricsFile);
    return restartWith(lines) && waitUntil([] { return fs::exists(kMetricsFile); });
}

std::string journal(const std::string &format, const std::string &words)
{
    return outputOf("journalctl -q --no-pager -o " + format + " _SYSTEMD_UNIT=" + kUnitName + " " + words);
}

} // namespace vm
