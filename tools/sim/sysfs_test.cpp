// SPDX-License-Identifier: Apache-2.0
// What sysfs shows of SCSI devices beyond the texts of INQUIRY: identity pages, block attributes, power.
#include "support/sim_device.h"

#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>

namespace {

using namespace device_test;
using testing::HasSubstr;

const std::string kDevice = "/sys/bus/scsi/devices/8:1:5:3/";

std::string bytesAt(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The message with which a description of one disk is refused.
std::string refusalOfDisk(const std::string &fields)
{
    try {
        const sim::Machine machine(disk(fields));
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return "accepted";
}

TEST(Sysfs, AtaDiskShowsThePagesOfLibata)
{
    const sim::Machine machine(disk(R"("ata": true, "model": "NW1000", "serial": "S1", "wwn": "5000c500a1b2c3d4")"));
    const std::string serial = "S1" + std::string(18, ' ');
    EXPECT_EQ(bytesAt(kDevice + "vpd_pg80"), std::string("\0\x80\0\x14", 4) + serial);
    EXPECT_EQ(bytesAt(kDevice + "vpd_pg83"), std::string("\0\x83\0\x6C\x02\0\0\x14", 8) + serial +
                                                 std::string("\x02\x01\0\x44", 4) + "ATA     NW1000" +
                                                 std::string(34, ' ') + serial +
                                                 std::string("\x01\x03\0\x08\x50\0\xC5\0\xA1\xB2\xC3\xD4", 12));
    const std::string information = bytesAt(kDevice + "vpd_pg89");
    ASSERT_EQ(information.size(), 572U);
    EXPECT_EQ(information.substr(0, 24), std::string("\0\x89\x02\x38\0\0\0\0", 8) + "linux   libata  ");
    EXPECT_EQ(information.substr(60 + 20, 2), "1S"); // serial number of IDENTIFY, bytes swapped
    EXPECT_EQ(bytesAt(kDevice + "wwid"), "naa.5000c500a1b2c3d4\n");
    struct stat status {};
    ASSERT_EQ(stat((kDevice + "vpd_pg80").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0444U);
}

TEST(Sysfs, PagesOfTheDeviceEqualThoseInSysfs)
{
    const sim::Machine machine(disk(R"("vendor": "ACME", "serial": "Z1", "wwn": "5000c500a1b2c3d4")"));
    const Node node("/dev/sda");
    const Result identification = send(node, {0x12, 1, 0x83, 0, 0xFF, 0}, SG_DXFER_FROM_DEV, 255);
    EXPECT_EQ(identification.text(0, 16), bytesAt(kDevice + "vpd_pg83"));
    const Result pages = send(node, {0x12, 1, 0, 0, 0xFF, 0}, SG_DXFER_FROM_DEV, 255);
    EXPECT_EQ(pages.text(0, 7), std::string("\0\0\0\x03\0\x80\x83", 7));
    EXPECT_EQ(send(node, {0x12, 1, 0x89, 0, 0xFF, 0}).header.status, 2);
}

TEST(Sysfs, DiskWithoutNameHasAT10Identity)
{
    {
        const sim::Machine machine(disk(R"("vendor": "ACME", "model": "VOLUME", "serial": "\u0001Z")"));
        EXPECT_EQ(bytesAt(kDevice + "wwid"), "t10.ACME    VOLUME          \\001Z\n");
        EXPECT_FALSE(machine.exists(kDevice + "vpd_pg89"));
    }
    const sim::Machine machine(disk(R"("vendor": "ACME")"));
    EXPECT_FALSE(machine.exists(kDevice + "wwid"));
    EXPECT_FALSE(machine.exists(kDevice + "vpd_pg80"));
    EXPECT_FALSE(machine.exists(kDevice + "vpd_pg83"));
}

TEST(Sysfs, DescribedPagesAndIdentityReplaceTheUsualOnes)
{
    const sim::Machine machine(disk(R"("serial": "Z1", "wwid": "eui.1", "vpdPages":
        {"80": null, "83": "00830002 0103", "89": [0, 137, 0, 1, 7]})"));
    EXPECT_FALSE(machine.exists(kDevice + "vpd_pg80"));
    EXPECT_EQ(bytesAt(kDevice + "vpd_pg83"), std::string("\0\x83\0\x02\x01\x03", 6));
    EXPECT_EQ(bytesAt(kDevice + "vpd_pg89"), std::string("\0\x89\0\x01\x07", 5));
    EXPECT_EQ(bytesAt(kDevice + "wwid"), "eui.1\n");
}

// drivers/scsi/scsi_lib.c, designator_prio: an identity of the port is no identity of the disk.
TEST(Sysfs, IdentityIsTheBestDesignatorOfTheDisk)
{
    const sim::Machine machine(disk(R"("vpdPages": {"83": "00830024 0193000850000000000000AA )"
                                    R"(0103000850000000000000BB 0102000830000000000000CC"})"));
    EXPECT_EQ(bytesAt(kDevice + "wwid"), "naa.50000000000000bb\n");
}

TEST(Sysfs, OldKernelShowsNoPages)
{
    const sim::Machine machine(
        R"({"kernel": "2.6.32", "hosts": [{"devices": [{"ata": true, "serial": "S", "wwn": "5000c500a1b2c3d4"}]}]})");
    EXPECT_TRUE(machine.exists("/sys/bus/scsi/devices/0:0:0:0/model"));
    EXPECT_FALSE(machine.exists("/sys/bus/scsi/devices/0:0:0:0/vpd_pg80"));
    EXPECT_FALSE(machine.exists("/sys/bus/scsi/devices/0:0:0:0/wwid"));
}

TEST(Sysfs, BlockAttributesAreAsDescribed)
{
    const sim::Machine machine(disk(R"("ata": true, "sectors": 8388608, "sectorSize": 512, "physicalSectorSize": 4096,
        "rotationRate": 0, "io": {"reads": 12, "writes": 3})"));
    const std::string block = kDevice + "block/sda/";
    EXPECT_EQ(bytesAt(block + "size"), "8388608\n");
    EXPECT_EQ(bytesAt(block + "queue/rotational"), "0\n");
    EXPECT_EQ(bytesAt(block + "queue/logical_block_size"), "512\n");
    EXPECT_EQ(bytesAt(block + "queue/physical_block_size"), "4096\n");
    EXPECT_EQ(bytesAt("/sys/class/block/sda/stat"),
              "      12        0       96       12        3        0       24        3        0       15       15"
              "        0        0        0        0        0        0\n");
    EXPECT_EQ(bytesAt("/sys/block/sda/removable"), "0\n");
    const Node node("/dev/sda");
    const Result identify = send(node, kIdentify);
    EXPECT_EQ(identify.data[2 * 106], 3); // 8 logical sectors in a physical one
    EXPECT_EQ(identify.data[2 * 217], 1); // solid state
}

TEST(Sysfs, StateAndRuntimeStatusAreAsDescribed)
{
    const sim::Machine machine(disk(R"("state": "offline", "power": {"runtimeStatus": "suspended"})"));
    EXPECT_EQ(bytesAt(kDevice + "state"), "offline\n");
    EXPECT_EQ(bytesAt(kDevice + "power/runtime_status"), "suspended\n");
}

TEST(Sysfs, AddressesAbove255AreShownWhole)
{
    const sim::Machine machine(R"({"hosts": [{"number": 300, "driver": "mpt3sas", "devices": [
        {"channel": 1, "id": 513, "lun": 1025, "serial": "FAR"}]}]})");
    const std::string device = "/sys/bus/scsi/devices/300:1:513:1025/";
    EXPECT_TRUE(machine.exists(device + "block/sda"));
    EXPECT_EQ(bytesAt(device + "vpd_pg80").substr(4), "FAR");
    const Node node("/dev/sda");
    uint32_t words[2] = {};
    ASSERT_EQ(ioctl(node.fd, kGetIdlun, words), 0);
    EXPECT_EQ(words[0], 0x2C010101U); // SCSI_IOCTL_GET_IDLUN has 8 bits for each part
}

TEST(Sysfs, ZonedAndReducedDisksAreDisks)
{
    const sim::Machine machine(R"({"hosts": [{"devices": [{"type": "zoned"}, {"id": 1, "type": "rbc"},
        {"id": 2, "type": "zoned", "ata": true}]}]})");
    EXPECT_EQ(bytesAt("/sys/bus/scsi/devices/0:0:0:0/type"), "20\n");
    EXPECT_EQ(bytesAt("/sys/bus/scsi/devices/0:0:1:0/type"), "14\n");
    EXPECT_EQ(bytesAt("/sys/block/sda/queue/zoned"), "host-managed\n");
    EXPECT_EQ(bytesAt("/sys/block/sdb/queue/zoned"), "none\n");
    const Node node("/dev/sdc");
    EXPECT_EQ(send(node, kSmartData).header.status, 0);
    EXPECT_EQ(send(node, kIdentify).data[2 * 82], 0x21); // as of a disk: write cache, SMART
}

TEST(Sysfs, WrongValuesAreRefusedWithTheirPlace)
{
    EXPECT_THAT(refusalOfDisk(R"("wwn": "5000")"), HasSubstr("hosts[0].devices[0].wwn: expected 16 or 32"));
    EXPECT_THAT(refusalOfDisk(R"("vpdPages": {"8": []})"), HasSubstr("vpdPages.8: expected a page"));
    EXPECT_THAT(refusalOfDisk(R"("vpdPages": {"83": 5})"), HasSubstr("vpdPages.83: expected bytes"));
    EXPECT_THAT(refusalOfDisk(R"("state": "tired")"), HasSubstr("devices[0].state: expected one of: running, "));
    EXPECT_THAT(refusalOfDisk(R"("power": {"runtimeStatus": ""})"), HasSubstr("power.runtimeStatus: expected one of"));
    EXPECT_THAT(refusalOfDisk(R"("physicalSectorSize": 600)"), HasSubstr("physicalSectorSize: expected a power of 2"));
    EXPECT_THAT(refusalOfDisk(R"("rotationRate": 70000)"), HasSubstr("rotationRate: the number is out of range"));
    EXPECT_THAT(refusalOfDisk(R"("io": {"read": 1})"), HasSubstr("io.read: unknown field"));
}

TEST(Sysfs, PathShowsTheTransport)
{
    const sim::Machine machine(R"({"hosts": [
        {"driver": "mpt3sas", "transport": "sas", "devices": [{"wwn": "5000c500a1b2c3d4"}, {"id": 9}, {"id": 9, "lun": 1}]},
        {"driver": "virtio_scsi", "transport": "virtio", "devices": [{}]},
        {"driver": "uas", "transport": "usb", "devices": [{}]}]})");
    const auto placeOf = [](const char *device) {
        const std::unique_ptr<char, void (*)(void *)> path(realpath(device, nullptr), free);
        return std::string(path.get());
    };
    const std::string card = "/sys/devices/pci0000:00/0000:00:0";
    EXPECT_EQ(placeOf("/sys/bus/scsi/devices/0:0:0:0"), card + "2.0/host0/port-0:0/end_device-0:0/target0:0:0/0:0:0:0");
    EXPECT_EQ(placeOf("/sys/bus/scsi/devices/0:0:9:1"), card + "2.0/host0/port-0:1/end_device-0:1/target0:0:9/0:0:9:1");
    EXPECT_EQ(bytesAt("/sys/bus/scsi/devices/0:0:0:0/sas_address"), "0x5000c500a1b2c3d5\n");
    EXPECT_EQ(placeOf("/sys/block/sdd"), card + "3.0/virtio0/host1/target1:0:0/1:0:0:0/block/sdd");
    EXPECT_EQ(placeOf("/sys/bus/scsi/devices/2:0:0:0"),
              "/sys/devices/pci0000:00/0000:00:14.0/usb2/2-1/2-1:1.0/host2/target2:0:0/2:0:0:0");
}

TEST(Sysfs, EnclosureShowsItsBays)
{
    const sim::Machine machine(R"({"hosts": [{"transport": "sas", "devices": [{}, {"id": 1, "type": "enclosure",
        "enclosureId": "0x5003", "slots": [{"name": "Bay 1", "number": 1, "device": "0:0:0:0", "fault": true}, {}]}]}]})");
    const std::string enclosure = "/sys/class/enclosure/0:0:1:0/";
    EXPECT_EQ(bytesAt(enclosure + "components"), "2\n");
    EXPECT_EQ(bytesAt(enclosure + "id"), "0x5003\n");
    EXPECT_EQ(bytesAt(enclosure + "Bay 1/slot"), "1\n");
    EXPECT_EQ(bytesAt(enclosure + "Bay 1/status"), "critical\n");
    EXPECT_EQ(bytesAt(enclosure + "Bay 1/device/type"), "0\n");
    EXPECT_EQ(bytesAt("/sys/block/sda/device/enclosure_device:Bay 1/fault"), "1\n");
    EXPECT_EQ(bytesAt(enclosure + "Slot 1/status"), "not installed\n");
    EXPECT_FALSE(machine.exists(enclosure + "Slot 1/device"));
}

TEST(Sysfs, WrongBaysAreRefused)
{
    EXPECT_THAT(refusalOfDisk(R"("slots": [{}])"), HasSubstr("slots: only a device of type"));
    EXPECT_THAT(refusalOfDisk(R"("type": "enclosure", "slots": [{"device": "0:0:0:0"}])"),
                HasSubstr("hosts: slot Slot 0: there is no device 0:0:0:0"));
    EXPECT_THAT(refusalOfDisk(R"("type": "enclosure", "slots": [{"name": "../x"}])"),
                HasSubstr("name: expected a file name"));
    EXPECT_THAT(refusalOfDisk(R"("type": "enclosure", "slots": [{"name": "a"}, {"name": "a"}])"),
                HasSubstr("slots[1].name: duplicate a"));
}

// ---- opening a node ----

TEST(Opening, ErrorsAreThoseOfTheDescription)
{
    const sim::Machine machine(R"({"hosts": [{"devices": [{"openError": "ENXIO"},
        {"id": 1, "writeOpenError": "EROFS"}]}]})");
    EXPECT_EQ(open("/dev/sda", O_RDONLY | O_NONBLOCK), -1);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(open("/dev/sdb", O_RDWR), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(fopen("/dev/sdb", "r+"), nullptr);
    EXPECT_EQ(errno, EROFS);
    const int descriptor = open("/dev/sdb", O_RDONLY | O_NONBLOCK);
    EXPECT_GE(descriptor, 0);
    close(descriptor);
}

TEST(Opening, IsLogged)
{
    sim::Machine machine(R"({"hosts": [{"devices": [{"openError": "EIO"}, {"id": 1}]}]})");
    static_cast<void>(open("/dev/sda", O_RDWR));
    close(open("/dev/sdb", O_RDONLY | O_NONBLOCK));
    fclose(fopen("/sys/block/sdb/size", "r")); // not a node
    const std::vector<sim::Opening> openings = machine.openings();
    ASSERT_EQ(openings.size(), 2U);
    EXPECT_EQ(openings[0].node, "/dev/sda");
    EXPECT_EQ(openings[0].flags, O_RDWR);
    EXPECT_EQ(openings[0].error, EIO);
    EXPECT_EQ(openings[1].node, "/dev/sdb");
    EXPECT_EQ(openings[1].flags, O_RDONLY | O_NONBLOCK);
    EXPECT_EQ(openings[1].error, 0);
    machine.forgetOpenings();
    EXPECT_TRUE(machine.openings().empty());
}

} // namespace
