// SPDX-License-Identifier: Apache-2.0
#include "disks/find/find.h"

#include "support/sysfs_tree.h"

#include <ctime>
#include <gtest/gtest.h>

using namespace tavstrg::disks;
using disks_test::SysfsTree;

namespace {

std::string names(const Array<Disk> &disks)
{
    std::string all;
    for (const Disk &disk : disks) {
        all += (all.empty() ? "" : " ") + std::string(disk.name);
    }
    return all;
}

TEST(FindDisks, SataDiskWithWhatTheKernelKnows)
{
    SysfsTree sysfs;
    const std::string device = sysfs.addScsi("sda", 0);
    sysfs.write(device + "/wwid", "naa.5000c500a1b2c3d4\n");
    sysfs.write(device + "/vpd_pg80", std::string("\0\x80\0\x08", 4) + "  NW-001");
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    ASSERT_EQ(disks.count(), 1);
    const Disk &disk = disks[0];
    EXPECT_STREQ(disk.id, "naa.5000c500a1b2c3d4");
    EXPECT_STREQ(disk.name, "sda");
    EXPECT_EQ(disk.transport, Transport::sata);
    EXPECT_EQ(disk.protocol, Protocol::ata);
    EXPECT_STREQ(disk.address, "0:0:0:0");
    EXPECT_STREQ(disk.adapter, "0000:00:1f.2");
    EXPECT_STREQ(disk.vendor, "ATA");
    EXPECT_STREQ(disk.model, "NORDWIND NW1000");
    EXPECT_STREQ(disk.firmware, "NW01");
    EXPECT_STREQ(disk.serial, "NW-001");
    EXPECT_EQ(disk.sizeBytes.value, 1073741824U);
    EXPECT_EQ(disk.logicalBlockBytes.value, 512U);
    EXPECT_EQ(disk.physicalBlockBytes.value, 4096U);
    EXPECT_TRUE(disk.rotational && disk.rotational.value);
    EXPECT_EQ(disk.pathCount, 1U);
}

TEST(FindDisks, WithoutAttributesTheyAreAbsent)
{
    SysfsTree sysfs;
    sysfs.write("devices/pci0000:00/0000:00:02.0/virtio1/block/vda/dev", "254:0\n");
    sysfs.link("block/vda", "../devices/pci0000:00/0000:00:02.0/virtio1/block/vda");
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    ASSERT_EQ(disks.count(), 1);
    EXPECT_FALSE(disks[0].sizeBytes);
    EXPECT_FALSE(disks[0].rotational);
    EXPECT_STREQ(disks[0].serial, "");
    EXPECT_EQ(disks[0].protocol, Protocol::none);
    EXPECT_STREQ(disks[0].id, "place.0000:00:02.0.virtio1");
}

TEST(FindDisks, OnlyDisksAndInTheKernelsOrder)
{
    SysfsTree sysfs;
    for (const char *name : {"sdb", "sda", "sdaa"}) {
        sysfs.addScsi(name, static_cast<unsigned>(name[2] - 'a') * 2 + (name[3] != 0 ? 1U : 0U));
    }
    sysfs.addBlock("virtual/block/dm-0", 8);
    sysfs.addBlock("virtual/block/loop0", 8);
    const std::string drive = sysfs.addScsi("sr0", 7);
    const std::string writer = sysfs.addScsi("sdx", 8);
    sysfs.write(writer + "/type", "5\n");
    const std::string reader = sysfs.addScsi("sdy", 9);
    sysfs.write(reader + "/block/sdy/size", "0\n");
    sysfs.write(reader + "/block/sdy/removable", "1\n");
    sysfs.addBlock("platform/mmc_host/mmc0/mmc0:0001/block/mmcblk0", 8);
    sysfs.addBlock("platform/mmc_host/mmc0/mmc0:0001/block/mmcblk0boot0", 8);
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    EXPECT_EQ(names(disks), "mmcblk0 sda sdb sdaa");
}

TEST(FindDisks, ModelOfTheCachedIdentifyDataIsWhole)
{
    SysfsTree sysfs;
    const std::string device = sysfs.addScsi("sda", 0);
    std::string page(572, '\0');
    const std::string model = "NORDWIND NW1000-EXTENDED-0123456789     ";
    for (size_t i = 0; i < 40; ++i) {
        page[60 + 54 + i] = model[i ^ 1U];
    }
    sysfs.write(device + "/vpd_pg89", page);
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    EXPECT_STREQ(disks[0].model, "NORDWIND NW1000-EXTENDED-0123456789");
}

TEST(FindDisks, UsbDiskTakesTheSerialNumberOfItsBridge)
{
    SysfsTree sysfs;
    const std::string usb = "pci0000:00/0000:00:14.0/usb2/2-1";
    const std::string place = usb + "/2-1:1.0/host9/target9:0:0/9:0:0:0";
    sysfs.addBlock(place + "/block/sdc", 2048);
    sysfs.link("devices/" + place + "/block/sdc/device", "../../../9:0:0:0");
    sysfs.write("devices/" + place + "/vendor", "BRIDGE\n");
    sysfs.write("devices/" + usb + "/serial", "0123456789AB\n");
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    EXPECT_EQ(disks[0].transport, Transport::usb);
    EXPECT_EQ(disks[0].protocol, Protocol::scsi);
    EXPECT_STREQ(disks[0].serial, "0123456789AB");
}

TEST(FindDisks, MultipathNvmeIsOneDiskWithThePlaceOfItsFirstPath)
{
    SysfsTree sysfs;
    const std::string head = "virtual/nvme-subsystem/nvme-subsys0";
    sysfs.addBlock(head + "/nvme0n1", 2048);
    sysfs.write("devices/" + head + "/model", "POLAR P4\n");
    sysfs.write("devices/" + head + "/serial", "P4-1\n");
    sysfs.link("devices/" + head + "/nvme0n1/device", "../../nvme-subsys0");
    sysfs.write("devices/" + head + "/nvme0n1/wwid", "eui.0025385b71b00001\n");
    for (const char *controller : {"0", "1"}) {
        const std::string at = std::string("pci0000:00/0000:0") + controller + ":00.0/nvme/nvme" + controller;
        const std::string path = at + "/nvme0c" + controller + "n1";
        sysfs.addBlock(path, 2048);
        sysfs.write("devices/" + at + "/model", "POLAR P4\n");
        sysfs.write("devices/" + at + "/serial", "P4-1\n");
        sysfs.link("devices/" + path + "/device", std::string("../../nvme") + controller);
        sysfs.write("devices/" + path + "/wwid", "eui.0025385b71b00001\n");
        sysfs.write("devices/" + path + "/nsid", "1\n");
    }
    sysfs.write("bus/pci/slots/4/address", "0000:00:00\n");
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    ASSERT_EQ(disks.count(), 1);
    EXPECT_STREQ(disks[0].id, "eui.0025385b71b00001");
    EXPECT_STREQ(disks[0].name, "nvme0n1");
    EXPECT_STREQ(disks[0].queue, "nvme0");
    EXPECT_STREQ(disks[0].address, "0000:00:00.0");
    EXPECT_STREQ(disks[0].bay, "PCI slot 4");
    EXPECT_EQ(disks[0].pathCount, 3U);
}

TEST(FindDisks, BayOfAnEnclosureBeforeThatOfTheSasLayer)
{
    SysfsTree sysfs;
    for (const char *id : {"3", "4", "5"}) {
        const std::string address = std::string("6:0:") + id + ":0";
        const std::string place = std::string("pci0000:00/0000:02:00.0/host6/port-6:0/end_device-6:0:") + id +
                                  "/target6:0:" + id + "/" + address;
        const std::string name = std::string("sd") + static_cast<char>('a' + id[0] - '3');
        sysfs.addBlock(place + "/block/" + name, 2048);
        sysfs.link("devices/" + place + "/block/" + name + "/device", "../../../" + address);
    }
    sysfs.link("class/enclosure/6:0:8:0/Slot 03/device", "../../../../devices/x/target6:0:3/6:0:3:0");
    sysfs.write("class/sas_device/end_device-6:0:3/bay_identifier", "9\n");
    sysfs.write("class/sas_device/end_device-6:0:4/bay_identifier", "4\n");
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    ASSERT_EQ(disks.count(), 3);
    EXPECT_STREQ(disks[0].bay, "6:0:8:0 Slot 03");
    EXPECT_STREQ(disks[1].bay, "bay 4");
    EXPECT_STREQ(disks[2].bay, "");
}

// An enclosure tells the kernel the names of its bays. Tabs and line ends would also break the lines of the book.
TEST(FindDisks, NameOfABayIsCleanText)
{
    SysfsTree sysfs;
    const std::string place = "pci0000:00/0000:02:00.0/host6/target6:0:3/6:0:3:0";
    sysfs.addBlock(place + "/block/sda", 2048);
    sysfs.link("devices/" + place + "/block/sda/device", "../../../6:0:3:0");
    sysfs.link("class/enclosure/6:0:8:0/Slot\t\x1b[2J\n\xff /device", "../../../../devices/x/target6:0:3/6:0:3:0");
    Array<Disk> disks;
    ASSERT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    ASSERT_EQ(disks.count(), 1);
    EXPECT_STREQ(disks[0].bay, "6:0:8:0 Slot ?[2J ?");
}

TEST(FindDisks, WithoutSysfsThereIsAnAnswerToo)
{
    Array<Disk> disks;
    EXPECT_EQ(findDisks(disks, "/nonexistent"), FindResult::notReadable);
    EXPECT_EQ(disks.count(), 0);
}

TEST(FindDisks, AnEmptyMachineHasNone)
{
    SysfsTree sysfs;
    Array<Disk> disks;
    EXPECT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    EXPECT_TRUE(disks.empty());
}

TEST(FindDisks, EntryThatWentMeanwhileIsLeftOut)
{
    SysfsTree sysfs;
    sysfs.addScsi("sda", 0);
    sysfs.link("block/sdb", "../devices/pci0000:00/0000:00:1f.2/ata2/host1/target1:0:0/1:0:0:0/block/sdb");
    Array<Disk> disks;
    EXPECT_EQ(findDisks(disks, sysfs.path()), FindResult::done);
    EXPECT_EQ(names(disks), "sda");
}

} // namespace
