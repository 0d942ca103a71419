// SPDX-License-Identifier: Apache-2.0
// The test inside the virtual machine: the provider in the embedded broker, on a real kernel's storage.
//
// usage: vm_guest PHASE
// Each phase is a process of its own and prints its checks. Exit status: 0 all held, 1 some failed, 2 it could not go
// on.
#include "vm/checks.h"
#include "vm/inventory.h"
#include "vm/session.h"

#include <cstdio>
#include <string>

namespace vm {
namespace {

using broker::Value;

const char *const kSolidState = "0:0:0:0"; // in the endurance table
const char *const kPlainDisk = "1:0:0:0";
const char *const kUnwatchedDisk = "5:0:0:0"; // in noscsi.inf

// The tool that people use says the same, from the same shared object.
void theToolShowsTheInventory(const Facts &facts)
{
    const std::string output = outputOf("/test/bin/tavstrg show && echo shown");
    check("tavstrg show succeeds", true, output.ends_with("shown\n"));
    for (const auto &[address, row] : expectedInventory(facts).hardDisks) {
        const std::string &serial = facts.at(address)["serial"];
        check("tavstrg show has the serial number " + serial, true, output.find(serial) != std::string::npos);
    }
}

void inventory()
{
    const Facts facts = readFacts();
    Session session;
    compareInventory(*session, facts, "inventory");
    check("no failure is traced", "", session.failuresTraced());
    session.stop();
    theToolShowsTheInventory(facts);
}

// What was off is on while the status is read, and off again afterwards; what was on stays on.
void smart()
{
    const size_t disks = expectedInventory(readFacts()).hardDisks.size();
    switchSmart(kPlainDisk, false);
    check("SMART is off before the collection", false, smartIsOn(kPlainDisk));
    Session session;
    check("the disk with SMART off is in the inventory", disks, hardDisks(*session));
    check("every disk's SMART status was read", disks, session.traced("sata SMART status is OK!"));
    check("one disk's SMART was switched off again", 1, session.traced("SATA SMART disable successed!"));
    check("SMART is off after the collection", false, smartIsOn(kPlainDisk));
    check("SMART that was on stays on", true, smartIsOn(kSolidState));
    switchSmart(kPlainDisk, true);

    const broker::Reply reply =
        session->invokeMethod("TAV_StorageConfig", "SetHardDiskSmartMode", {{"HardDiskSmartMode", Value::text("0")}});
    check("SMART mode 0 is set", "", reply.message);
    const size_t enabledBefore = session.traced("SATA SMART enable");
    check("disks are there with SMART mode 0", disks, hardDisks(*session));
    check("SMART mode 0 enables nothing", enabledBefore, session.traced("SATA SMART enable"));
}

// No command reaches a disk that is not managed: neither one on the list nor one of a driver that is not.
void unmanaged()
{
    const Facts facts = readFacts();
    const size_t disks = expectedInventory(facts).hardDisks.size();
    std::string otherDisk;
    for (const Device &device : facts.devices) {
        if (facts.drivers.at(device.host) == kDriverWithOtherDisk) {
            otherDisk = device.address;
        }
    }
    const uint64_t unwatched = requestsTo(kUnwatchedDisk);
    const uint64_t other = requestsTo(otherDisk);
    const uint64_t managed = requestsTo(kPlainDisk);
    check("the kernel has counted commands to both", true, unwatched > 0 && other > 0);
    Session session;
    check("the unwatched disk is left out", disks, hardDisks(*session));
    check("no command reaches the unwatched disk", std::to_string(unwatched),
          std::to_string(requestsTo(kUnwatchedDisk)));
    check("no command reaches another driver's disk", std::to_string(other), std::to_string(requestsTo(otherDisk)));
    check("commands do reach a managed disk", true, requestsTo(kPlainDisk) > managed);
    removeNoScsiInf();
    check("without noscsi.inf the disk is in the inventory", disks + 1, hardDisks(*session));
    check("... by its model", true, hasModel(*session, kUnwatchedModel));
    writeNoScsiInf();
    check("with it again it is left out", false, hasModel(*session, kUnwatchedModel));
}

// One managed disk without an ATA identity fails every answer; nothing is published or saved.
void failing()
{
    const size_t disks = expectedInventory(readFacts()).hardDisks.size();
    writeStorageInf({kDriverWithOtherDisk});
    Session session;
    for (const char *const name : {"HardDisk", "Controller", "SCSIDevice", "TotalNumber", "Config"}) {
        const broker::Reply reply = session->enumInstances(std::string("TAV_Storage") + name);
        check(std::string(name) + " fails with a disk without identity managed", "strgInitProvider() Failure!!",
              reply.message);
        check(std::string(name) + " has no instance then", 0, reply.instances.size());
    }
    check("the failure is traced", true, session.traced("ioctl(HDIO_GET_IDENTITY) failed") > 0);
    check("nothing is saved", false, savedStateExists());
    writeStorageInf();
    check("it answers once the driver is not managed any more", disks, hardDisks(*session));
    writeStorageInf({kDriverWithOtherDisk});
    check("a driver managed later fails the next answer", 0, hardDisks(*session));
    writeStorageInf();
    check("and left out again it answers again", disks, hardDisks(*session));
}

// A hundred disks more, of a driver that cannot be managed, change nothing; but there is an end to the names that are
// looked at.
void many()
{
    constexpr int kDisks = 130;
    const Facts before = readFacts();
    addSimulatedDisks(kDisks);
    {
        Session session;
        compareInventory(*session, before, "with 130 disks more");
    }
    forgetSavedState();
    removeDevice(kPlainDisk);
    addSimulatedDisks(1); // gets the name that became free
    scanHost(before.at(kPlainDisk).host);
    const std::string name = diskAt(kPlainDisk);
    check("the disk that came back has a name beyond sddx", true,
          name.size() > 4 || (name.size() == 4 && name > "sddx"));
    Session session;
    check("a managed disk beyond sddx fails the inventory", "strgInitProvider() Failure!!",
          session->enumInstances("TAV_StorageHardDisk").message);
}

int run(const std::string &phase)
{
    const std::pair<const char *, void (*)()> phases[] = {
        {"inventory", inventory},   {"smart", smart},     {"unmanaged", unmanaged}, {"failing", failing},
        {"monitoring", monitoring}, {"hotplug", hotplug}, {"sleeping", sleeping},   {"adapters", adapters},
        {"disks", disks},           {"service", service}, {"unit", unit},           {"many", many}};
    for (const auto &[name, function] : phases) {
        if (phase == name) {
            forgetSavedState();
            writeStorageInf();
            writeNoScsiInf();
            writeEnduranceTable();
            function();
            return failures() == 0 ? 0 : 1;
        }
    }
    std::fprintf(stderr, "vm_guest: unknown phase \"%s\"\n", phase.c_str());
    return 2;
}

} // namespace
} // namespace vm

int main(int argc, char **argv)
{
    return vm::run(argc > 1 ? argv[1] : "");
}
