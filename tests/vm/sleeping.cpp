// SPDX-License-Identifier: Apache-2.0
// A disk that the kernel has suspended, and nodes that are not opened for writing, with and without the lines of
// options.inf.
#include "vm/checks.h"
#include "vm/inventory.h"
#include "vm/session.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/inotify.h>
#include <unistd.h>

namespace vm {
namespace {

namespace fs = std::filesystem;

const std::string kSleeper = "1:0:0:0";
const std::string kPower = "/sys/bus/scsi/devices/" + kSleeper + "/power/";

void writeFile(const std::string &path, const std::string &text)
{
    std::ofstream file(path);
    if (!(file << text) || !file.flush()) {
        std::printf("FAIL cannot write %s to %s\n", text.c_str(), path.c_str());
        std::exit(2);
    }
}

std::string runtimeStatus()
{
    std::ifstream file(kPower + "runtime_status");
    std::string status;
    file >> status;
    return status;
}

// The kernel suspends the disk once it has been idle for a moment.
void letItSleep()
{
    writeFile(kPower + "autosuspend_delay_ms", "100\n");
    writeFile(kPower + "control", "auto\n");
    check("the kernel suspends the idle disk", true, waitUntil([] { return runtimeStatus() == "suspended"; }));
}

void keepItAwake()
{
    writeFile(kPower + "control", "on\n");
}

// What happens to the nodes of all disks while this lives.
class NodeWatch {
public:
    NodeWatch() : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        for (const auto &entry : fs::directory_iterator("/sys/block")) {
            const std::string name = entry.path().filename();
            if (name.starts_with("sd")) {
                const int watch = inotify_add_watch(fd_, ("/dev/" + name).c_str(), IN_OPEN | IN_CLOSE_WRITE);
                check("the node of " + name + " is watched", true, watch >= 0);
                sleeper_ = name == diskAt(kSleeper) ? watch : sleeper_;
            }
        }
    }
    ~NodeWatch() { close(fd_); }
    NodeWatch(const NodeWatch &) = delete;
    NodeWatch &operator=(const NodeWatch &) = delete;

    // Takes note of what has happened up to now.
    void read()
    {
        alignas(inotify_event) char buffer[4096];
        for (ssize_t got = ::read(fd_, buffer, sizeof buffer); got > 0; got = ::read(fd_, buffer, sizeof buffer)) {
            for (ssize_t at = 0; at < got;) {
                const auto *const event = reinterpret_cast<const inotify_event *>(buffer + at);
                closesAfterWrite += (event->mask & IN_CLOSE_WRITE) != 0 ? 1 : 0;
                opens += (event->mask & IN_OPEN) != 0 ? 1 : 0;
                sleeperOpens += (event->mask & IN_OPEN) != 0 && event->wd == sleeper_ ? 1 : 0;
                at += static_cast<ssize_t>(sizeof *event + event->len);
            }
        }
    }

    size_t opens = 0;
    size_t sleeperOpens = 0;
    size_t closesAfterWrite = 0;

private:
    const int fd_;
    int sleeper_ = -1;
};

// Outside service mode each request is a pass.
void threePasses(Session &session, size_t disks)
{
    for (int pass = 0; pass < 3; ++pass) {
        check("every disk is in the inventory", disks, hardDisks(*session));
    }
}

void withTheLines(const std::string &lines, const Facts &facts, size_t disks)
{
    const std::string what = " with " + lines.substr(0, lines.find('\n'));
    writeFile(kOptionsFile, lines);
    forgetSavedState();
    Session session;
    check("the disks are asked while they are awake" + what, disks, hardDisks(*session));
    compareInventory(*session, facts, "before the disk sleeps" + what);
    letItSleep();
    const uint64_t requests = requestsTo(kSleeper);
    NodeWatch nodes;
    threePasses(session, disks);
    check("after three passes the disk is still suspended" + what, "suspended", runtimeStatus());
    check("no command reached it" + what, std::to_string(requests), std::to_string(requestsTo(kSleeper)));
    nodes.read();
    check("its node was not opened" + what, 0, nodes.sleeperOpens);
    check("no node was closed after writing" + what, 0, nodes.closesAfterWrite);
    compareInventory(*session, facts, "while it sleeps" + what);
    keepItAwake();
    session.stop();
}

} // namespace

void sleeping()
{
    const Facts facts = readFacts();
    const size_t disks = expectedInventory(facts).hardDisks.size();
    {
        Session session;
        check("the disks are asked", disks, hardDisks(*session));
        letItSleep();
        const uint64_t requests = requestsTo(kSleeper);
        NodeWatch nodes;
        threePasses(session, disks);
        nodes.read();
        check("without the lines the suspended disk is woken", true, requestsTo(kSleeper) > requests);
        check("and its node is opened", true, nodes.sleeperOpens > 0);
        check("and nodes are closed after writing", true, nodes.closesAfterWrite > 0);
        keepItAwake();
    }
    withTheLines("sleeping-disks\n", facts, disks);
    withTheLines("all\n", facts, disks);

    writeFile(kOptionsFile, "smart-state\n");
    forgetSavedState();
    Session session;
    NodeWatch nodes;
    threePasses(session, disks);
    nodes.read();
    check("with smart-state nodes are opened", true, nodes.opens > 0);
    check("but none is closed after writing", 0, nodes.closesAfterWrite);
    check("every disk's SMART status was read", true, session.traced("sata SMART status is OK!") >= disks);
    fs::remove(kOptionsFile);
}

} // namespace vm
