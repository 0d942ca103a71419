// SPDX-License-Identifier: Apache-2.0
// The monitoring thread in service mode, across changes of the machine.
#include "vm/checks.h"
#include "vm/inventory.h"
#include "vm/session.h"

#include <cstdlib>
#include <fstream>

namespace vm {
namespace {

const char *const kOtherPlugged = "2:0:0:0"; // while it does not
const char *const kThread = "TAV_StorageThread";

// Alerts sent so far: the event id of each, as the agent's library recorded it.
std::string alerts()
{
    const char *const name = std::getenv("TAVALERT_FILE");
    std::ifstream file(name == nullptr ? "" : name);
    std::string ids;
    const std::string label = "\"eventId\":\"";
    for (std::string line; std::getline(file, line);) {
        const size_t at = line.find(label);
        ids += (ids.empty() ? "" : " ") + line.substr(at + label.size(), 10);
        ids += line.find("\"strings\":[]") == std::string::npos ? " with strings" : "";
    }
    return ids;
}

// The alerts of a run up to the given number of configuration changes. The first one tells the level of the solid-state
// disk's endurance: when the records were first built, none was kept.
std::string configurationChanges(int number)
{
    std::string ids = "0x4004044D with strings";
    for (int i = 0; i < number; ++i) {
        ids += " 0x400407D0";
    }
    return ids;
}

// What was sent, once that is as much as expected or the time for it is over.
std::string alertsAwaited(const std::string &expected)
{
    waitUntil([&] { return alerts().size() >= expected.size(); });
    return alerts();
}

std::string threadState(Session &session)
{
    const broker::Reply reply = session->getInstance(kThread);
    const broker::Value *const running =
        reply.instances.empty() ? nullptr : reply.instances.front().find("ThreadRunning");
    return running == nullptr ? reply.message : running->toString();
}

void start(Session &session, const std::string &what)
{
    const size_t before = passes(session);
    check("the thread starts " + what, "", session->invokeMethod(kThread, "StartMonitoringThread").message);
    check("a pass ends " + what, true, waitUntil([&] { return passes(session) > before; }));
}

void stop(Session &session)
{
    check("the thread stops", "", session->invokeMethod(kThread, "StopMonitoringThread").message);
    check("then it is not running", "0", threadState(session));
}

void changesWhileItRuns(Session &session, const Facts &facts, size_t disks)
{
    removeDevice(kPlugged);
    check("pulling a disk out is a configuration change", configurationChanges(1),
          alertsAwaited(configurationChanges(1)));
    check("the disk is gone", disks - 1, hardDisks(*session));
    scanHost(facts.at(kPlugged).host);
    check("plugging it in is one more", configurationChanges(2), alertsAwaited(configurationChanges(2)));
    check("the disk is back", disks, hardDisks(*session));
}

void changesWhileItDoesNot(Session &session, size_t disks)
{
    stop(session);
    removeDevice(kOtherPlugged);
    start(session, "after a disk was pulled out");
    check("a change while it was stopped is reported on the first pass", configurationChanges(3), alerts());
    check("and is in the inventory", disks - 1, hardDisks(*session));
}

// What was known stays when a pass fails.
void failingPass(Session &session, const Facts &facts, size_t disks)
{
    stop(session);
    scanHost(facts.at(kOtherPlugged).host);
    writeStorageInf({kDriverWithOtherDisk});
    start(session, "with a disk without identity managed");
    check("the pass fails", 1, session.traced("strgCheckConfigChange() Failure!!"));
    check("a pass that fails sends no alert", configurationChanges(3), alerts());
    check("and leaves the inventory as it was", disks - 1, hardDisks(*session));
    stop(session);
    writeStorageInf();
    start(session, "with the driver left out again");
    check("the change is reported by the first pass that succeeds", configurationChanges(4), alerts());
}

} // namespace

void monitoring()
{
    const Facts facts = readFacts();
    const size_t disks = expectedInventory(facts).hardDisks.size();
    outputOf("/test/bin/tavstrg call Config SetMonitorCycle MonitorCycle=10");
    check("the settings are saved", true, savedStateExists());
    Session session(true);
    check("without the thread nothing is answered", "ServiceMode But NonThread Failure!!",
          session->enumInstances("TAV_StorageHardDisk").message);
    start(session, "on an unchanged machine");
    check("then it is running", "1", threadState(session));
    check("an unchanged machine is no configuration change", configurationChanges(0), alerts());
    compareInventory(*session, facts, "service mode");
    changesWhileItRuns(session, facts, disks);
    changesWhileItDoesNot(session, disks);
    failingPass(session, facts, disks);
    compareInventory(*session, facts, "after all changes");
    stop(session);
}

} // namespace vm
