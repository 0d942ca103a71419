// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/inventory.h"

#include "support/tool_instances.h"
#include "tavstrg/words.h"

#include <gtest/gtest.h>

namespace {

using namespace tool;
using tool::testing_support::instance;

broker::Instance controller(int index, const std::string &driver)
{
    return instance("TAV_StorageController", {{"Index", std::to_string(index)},
                                              {"InterfaceType", 0},
                                              {"Model", "SCSI Controller"},
                                              {"InterruptNumber", 65535},
                                              {"Driver", driver},
                                              {"DriverVersion", "Not Supported"}});
}

broker::Instance scsi(int index, int type, int typeIndex, int controllerIndex, int target = 0)
{
    return instance("TAV_StorageSCSIDevice", {{"Index", std::to_string(index)},
                                              {"DeviceType", type},
                                              {"DeviceTypeIndex", typeIndex},
                                              {"ControllerIndex", controllerIndex},
                                              {"Bus", 1},
                                              {"TargetID", target},
                                              {"LUN", 2},
                                              {"Vendor", "ATA"},
                                              {"Model", "MODEL"},
                                              {"FirmwareRevision", "FW"},
                                              {"SerialNumber", "SN"}});
}

broker::Instance disk(int index, int interfaceType, int interfaceTypeIndex, int smartStatus = 0)
{
    return instance("TAV_StorageHardDisk", {{"Index", std::to_string(index)},
                                            {"InterfaceType", interfaceType},
                                            {"InterfaceTypeIndex", interfaceTypeIndex},
                                            {"PNPDeviceID", ""},
                                            {"CylindersPerUnit", 100},
                                            {"TracksPerCylinder", 255},
                                            {"SectorsPerTrack", 63},
                                            {"Capacity", 784},
                                            {"SmartStatus", smartStatus}});
}

broker::Instance ide(int index, int type, int controllerIndex, int position)
{
    return instance("TAV_StorageIDEDevice", {{"Index", std::to_string(index)},
                                             {"DeviceType", type},
                                             {"DeviceTypeIndex", 1},
                                             {"ControllerIndex", controllerIndex},
                                             {"IDEConfiguration", position},
                                             {"Model", "OLD DISK"},
                                             {"FirmwareRevision", "Not Supported"},
                                             {"SerialNumber", "Unknown"}});
}

broker::Instance lifeSpan(int index, int diskIndex, int level)
{
    return instance("TAV_StorageLifeSpan",
                    {{"Index", std::to_string(index)}, {"HDDIndex", diskIndex}, {"EnduranceRemaining", level}});
}

TEST(BuildInventory, NoAnswersAreAnEmptyMachine)
{
    const Inventory inventory = buildInventory({});
    EXPECT_TRUE(inventory.controllers.empty());
    EXPECT_EQ(inventory.deviceCount(), 0U);
    EXPECT_EQ(inventory.totals.controllers, 0U);
    EXPECT_FALSE(inventory.monitoring.running);
}

TEST(BuildInventory, PutsDevicesBelowTheControllerThatTheyName)
{
    const Inventory inventory =
        buildInventory({{"TAV_StorageController", {controller(1, "ahci"), controller(2, "mptsas")}},
                        {"TAV_StorageSCSIDevice", {scsi(1, 1, 1, 2), scsi(2, 2, 1, 1), scsi(3, 4, 1, 2)}}});
    ASSERT_EQ(inventory.controllers.size(), 2U);
    ASSERT_EQ(inventory.controllers[0].devices.size(), 1U);
    EXPECT_EQ(inventory.controllers[0].devices[0].index, 2U);
    ASSERT_EQ(inventory.controllers[1].devices.size(), 2U);
    EXPECT_EQ(inventory.controllers[1].devices[0].index, 1U);
    EXPECT_EQ(inventory.controllers[1].devices[1].index, 3U);
    EXPECT_TRUE(inventory.devicesWithoutController.empty());
    EXPECT_EQ(inventory.deviceCount(), 3U);
}

TEST(BuildInventory, SortsDevicesOfAControllerByAddress)
{
    const Inventory inventory =
        buildInventory({{"TAV_StorageController", {controller(1, "ahci")}},
                        {"TAV_StorageSCSIDevice", {scsi(1, 1, 1, 1, 10), scsi(2, 1, 2, 1, 2), scsi(3, 1, 3, 1, 0)}}});
    std::vector<unsigned> order;
    for (const Device &device : inventory.controllers[0].devices) {
        order.push_back(device.index);
    }
    EXPECT_EQ(order, (std::vector<unsigned>{3, 2, 1}));
}

TEST(BuildInventory, SortsMasterBeforeSlave)
{
    const Inventory inventory = buildInventory(
        {{"TAV_StorageController", {controller(1, "")}}, {"TAV_StorageIDEDevice", {ide(1, 2, 1, 3), ide(2, 3, 1, 2)}}});
    EXPECT_EQ(inventory.controllers[0].devices.at(0).index, 2U);
    EXPECT_EQ(inventory.controllers[0].devices.at(1).index, 1U);
}

TEST(BuildInventory, KeepsDevicesWithoutControllerApart)
{
    const Inventory inventory = buildInventory({{"TAV_StorageController", {controller(1, "ahci")}},
                                                {"TAV_StorageSCSIDevice", {scsi(1, 1, 1, 65535), scsi(2, 1, 2, 9)}}});
    EXPECT_TRUE(inventory.controllers[0].devices.empty());
    ASSERT_EQ(inventory.devicesWithoutController.size(), 2U);
    EXPECT_EQ(inventory.deviceCount(), 2U);
}

TEST(BuildInventory, FindsTheDeviceOfADiskByInterfaceAndNumber)
{
    const Inventory inventory =
        buildInventory({{"TAV_StorageSCSIDevice", {scsi(1, 0, 2, 65535), scsi(2, 0, 1, 65535)}},
                        {"TAV_StorageIDEDevice", {ide(1, 2, 65535, 2)}},
                        {"TAV_StorageHardDisk", {disk(1, 0, 2), disk(2, 0, 1, 1), disk(3, 1, 1)}}});
    ASSERT_EQ(inventory.devicesWithoutController.size(), 3U);
    const auto &devices = inventory.devicesWithoutController;
    ASSERT_TRUE(devices[0].disk && devices[1].disk && devices[2].disk);
    EXPECT_EQ(devices[0].disk->index, 2U);
    EXPECT_EQ(devices[0].disk->smartStatus, 1);
    EXPECT_EQ(devices[1].disk->index, 1U);
    EXPECT_EQ(devices[2].interfaceType, kIde);
    EXPECT_EQ(devices[2].disk->index, 3U);
}

TEST(BuildInventory, ADiskWithoutItsDeviceIsNotLost)
{
    const Inventory inventory = buildInventory({{"TAV_StorageHardDisk", {disk(1, 0, 7)}}});
    ASSERT_EQ(inventory.disksWithoutDevice.size(), 1U);
    EXPECT_EQ(inventory.disksWithoutDevice[0].interfaceTypeIndex, 7U);
}

TEST(BuildInventory, LifeSpansGoToTheDiskByItsNumber)
{
    const Inventory inventory = buildInventory({{"TAV_StorageSCSIDevice", {scsi(1, 0, 1, 65535), scsi(2, 0, 2, 65535)}},
                                                {"TAV_StorageHardDisk", {disk(1, 0, 1), disk(2, 0, 2)}},
                                                {"TAV_StorageLifeSpan", {lifeSpan(1, 2, -1), lifeSpan(2, 9, 3)}}});
    const auto &devices = inventory.devicesWithoutController;
    EXPECT_FALSE(devices[0].disk->lifeSpan);
    ASSERT_TRUE(devices[1].disk->lifeSpan);
    EXPECT_EQ(devices[1].disk->lifeSpan->level, -1);
    EXPECT_EQ(devices[1].disk->lifeSpan->index, 1U);
}

TEST(BuildInventory, EveryFieldIsTaken)
{
    const Inventory inventory =
        buildInventory({{"TAV_StorageController",
                         {instance("TAV_StorageController", {{"Index", "3"},
                                                             {"InterfaceType", 1},
                                                             {"Model", "IDE Controller(ide)"},
                                                             {"InterruptNumber", 14},
                                                             {"Driver", "piix"},
                                                             {"DriverVersion", "1.0"}})}},
                        {"TAV_StorageSCSIDevice", {scsi(4, 0, 5, 65535, 6)}},
                        {"TAV_StorageIDEDevice", {ide(1, 3, 3, 3)}},
                        {"TAV_StorageHardDisk", {disk(5, 0, 4, -1)}},
                        {"TAV_StorageTotalNumber",
                         {instance("TAV_StorageTotalNumber", {{"ControllerTotalNumber", 1},
                                                              {"SCSIDeviceTotalNumber", 2},
                                                              {"IDEDeviceTotalNumber", 3},
                                                              {"HardDiskTotalNumber", 4},
                                                              {"CDROMTotalNumber", 5},
                                                              {"TapeTotalNumber", 6},
                                                              {"OpticalMemoryTotalNumber", 7},
                                                              {"MiscTotalNumber", 8}})}},
                        {"TAV_StorageConfig",
                         {instance("TAV_StorageConfig", {{"MonitorCycle", 60},
                                                         {"MonitorCycleMin", 10},
                                                         {"MonitorCycleMax", 3600},
                                                         {"MonitorCycleDefault", 61},
                                                         {"HardDiskSmartMode", 1}})}},
                        {"TAV_StorageThread", {instance("TAV_StorageThread", {{"ThreadRunning", 1}})}}});

    const Controller &found = inventory.controllers.at(0);
    EXPECT_EQ(found.index, 3U);
    EXPECT_EQ(found.interfaceType, 1);
    EXPECT_EQ(found.model, "IDE Controller(ide)");
    EXPECT_EQ(found.interruptNumber, 14U);
    EXPECT_EQ(found.driver, "piix");
    EXPECT_EQ(found.driverVersion, "1.0");

    const Device &ideDevice = found.devices.at(0);
    EXPECT_EQ(ideDevice.interfaceType, kIde);
    EXPECT_EQ(ideDevice.deviceType, 3);
    EXPECT_EQ(ideDevice.ideConfiguration, 3);
    EXPECT_EQ(ideDevice.model, "OLD DISK");
    EXPECT_EQ(ideDevice.serialNumber, "Unknown");

    const Device &device = inventory.devicesWithoutController.at(0);
    EXPECT_EQ(device.index, 4U);
    EXPECT_EQ(device.deviceTypeIndex, 5U);
    EXPECT_EQ(device.bus, 1U);
    EXPECT_EQ(device.targetId, 6U);
    EXPECT_EQ(device.lun, 2U);
    EXPECT_EQ(device.vendor, "ATA");
    EXPECT_EQ(device.model, "MODEL");
    EXPECT_EQ(device.firmwareRevision, "FW");
    EXPECT_EQ(device.serialNumber, "SN");
    EXPECT_EQ(device.disk->cylinders, 100U);
    EXPECT_EQ(device.disk->heads, 255U);
    EXPECT_EQ(device.disk->sectorsPerTrack, 63U);
    EXPECT_EQ(device.disk->capacity, 784U);
    EXPECT_EQ(device.disk->smartStatus, -1);

    const Totals &totals = inventory.totals;
    EXPECT_EQ(totals.controllers, 1U);
    EXPECT_EQ(totals.scsiDevices, 2U);
    EXPECT_EQ(totals.ideDevices, 3U);
    EXPECT_EQ(totals.hardDisks, 4U);
    EXPECT_EQ(totals.cdroms, 5U);
    EXPECT_EQ(totals.tapes, 6U);
    EXPECT_EQ(totals.opticalMemories, 7U);
    EXPECT_EQ(totals.others, 8U);

    const Monitoring &monitoring = inventory.monitoring;
    EXPECT_EQ(monitoring.cycle, 60U);
    EXPECT_EQ(monitoring.cycleMin, 10U);
    EXPECT_EQ(monitoring.cycleMax, 3600U);
    EXPECT_EQ(monitoring.cycleDefault, 61U);
    EXPECT_EQ(monitoring.smartMode, 1);
    EXPECT_TRUE(monitoring.running);
}

TEST(NumberOf, MissingNullAndWordsAreZero)
{
    broker::Instance it = instance("X", {{"Text", "none"}, {"Key", "12"}});
    it.properties.push_back({"Null", {}});
    it.properties.push_back({"Flag", {CMPI_boolean, true}});
    EXPECT_EQ(numberOf(it, "Absent"), 0);
    EXPECT_EQ(numberOf(it, "Null"), 0);
    EXPECT_EQ(numberOf(it, "Text"), 0);
    EXPECT_EQ(numberOf(it, "Key"), 12);
    EXPECT_EQ(numberOf(it, "Flag"), 1);
    EXPECT_EQ(tool::textOf(it, "Null"), "");
    EXPECT_EQ(tool::textOf(it, "Absent"), "");
    EXPECT_EQ(tool::textOf(it, "Text"), "none");
}

} // namespace
