// SPDX-License-Identifier: Apache-2.0
// With uevents and disk-alerts, at a cycle of an hour: what the kernel reports ends the sleep, and nothing else does.
#include "vm/checks.h"
#include "vm/facts.h"
#include "vm/inventory.h"
#include "vm/session.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace vm {
namespace {

const char *const kBookFile = "/opt/qlm/tavkit_sa/data/tavstrgdisks.dat";
constexpr double kSoon = 5; // seconds
constexpr int kBurst = 100;

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// Context switches of all threads of this process but the calling one.
unsigned long wakeUps()
{
    unsigned long sum = 0;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == std::to_string(::gettid())) {
            continue;
        }
        std::ifstream status(task.path() / "status");
        for (std::string word; status >> word;) {
            if (word.find("voluntary_ctxt_switches:") != std::string::npos) {
                unsigned long number = 0;
                status >> number;
                sum += number;
            }
        }
    }
    return sum;
}

// Waits until no pass has ended for two seconds.
void settle(const Session &session)
{
    size_t before = passes(session) + 1;
    while (before != passes(session)) {
        before = passes(session);
        std::this_thread::sleep_for(std::chrono::seconds(2));
    }
}

// Has the kernel report an event of a disk, as udevadm trigger does.
void report(const std::string &action, int times)
{
    const std::string file = "/sys/block/" + diskAt(kPlugged) + "/uevent";
    for (int i = 0; i < times; ++i) {
        std::ofstream(file) << action;
    }
}

// The events about single disks that were sent.
std::string diskEvents()
{
    const char *const name = std::getenv("TAVALERT_FILE");
    std::ifstream file(name == nullptr ? "" : name);
    std::string ids;
    const std::string label = "\"eventId\":\"";
    for (std::string line; std::getline(file, line);) {
        if (line.find("Event : ") != std::string::npos) {
            ids += (ids.empty() ? "" : " ") + line.substr(line.find(label) + label.size(), 10);
        }
    }
    return ids;
}

void pulledAndPlugged(Session &session, const Facts &facts, size_t disks)
{
    Clock::time_point begin = Clock::now();
    removeDevice(kPlugged);
    check("a disk that was pulled out is gone", true, waitUntil([&] { return hardDisks(*session) == disks - 1; }));
    check("... within 5 seconds", true, secondsSince(begin) < kSoon);
    settle(session);
    check("... with an event", "0x80040835", diskEvents());
    begin = Clock::now();
    scanHost(facts.at(kPlugged).host);
    check("a disk that was plugged in is there", true, waitUntil([&] { return hardDisks(*session) == disks; }));
    check("... within 5 seconds", true, secondsSince(begin) < kSoon);
    settle(session);
    check("... with an event", "0x80040835 0x40040834", diskEvents());
}

void bursts(Session &session)
{
    size_t before = passes(session);
    report("add", kBurst);
    check("a burst of events makes a pass", true, waitUntil([&] { return passes(session) > before; }));
    settle(session);
    check("... or two", true, passes(session) <= before + 2);
    before = passes(session);
    report("change", kBurst);
    settle(session);
    check("what udev reports of a pass makes none", before, passes(session));
}

void nothingWhileQuiet(const Session &session)
{
    settle(session);
    const unsigned long before = wakeUps();
    std::this_thread::sleep_for(std::chrono::seconds(5));
    check("while nothing happens no thread wakes up", std::to_string(before), std::to_string(wakeUps()));
}

} // namespace

void hotplug()
{
    const Facts facts = readFacts();
    const size_t disks = expectedInventory(facts).hardDisks.size();
    outputOf("/test/bin/tavstrg call Config SetMonitorCycle MonitorCycle=3600");
    std::ofstream(kOptionsFile) << "uevents\ndisk-alerts\n";
    {
        Session session(true);
        check("the thread starts", "", session->invokeMethod("TAV_StorageThread", "StartMonitoringThread").message);
        settle(session);
        check("all disks are there", disks, hardDisks(*session));
        check("nothing is added in the first pass", "", diskEvents());
        nothingWhileQuiet(session);
        pulledAndPlugged(session, facts, disks);
        bursts(session);
        nothingWhileQuiet(session);
        const Clock::time_point begin = Clock::now();
        check("the thread stops", "", session->invokeMethod("TAV_StorageThread", "StopMonitoringThread").message);
        check("... at once", true, secondsSince(begin) < 2);
    }
    std::filesystem::remove(kOptionsFile);
    std::filesystem::remove(kBookFile);
}

} // namespace vm
