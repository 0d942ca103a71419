// SPDX-License-Identifier: Apache-2.0
// ATA device statistics, SCSI log pages, and ATA disks behind a translator.
#include "support/sim_device.h"

#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <linux/hdreg.h>
#include <stdexcept>

namespace {

using namespace device_test;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<uint8_t> readLogExt(uint8_t log, uint8_t page, uint8_t sectors = 1)
{
    return {0x85, 9, 0x0E, 0, 0, 0, sectors, 0, log, 0, page, 0, 0, 0, 0x2F, 0};
}

std::vector<uint8_t> logSense(uint8_t page)
{
    return {0x4D, 0, static_cast<uint8_t>(0x40 | page), 0, 0, 0, 0, 0, 0xFC, 0};
}

std::vector<uint8_t> pageOf(const Node &node, uint8_t page)
{
    const Result result = send(node, logSense(page), SG_DXFER_FROM_DEV, 252);
    const size_t length = size_t{4} + result.data[3];
    return {result.data.begin(), result.data.begin() + static_cast<std::ptrdiff_t>(length)};
}

std::string refusal(const std::string &fields)
{
    try {
        const sim::Machine machine(disk(fields));
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return "accepted";
}

TEST(Statistics, ValuesAreInTheirPages)
{
    const sim::Machine machine(
        disk(R"("ata": true, "statistics": {"powerOnHours": 43210, "sectorsWritten": 1099511627776,
        "reallocatedSectors": null, "temperature": -5, "percentageUsed": 255})"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kIdentify).data[2 * 84] & 0x20, 0x20);                   // general purpose logging
    EXPECT_EQ(send(node, readLogExt(0, 0)).text(8, 2), std::string("\x08\0", 2)); // 8 pages at address 4
    EXPECT_EQ(send(node, readLogExt(4, 0)).text(0, 14), std::string("\1\0\0\0\0\0\0\0\5\0\1\3\5\7", 14));
    const Result general = send(node, readLogExt(4, 1));
    EXPECT_EQ(general.text(0, 3), std::string("\1\0\1", 3));
    EXPECT_EQ(general.text(16, 8), std::string("\xCA\xA8\0\0\0\0\0\xC0", 8));
    EXPECT_EQ(general.text(24, 8), std::string("\0\0\0\0\0\1\0\xC0", 8));
    EXPECT_EQ(general.text(8, 8), std::string(8, '\0')); // not supported
    EXPECT_EQ(send(node, readLogExt(4, 3)).text(32, 8), std::string("\0\0\0\0\0\0\0\x80", 8));
    EXPECT_EQ(send(node, readLogExt(4, 5)).text(8, 8), std::string("\xFB\0\0\0\0\0\0\xC0", 8));
    EXPECT_EQ(send(node, readLogExt(4, 7)).data[8], 255);
    EXPECT_EQ(send(node, {0x85, 8, 0x0E, 0, 0xD5, 0, 1, 0, 4, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0}).data[8],
              5); // SMART READ LOG
    EXPECT_EQ(send(node, readLogExt(4, 8)).header.status, 2);
    EXPECT_EQ(send(node, readLogExt(4, 7, 2)).header.status, 2);
    EXPECT_EQ(send(node, readLogExt(4, 0, 0)).header.status, 2);
    EXPECT_EQ(send(node, readLogExt(0x10, 0)).header.status, 2);
}

TEST(Statistics, PagesCanBeAnyBytes)
{
    const sim::Machine machine(disk(R"("ata": true, "statistics": {"pages": {"00": "0100", "05": [9, 8]}})"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, readLogExt(4, 0)).text(0, 9), std::string("\1\0\0\0\0\0\0\0\0", 9));
    EXPECT_EQ(send(node, readLogExt(4, 5)).text(0, 3), std::string("\x09\x08\0", 3));
}

TEST(Statistics, DiskWithoutThemRefusesTheLog)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, readLogExt(4, 1)).header.status, 2);
    EXPECT_EQ(send(node, readLogExt(0, 0)).header.status, 2);
    EXPECT_EQ(send(node, kIdentify).data[2 * 84] & 0x20, 0);
}

TEST(ScsiLogs, PagesAreAsDescribed)
{
    const sim::Machine machine(disk(R"("logs": {"temperature": 33, "referenceTemperature": null, "percentageUsed": 79,
        "powerOnHours": 100, "startStopCycles": 513, "manufactured": "202417"})"));
    const Node node("/dev/sda");
    EXPECT_THAT(pageOf(node, 0x00), ElementsAre(0, 0, 0, 6, 0x00, 0x0D, 0x0E, 0x11, 0x15, 0x2F));
    EXPECT_THAT(pageOf(node, 0x0D), ElementsAre(0x0D, 0, 0, 12, 0, 0, 3, 2, 0, 33, 0, 1, 3, 2, 0, 0xFF));
    EXPECT_THAT(pageOf(node, 0x0E),
                ElementsAre(0x0E, 0, 0, 18, 0, 1, 3, 6, '2', '0', '2', '4', '1', '7', 0, 4, 3, 4, 0, 0, 2, 1));
    EXPECT_THAT(pageOf(node, 0x11), ElementsAre(0x11, 0, 0, 8, 0, 1, 3, 4, 0, 0, 0, 79));
    EXPECT_THAT(pageOf(node, 0x15), ElementsAre(0x15, 0, 0, 16, 0, 0, 3, 12, 0, 0, 0x17, 0x70, 0, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(send(node, logSense(0x02)).sense[12], 0x24);
}

TEST(ScsiLogs, PagesCanBeAnyBytesOrAbsent)
{
    const sim::Machine machine(
        disk(R"("logs": {"temperature": 33, "pages": {"0d": null, "11": "0001", "00": "0011"}})"));
    const Node node("/dev/sda");
    EXPECT_THAT(pageOf(node, 0x00), ElementsAre(0, 0, 0, 2, 0x00, 0x11));
    EXPECT_EQ(send(node, logSense(0x0D)).sense[12], 0x24);
    EXPECT_THAT(pageOf(node, 0x11), ElementsAre(0x11, 0, 0, 2, 0, 1));
}

TEST(Sat, TranslatorPassesAtaCommandsOn)
{
    const sim::Machine machine(R"({"hosts": [{"driver": "usb-storage",
        "usb": {"vendorId": "152d", "productId": "0583", "product": "Bridge", "serial": "U1"},
        "devices": [{"vendor": "JM", "sat": true, "model": "DISK", "serial": "S9", "ataStatus": "fixed",
                     "smart": {"failing": true}, "power": {"state": "standby"}}]}]})");
    const Node node("/dev/sda");
    std::array<char, 512> block{};
    EXPECT_EQ(ioctl(node.fd, HDIO_GET_IDENTITY, block.data()), -1);
    EXPECT_EQ(errno, EINVAL);
    const Result mode = send(node, {0x85, 6, 0x2C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xE5, 0}, SG_DXFER_NONE);
    EXPECT_EQ(mode.sense[6], 0);
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 0U);
    EXPECT_EQ(send(node, kIdentify).text(20, 2), "9S");
    EXPECT_EQ(machine.power("/dev/sda").spinUps, 1U);
    EXPECT_EQ(send(node, kSmartStatus, SG_DXFER_NONE).sense[10], 0xF4);
    EXPECT_TRUE(machine.exists("/sys/bus/scsi/devices/0:0:0:0/vpd_pg89"));
    EXPECT_EQ(machine.read("/sys/devices/pci0000:00/0000:00:14.0/usb2/2-1/idVendor"), "152d\n");
    EXPECT_EQ(machine.read("/sys/devices/pci0000:00/0000:00:14.0/usb2/2-1/serial"), "U1\n");
    EXPECT_FALSE(machine.exists("/sys/devices/pci0000:00/0000:00:14.0/usb2/2-1/manufacturer"));
}

TEST(Sat, OtherBridgesRejectThem)
{
    const sim::Machine machine(disk(R"("vendor": "PORTA")"));
    const Node node("/dev/sda");
    const Result result = send(node, kIdentify);
    EXPECT_EQ(result.sense[2], 5); // ILLEGAL REQUEST, invalid operation code
    EXPECT_EQ(result.sense[12], 0x20);
}

// Two paths to one disk: the kernel shows two devices with one identity.
TEST(Sysfs, PathsOfADiskHaveOneIdentity)
{
    const sim::Machine machine(
        R"({"hosts": [{"transport": "sas", "devices": [{"serial": "D", "wwn": "5000c500a1b2c3d4"}]},
        {"transport": "sas", "devices": [{"serial": "D", "wwn": "5000c500a1b2c3d4"}]}]})");
    EXPECT_EQ(machine.read("/sys/block/sda/device/wwid"), "naa.5000c500a1b2c3d4\n");
    EXPECT_EQ(machine.read("/sys/block/sdb/device/wwid"), "naa.5000c500a1b2c3d4\n");
}

TEST(Logs, WrongValuesAreRefused)
{
    EXPECT_THAT(refusal(R"("statistics": {"hours": 1})"), HasSubstr("statistics.hours: unknown field"));
    EXPECT_THAT(refusal(R"("statistics": {"temperature": -300})"), HasSubstr("statistics.temperature: the number"));
    EXPECT_THAT(refusal(R"("statistics": {"pages": {"20": ""}})"), HasSubstr("statistics.pages: expected at most"));
    EXPECT_THAT(refusal(R"("logs": {"manufactured": "24"})"), HasSubstr("logs.manufactured: expected year and week"));
    EXPECT_THAT(refusal(R"("logs": {"powerOnHours": 80000000})"), HasSubstr("logs.powerOnHours: the number"));
    EXPECT_THAT(refusal(R"("logs": {"pages": {"d": ""}})"), HasSubstr("logs.pages.d: expected a page"));
    EXPECT_THAT(refusal(R"("ata": true, "sat": true)"), HasSubstr("sat: an ATA device"));
    EXPECT_THROW(sim::Machine(R"({"hosts": [{"usb": {}}]})"), std::runtime_error);
    EXPECT_THROW(sim::Machine(R"({"hosts": [{"driver": "usb-storage", "usb": {"vendorId": "x"}}]})"),
                 std::runtime_error);
}

} // namespace
