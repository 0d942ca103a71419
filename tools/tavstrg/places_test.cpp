// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/places.h"

#include "sim/sim.h"

#include <gmock/gmock.h>

namespace {

using namespace tool;
using testing::HasSubstr;

Device scsiDevice(unsigned index, unsigned target, const std::string &model = "MODEL")
{
    Device device;
    device.index = index;
    device.targetId = target;
    device.vendor = "ATA";
    device.model = model;
    return device;
}

KernelDevice kernelDevice(int host, int id, const std::string &node, const std::string &model = "MODEL           ")
{
    return {host, 0, id, 0, "ATA     ", model, node};
}

Controller scsiController(unsigned index, std::vector<Device> devices)
{
    Controller controller;
    controller.index = index;
    controller.driver = "ahci";
    controller.devices = std::move(devices);
    return controller;
}

Inventory twoControllers()
{
    Inventory inventory;
    inventory.controllers = {scsiController(1, {scsiDevice(1, 0)}),
                             scsiController(2, {scsiDevice(2, 0), scsiDevice(3, 5)})};
    return inventory;
}

KernelView twoHosts()
{
    KernelView kernel;
    kernel.managedHosts = {{2, "ahci"}, {10, "ahci"}};
    kernel.devices = {kernelDevice(10, 0, "sdb"), kernelDevice(10, 5, "sdc"), kernelDevice(2, 0, "sda")};
    return kernel;
}

TEST(SetPlaces, ControllersAreTheManagedHostsByNumber)
{
    Inventory inventory = twoControllers();
    setPlaces(inventory, twoHosts());
    EXPECT_EQ(inventory.controllers[0].host, 2U);
    EXPECT_EQ(inventory.controllers[1].host, 10U);
    EXPECT_EQ(inventory.controllers[0].devices[0].node, "sda");
    EXPECT_EQ(inventory.controllers[1].devices[0].node, "sdb");
    EXPECT_EQ(inventory.controllers[1].devices[1].node, "sdc");
    EXPECT_EQ(inventory.controllers[1].devices[1].address(), "10:0:5:0");
}

// Each of these would give a disk another disk's node.
TEST(SetPlaces, NothingIsSetWhereInventoryAndKernelDisagree)
{
    KernelView fewer = twoHosts();
    fewer.managedHosts.pop_back();
    KernelView otherDriver = twoHosts();
    otherDriver.managedHosts[0].driver = "mvsas";
    for (const KernelView &kernel : {KernelView(), fewer, otherDriver}) {
        Inventory inventory = twoControllers();
        setPlaces(inventory, kernel);
        EXPECT_FALSE(inventory.controllers[1].host);
        EXPECT_EQ(inventory.controllers[1].devices[0].node, "");
        EXPECT_EQ(inventory.controllers[1].devices[0].address(), "0:0:0");
    }
}

TEST(SetPlaces, ADeviceOfAnotherNameOrTwoAtOneAddressGetNoNode)
{
    KernelView replaced = twoHosts();
    replaced.devices[0].model = "OTHER";
    KernelView twice = twoHosts();
    twice.devices.push_back(kernelDevice(10, 65536, "sdz")); // the record's 16 bits are those of target 0
    KernelView gone = twoHosts();
    gone.devices.erase(gone.devices.begin());
    for (const KernelView &kernel : {replaced, twice, gone}) {
        Inventory inventory = twoControllers();
        setPlaces(inventory, kernel);
        EXPECT_EQ(inventory.controllers[1].devices[0].node, "");
        EXPECT_FALSE(inventory.controllers[1].devices[0].host);
        EXPECT_EQ(inventory.controllers[1].devices[1].node, "sdc");
    }
}

TEST(SetPlaces, IdeDrivesAreInTheOrderOfTheKernelsList)
{
    Inventory inventory;
    Controller channel;
    channel.interfaceType = kIde;
    Device drive;
    drive.interfaceType = kIde;
    drive.index = 2;
    drive.ideConfiguration = kIdeSlave;
    drive.model = "DISK";
    channel.devices = {drive};
    inventory.controllers = {channel};
    KernelView kernel;
    kernel.ideDrives = {{"hda", "DISK"}, {"hdd", "DISK"}};
    setPlaces(inventory, kernel);
    EXPECT_EQ(inventory.controllers[0].devices[0].node, "hdd");

    inventory.controllers[0].devices[0].node = "";
    kernel.ideDrives[1].name = "hdc"; // a master
    setPlaces(inventory, kernel);
    EXPECT_EQ(inventory.controllers[0].devices[0].node, "");
}

TEST(ReadKernelView, ReadsTheMachineThatTheProviderSees)
{
    const sim::Machine machine(R"({"hosts": [
        {"number": 0, "driver": "mptsas", "devices": [{"ata": true, "model": "LEFT OUT"}]},
        {"number": 2, "driver": "ahci", "devices": [{"id": 1, "ata": true}, {"id": 2, "type": "tape"}]},
        {"number": 10, "driver": "ahci", "devices": [{"type": "cdrom"}, {"id": 3, "type": "enclosure"}]}],
        "files": {"storage.inf": "ahci\n"}})");
    const KernelView kernel = readKernelView();
    ASSERT_EQ(kernel.hosts.size(), 3U);
    ASSERT_EQ(kernel.managedHosts.size(), 2U);
    EXPECT_EQ(kernel.managedHosts[0].number, 2);
    EXPECT_EQ(kernel.managedHosts[1].number, 10);
    std::vector<std::string> nodes;
    for (const KernelDevice &device : kernel.devices) {
        nodes.push_back(std::to_string(device.host) + ":" + std::to_string(device.id) + " " + device.node);
    }
    EXPECT_THAT(nodes, testing::UnorderedElementsAre("0:0 sda", "2:1 sdb", "2:2 st0", "10:0 sr0", "10:3 sg4"));
    EXPECT_TRUE(machine.commands().empty()) << "no device is asked";
}

TEST(EmptyWords, NameTheDriversThatAreNotManaged)
{
    KernelView kernel;
    EXPECT_THAT(emptyWords({}, kernel), HasSubstr("no SCSI host adapter"));
    kernel.hosts = {{0, "ahci"}, {1, "bad\x1b[2J"}};
    kernel.storageInf = "/data/storage.inf";
    EXPECT_THAT(emptyWords({}, kernel), HasSubstr("have the drivers ahci, bad\\x1b[2J, and /data/storage.inf must"));
    EXPECT_EQ(emptyWords(twoControllers(), kernel), "");
}

} // namespace
