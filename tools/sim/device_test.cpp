// SPDX-License-Identifier: Apache-2.0
#include "support/sim_device.h"

#include <gmock/gmock.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <numeric>
#include <thread>

namespace {

using namespace device_test;
using testing::Each;
using testing::ElementsAre;

TEST(Device, AddressIsPackedIntoOneWord)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    uint32_t words[2] = {7, 7};
    ASSERT_EQ(ioctl(node.fd, kGetIdlun, words), 0);
    EXPECT_EQ(words[0], 0x08010305U);
}

TEST(Device, SerialRunsOnIntoTheNextWord)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    std::array<char, 512> block{};
    ASSERT_EQ(ioctl(node.fd, HDIO_GET_IDENTITY, block.data()), 0);
    EXPECT_STREQ(std::string(block.data() + 20).c_str(), "AHCI0SER-0123456789X\x03");
    EXPECT_EQ(std::string(block.data() + 46, 18), "FW1.2   TESTMODEL-");
}

TEST(Device, ShortSerialIsBlankPadded)
{
    const sim::Machine machine(disk(R"("ata": true, "serial": "SHORT1")"));
    const Node node("/dev/sda");
    std::array<char, 512> block{};
    ASSERT_EQ(ioctl(node.fd, HDIO_GET_IDENTITY, block.data()), 0);
    EXPECT_STREQ(block.data() + 20, "SHORT1              ");
}

TEST(Device, SizesAndGeometryAreAsDescribed)
{
    const sim::Machine machine(disk(R"("ata": true, "sizeBytes": 4294967296, "sectorSize": 4096,
        "geometry": {"heads": 255, "sectors": 63, "cylinders": 65})"));
    const Node node("/dev/sda");
    int sectorSize = 0;
    unsigned long sectors = 0;
    uint64_t bytes = 0;
    hd_geometry geometry{};
    ASSERT_EQ(ioctl(node.fd, BLKSSZGET, &sectorSize), 0);
    ASSERT_EQ(ioctl(node.fd, BLKGETSIZE, &sectors), 0);
    ASSERT_EQ(ioctl(node.fd, BLKGETSIZE64, &bytes), 0);
    ASSERT_EQ(ioctl(node.fd, HDIO_GETGEO, &geometry), 0);
    EXPECT_EQ(sectorSize, 4096);
    EXPECT_EQ(sectors, 8388608U);
    EXPECT_EQ(bytes, 4294967296U);
    EXPECT_EQ(geometry.heads, 255);
    EXPECT_EQ(geometry.sectors, 63);
    EXPECT_EQ(geometry.cylinders, 65);
}

TEST(Device, NullGeometryMakesGetgeoFail)
{
    const sim::Machine machine(disk(R"("ata": true, "geometry": null)"));
    const Node node("/dev/sda");
    hd_geometry geometry{};
    EXPECT_EQ(ioctl(node.fd, HDIO_GETGEO, &geometry), -1);
    EXPECT_EQ(errno, ENOTTY);
}

// Replies of Linux 6.1 for an AHCI disk (recorded in a virtual machine).
TEST(AtaDisk, InquiryIsAsRecorded)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    const Result result = send(node, kInquiry, SG_DXFER_FROM_DEV, 64);
    EXPECT_EQ(result.ret, 0);
    EXPECT_EQ(result.header.status, 0);
    EXPECT_EQ(result.header.driver_status, 0);
    EXPECT_EQ(result.text(8, 28), "ATA     TESTMODEL-SATA-0FW1.");
    EXPECT_EQ(result.data[4], 0x5B);
    EXPECT_EQ(result.data[2], 5);
}

TEST(AtaDisk, IdentifyTextsAreByteSwapped)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    const Result result = send(node, kIdentify);
    EXPECT_EQ(result.header.status, 0);
    std::string serial = result.text(20, 20);
    for (size_t i = 0; i < serial.size(); i += 2) {
        std::swap(serial[i], serial[i + 1]);
    }
    EXPECT_EQ(serial, "AHCI0SER-0123456789X");
    EXPECT_EQ(result.data[2 * 83 + 1], 0x74); // words 82 and 83 are valid
    EXPECT_EQ(result.data[2 * 82] & 1, 1);    // SMART
}

TEST(AtaDisk, IdentifyPacketIsAborted)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    const Result result = send(node, kIdentifyPacket);
    EXPECT_EQ(result.ret, 0);
    EXPECT_EQ(result.header.status, 2);
    EXPECT_EQ(result.header.driver_status, 8);
    EXPECT_THAT(result.senseBytes(), ElementsAre(0x70, 0, 0x0B, 0, 0, 0, 0, 0x0A, 4, 0x41, 0, 1, 0, 0, 0, 0, 0, 0));
}

TEST(AtaDisk, ReturnStatusEndsInDescriptorSense)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    const Result result = send(node, kSmartStatus, SG_DXFER_NONE);
    EXPECT_EQ(result.header.status, 2);
    EXPECT_EQ(result.header.driver_status, 8);
    EXPECT_EQ(result.header.info & SG_INFO_CHECK, 1U);
    EXPECT_THAT(result.senseBytes(),
                ElementsAre(0x72, 1, 0, 0x1D, 0, 0, 0, 0x0E, 9, 0x0C, 0, 0, 0, 0, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0x50));
}

TEST(AtaDisk, ReturnStatusReportsAFailingDisk)
{
    const sim::Machine machine(disk(kAta + R"(, "smart": {"failing": true})"));
    const Node node("/dev/sda");
    const Result result = send(node, kSmartStatus, SG_DXFER_NONE);
    EXPECT_EQ(result.sense[17], 0xF4);
    EXPECT_EQ(result.sense[19], 0x2C);
}

// SMART READ LOG.
std::vector<uint8_t> readLog(uint8_t address, uint8_t sectors = 1)
{
    return {0x85, 8, 0x0E, 0, 0xD5, 0, sectors, 0, address, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0};
}
const std::vector<uint8_t> kSmartThresholds{0x85, 8, 0x0E, 0, 0xD1, 0, 1, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0};

uint8_t sumOf(const Result &result)
{
    return std::accumulate(result.data.begin(), result.data.end(), uint8_t{0});
}

TEST(AtaDisk, SmartSectorsReportCapabilities)
{
    const sim::Machine machine(disk(kAta + R"(, "smart": {"attributes": [{"id": 5, "threshold": 10}, {"id": 9}]})"));
    const Node node("/dev/sda");
    const Result data = send(node, kSmartData);
    EXPECT_EQ(data.data[2], 5);
    EXPECT_EQ(data.data[367] & 0x10, 0x10); // self-tests
    EXPECT_EQ(data.data[370], 1);           // error logging
    EXPECT_EQ(sumOf(data), 0);
    const Result thresholds = send(node, kSmartThresholds);
    EXPECT_EQ(thresholds.header.status, 0);
    EXPECT_EQ(thresholds.text(0, 5), std::string("\x01\0\x05\x0A\0", 5));
    EXPECT_EQ(thresholds.data[14], 9);
    EXPECT_EQ(sumOf(thresholds), 0);
    const Result identify = send(node, kIdentify);
    for (const size_t word : {size_t{84}, size_t{87}}) {
        EXPECT_EQ(identify.data[2 * word] & 3, 3) << word;
    }
}

TEST(AtaDisk, SmartLogsAreEmpty)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    const Result directory = send(node, readLog(0));
    EXPECT_EQ(directory.header.status, 0);
    EXPECT_EQ(directory.text(0, 4), std::string("\x01\0\x01\0", 4));
    EXPECT_EQ(directory.data[12], 1);
    for (const uint8_t log : {uint8_t{1}, uint8_t{6}}) {
        const Result result = send(node, readLog(log));
        EXPECT_EQ(result.header.status, 0);
        EXPECT_EQ(result.data[0], 1);
        EXPECT_EQ(sumOf(result), 0);
    }
    for (const auto &refused : {readLog(7), readLog(1, 0), readLog(1, 2)}) {
        EXPECT_EQ(send(node, refused).header.status, 2);
    }
}

TEST(AtaDisk, WithoutSmartThresholdsAndLogsAreRefused)
{
    const sim::Machine machine(disk(kAta + R"(, "smart": {"supported": false})"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kSmartThresholds).header.status, 2);
    EXPECT_EQ(send(node, readLog(1)).header.status, 2);
    EXPECT_EQ(send(node, kIdentify).data[2 * 84] & 3, 0);
}

TEST(AtaDisk, DisabledSmartRefusesDataAndStatus)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kSmartData).header.status, 0);
    EXPECT_EQ(send(node, kSmartDisable, SG_DXFER_NONE).header.status, 0);
    const Result data = send(node, kSmartData);
    EXPECT_EQ(data.header.status, 2);
    EXPECT_THAT(data.data, Each(0));
    const Result status = send(node, kSmartStatus, SG_DXFER_NONE);
    EXPECT_THAT(status.senseBytes(), ElementsAre(0x70, 0, 0x0B, 0, 0, 0, 0, 0x0A, 4, 0x41, 0, 0, 0, 0, 0, 0, 0, 0));
    std::array<uint8_t, 516> block{0xB0, 0, 0xD0, 1};
    EXPECT_EQ(ioctl(node.fd, HDIO_DRIVE_CMD, block.data()), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(send(node, kSmartEnable, SG_DXFER_NONE).header.status, 0);
    EXPECT_EQ(send(node, kSmartData).header.status, 0);
}

TEST(AtaDisk, SmartDataHoldsTheAttributes)
{
    const sim::Machine machine(disk(kAta + R"(, "smart": {"attributes": [
        {"id": 9, "current": 99}, {"id": 230, "current": 95, "raw": [1, 17], "threshold": 3}]})"));
    const Node node("/dev/sda");
    const Result result = send(node, kSmartData);
    EXPECT_EQ(result.data[2], 9);
    EXPECT_EQ(result.data[5], 99);
    EXPECT_EQ(result.data[14], 230);
    EXPECT_EQ(result.data[17], 95);
    EXPECT_EQ(result.data[20], 17);
    EXPECT_EQ(result.data[25], 3);
    unsigned sum = 0;
    for (const uint8_t byte : result.data) {
        sum += byte;
    }
    EXPECT_EQ(sum % 256, 0U);
}

TEST(AtaDisk, DriveCommandsAnswerAsLibataDoes)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    std::array<uint8_t, 516> identify{0xEC, 0, 0, 1};
    ASSERT_EQ(ioctl(node.fd, HDIO_DRIVE_CMD, identify.data()), 0);
    EXPECT_EQ(identify[0], 0xEC);
    EXPECT_EQ(identify[4 + 2 * 83 + 1], 0x74);
    std::array<uint8_t, 516> packet{0xA1, 0, 0, 1};
    EXPECT_EQ(ioctl(node.fd, HDIO_DRIVE_CMD, packet.data()), -1);
    EXPECT_EQ(errno, EIO);
    std::array<uint8_t, 4> enable{0xB0, 1, 0xD8, 0};
    ASSERT_EQ(ioctl(node.fd, HDIO_DRIVE_CMD, enable.data()), 0);
    EXPECT_THAT(enable, ElementsAre(0x50, 0, 0, 0));
    std::array<uint8_t, 7> status{0xB0, 0xDA, 0, 0, 0x4F, 0xC2, 0};
    ASSERT_EQ(ioctl(node.fd, HDIO_DRIVE_TASK, status.data()), 0);
    EXPECT_THAT(status, ElementsAre(0x50, 0, 0, 0, 0x4F, 0xC2, 0));
}

TEST(AtaDisk, ExceptionsPageIsRefused)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    const Result result = send(node, kModeSense6, SG_DXFER_FROM_DEV, 255);
    EXPECT_EQ(result.ret, 0);
    EXPECT_EQ(result.header.status, 2);
    EXPECT_THAT(result.data, Each(0));
    EXPECT_THAT(result.senseBytes(),
                ElementsAre(0x70, 0, 5, 0, 0, 0, 0, 0x12, 0, 0, 0, 0, 0x24, 0, 0, 0xC0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(AtaDisk, IdentifyWordsCanBeSet)
{
    const sim::Machine machine(disk(R"("ata": true, "identifyWords": {"83": 0, "82": 16384})"));
    const Node node("/dev/sda");
    const Result result = send(node, kIdentify);
    EXPECT_EQ(result.data[2 * 83 + 1], 0);
    EXPECT_EQ(result.data[2 * 82 + 1], 0x40);
    EXPECT_EQ(result.data[2 * 82], 0);
}

TEST(AtaDisk, IdentifyPacketDeviceRefusesIdentify)
{
    const sim::Machine machine(disk(R"("ata": true, "identifyBy": "packet")"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kIdentify).header.status, 2);
    EXPECT_EQ(send(node, kIdentifyPacket).header.status, 0);
}

// Replies of Linux 6.1 for a virtio SCSI disk (recorded in a virtual machine).
TEST(ScsiDisk, RefusesAtaCommands)
{
    const sim::Machine machine(disk(R"("vendor": "ACME", "model": "TESTDISK", "serial": "VS0SERIAL")"));
    const Node node("/dev/sda");
    std::array<uint8_t, 516> block{0xEC, 0, 0, 1};
    EXPECT_EQ(ioctl(node.fd, HDIO_GET_IDENTITY, block.data()), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ioctl(node.fd, HDIO_DRIVE_CMD, block.data()), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ioctl(node.fd, HDIO_DRIVE_TASK, block.data()), -1);
    EXPECT_EQ(errno, EINVAL);
    const Result result = send(node, kIdentify);
    EXPECT_EQ(result.ret, 0);
    EXPECT_EQ(result.header.status, 2);
    EXPECT_THAT(result.senseBytes(), ElementsAre(0x70, 0, 5, 0, 0, 0, 0, 0x0A, 0, 0, 0, 0, 0x20, 0, 0, 0, 0, 0));
    const Result serial = send(node, {0x12, 1, 0x80, 0, 0xFF, 0}, SG_DXFER_FROM_DEV, 255);
    EXPECT_EQ(serial.text(4, 9), "VS0SERIAL");
}

TEST(ScsiDisk, ModeSelectSwitchesExceptions)
{
    const sim::Machine machine(disk(R"("vendor": "ACME", "sectors": 131072,
        "exceptions": {"dexcpt": true, "unitAttention": true, "predicting": true})"));
    const Node node("/dev/sda");
    const Result before = send(node, kModeSense6, SG_DXFER_FROM_DEV, 255);
    EXPECT_EQ(before.text(0, 16), std::string("\x17\0\x10\x08\0\x02\0\0\0\0\x02\0\x1C\x0A\x08\0", 16));
    std::vector<uint8_t> list(before.data.begin(), before.data.begin() + 24);
    list[0] = 0;
    list[14] = 0; // exceptions on
    list[15] = 6; // reported on request
    EXPECT_EQ(send(node, {0x15, 0x10, 0, 0, 24, 0}, SG_DXFER_TO_DEV, 24, list).header.status, 0);
    EXPECT_EQ(send(node, kModeSense6).sense[12], 0x2A); // unit attention, once
    const Result after = send(node, kModeSense10);
    EXPECT_EQ(after.data[1], 26);
    EXPECT_EQ(after.data[7], 8);
    EXPECT_EQ(after.data[18], 0);
    EXPECT_EQ(after.data[19], 6);
    EXPECT_EQ(send(node, kRequestSense, SG_DXFER_FROM_DEV, 255).data[12], 0x5D);
    EXPECT_EQ(send(node, kLogPages).text(0, 7), std::string("\0\0\0\x03\0\x0D\x2F", 7));
    EXPECT_EQ(send(node, kLogExceptions).text(0, 10), std::string("\x2F\0\0\x07\0\0\x03\x03\x5D\xFF", 10));
}

TEST(ScsiDisk, MissingPageAndMissingCommandDiffer)
{
    {
        const sim::Machine machine(disk(R"("exceptions": {"supported": false})"));
        const Node node("/dev/sda");
        EXPECT_EQ(send(node, kModeSense6).sense[12], 0x24);
        EXPECT_EQ(send(node, kLogPages).data[3], 2);
    }
    const sim::Machine machine(disk(R"("exceptions": {"modeSense6": false, "fixedMrie": 4})"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, kModeSense6).sense[12], 0x20);
    const Result page = send(node, kModeSense10);
    EXPECT_EQ(page.header.status, 0);
    std::vector<uint8_t> list(page.data.begin(), page.data.begin() + 28);
    list[19] = 6;
    EXPECT_EQ(send(node, {0x55, 0x10, 0, 0, 0, 0, 0, 0, 28, 0}, SG_DXFER_TO_DEV, 28, list).header.status, 0);
    EXPECT_EQ(send(node, kModeSense10).data[19], 4);
}

std::vector<uint8_t> modeSense6(uint8_t pageControl)
{
    return {0x1A, 0, static_cast<uint8_t>(pageControl << 6 | 0x1C), 0, 0xFF, 0};
}

// MODE SELECT(6) of bytes 2 and 3 of the exceptions page, for a disk without block descriptor.
Result select(const Node &node, uint8_t flags, uint8_t mrie, bool save = false)
{
    const auto options = static_cast<uint8_t>(save ? 0x11 : 0x10);
    return send(node, {0x15, options, 0, 0, 16, 0}, SG_DXFER_TO_DEV, 16, {0, 0, 0, 0, 0x1C, 0x0A, flags, mrie});
}

TEST(ScsiDisk, CurrentDefaultAndSavedValuesDiffer)
{
    const sim::Machine machine(
        disk(R"("exceptions": {"savable": true, "dexcpt": true, "mrie": 3, "blockDescriptor": false})"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, modeSense6(0)).data[4], 0x9C); // PS
    EXPECT_EQ(select(node, 0x10, 6, true).header.status, 0);
    EXPECT_EQ(select(node, 0x10, 4, false).header.status, 0);
    const uint8_t expected[4][2] = {{0x10, 4}, {0xBF, 0x0F}, {0x08, 3}, {0x10, 6}};
    for (uint8_t control = 0; control < 4; ++control) {
        const Result page = send(node, modeSense6(control));
        EXPECT_EQ(page.data[6], expected[control][0]) << int(control);
        EXPECT_EQ(page.data[7], expected[control][1]) << int(control);
    }
}

TEST(ScsiDisk, SaveIsRefusedUnlessSavable)
{
    const sim::Machine machine(disk(R"("exceptions": {"blockDescriptor": false})"));
    const Node node("/dev/sda");
    EXPECT_EQ(send(node, modeSense6(0)).data[4], 0x1C);
    EXPECT_EQ(send(node, modeSense6(3)).sense[12], 0x39);
    EXPECT_EQ(select(node, 0x08, 6, true).sense[12], 0x24);
    EXPECT_TRUE(machine.smartSwitchedOn("/dev/sda"));
}

TEST(ScsiDisk, ChangeOfUnchangeableFieldIsRefused)
{
    const sim::Machine machine(disk(R"("exceptions": {"changeableMrie": false, "changeableDexcpt": false, "mrie": 4,
        "blockDescriptor": false})"));
    const Node node("/dev/sda");
    const Result changeable = send(node, modeSense6(1));
    EXPECT_EQ(changeable.data[6], 0xB7);
    EXPECT_EQ(changeable.data[7], 0);
    EXPECT_EQ(select(node, 0, 6).sense[12], 0x26);
    EXPECT_EQ(select(node, 0x08, 4).sense[12], 0x26);
    EXPECT_EQ(select(node, 0x10, 4).header.status, 0);
    EXPECT_EQ(send(node, modeSense6(0)).data[6], 0x10);
}

TEST(ScsiDisk, SenseDataInDescriptorFormat)
{
    const sim::Machine machine(
        disk(R"("descriptorSense": true, "exceptions": {"modeSense10": false, "mrie": 6, "predicting": true})"));
    const Node node("/dev/sda");
    EXPECT_THAT(send(node, kModeSense10).senseBytes(), ElementsAre(0x72, 5, 0x20, 0, 0, 0, 0, 0));
    EXPECT_EQ(send(node, kRequestSense).text(0, 4), std::string("\x72\x05\x20\0", 4)); // of the former command
    EXPECT_EQ(send(node, kRequestSense).text(0, 4), std::string("\x72\0\x5D\xFF", 4));
}

TEST(Device, SmartSwitchedOnFollowsCommands)
{
    const sim::Machine machine(
        R"({"hosts": [{"devices": [{"ata": true}, {"id": 1, "exceptions": {"blockDescriptor": false}},
        {"id": 2, "ata": true, "smart": {"supported": false}}, {"id": 3, "exceptions": {"supported": false}}]}]})");
    const Node ata("/dev/sda");
    const Node scsi("/dev/sdb");
    EXPECT_TRUE(machine.smartSwitchedOn("/dev/sda"));
    EXPECT_TRUE(machine.smartSwitchedOn("/dev/sdb"));
    for (const char *none : {"/dev/sdc", "/dev/sdd", "/dev/sde"}) {
        EXPECT_FALSE(machine.smartSwitchedOn(none)) << none;
    }
    EXPECT_TRUE(machine.commands().empty());
    send(ata, kSmartDisable, SG_DXFER_NONE);
    select(scsi, 0x08, 0);
    EXPECT_FALSE(machine.smartSwitchedOn("/dev/sda"));
    EXPECT_FALSE(machine.smartSwitchedOn("/dev/sdb"));
}

struct Legacy {
    uint32_t in, out;
    uint8_t data[512];
};

TEST(ScsiDisk, SendCommandReplyReplacesTheCdb)
{
    const sim::Machine machine(disk(R"("vendor": "ACME", "exceptions": {"supported": false})"));
    const Node node("/dev/sda");
    Legacy inquiry{0, 64, {0x12, 0, 0, 0, 0x40, 0}};
    ASSERT_EQ(ioctl(node.fd, kSendCommand, &inquiry), 0);
    EXPECT_EQ(std::string(inquiry.data + 8, inquiry.data + 16), "ACME    ");
    Legacy page{0, 255, {0x1A, 0, 0x1C, 0, 0xFF, 0}};
    EXPECT_EQ(ioctl(node.fd, kSendCommand, &page), 2);
    EXPECT_EQ(page.data[0], 0x70);
    EXPECT_EQ(page.data[2], 5);
}

TEST(ScsiDisk, OldKernelAddsTheDriverByte)
{
    const sim::Machine machine(
        R"({"kernel": "2.4.21", "hosts": [{"devices": [{"exceptions": {"supported": false}}]}]})");
    const Node node("/dev/sda");
    Legacy page{0, 255, {0x1A, 0, 0x1C, 0, 0xFF, 0}};
    EXPECT_EQ(ioctl(node.fd, kSendCommand, &page), 0x08000002);
}

// Replies of the IDE driver of Linux 5.10 (recorded in a virtual machine).
TEST(IdeDrive, AnswersAsRecorded)
{
    const sim::Machine machine(R"({"ide": {"drives": [{"name": "hda", "model": "QIDEDISK", "revision": "1.0A",
        "serial": "IDE0SERIAL001", "sectors": 2097152}]}})");
    const Node node("/dev/hda");
    uint32_t words[2] = {};
    EXPECT_EQ(ioctl(node.fd, kGetIdlun, words), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(send(node, kInquiry).error, EINVAL);
    std::array<char, 512> identity{};
    ASSERT_EQ(ioctl(node.fd, HDIO_GET_IDENTITY, identity.data()), 0);
    EXPECT_STREQ(identity.data() + 20, "IDE0SERIAL001");
    std::array<uint8_t, 516> data{0xB0, 0, 0xD0, 1};
    ASSERT_EQ(ioctl(node.fd, HDIO_DRIVE_CMD, data.data()), 0);
    EXPECT_EQ(std::vector<uint8_t>(data.begin(), data.begin() + 4), (std::vector<uint8_t>{0x50, 0, 1, 1}));
    std::array<uint8_t, 7> status{0xB0, 0xDA, 0, 0, 0x4F, 0xC2, 0};
    ASSERT_EQ(ioctl(node.fd, HDIO_DRIVE_TASK, status.data()), 0);
    EXPECT_THAT(status, ElementsAre(0x50, 0, 0, 0, 0x4F, 0xC2, 0xA0));
    unsigned long sectors = 0;
    ASSERT_EQ(ioctl(node.fd, BLKGETSIZE, &sectors), 0);
    EXPECT_EQ(sectors, 2097152U);
}

TEST(Device, UnknownIoctlsFailAndAreCounted)
{
    const sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    int value = 0;
    EXPECT_EQ(ioctl(node.fd, BLKROGET, &value), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(machine.unknownIoctls(), 1U);
    EXPECT_EQ(ioctl(node.fd, BLKSSZGET, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST(Device, RequestsAreLogged)
{
    sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    send(node, kInquiry);
    int size = 0;
    ioctl(node.fd, BLKSSZGET, &size);
    std::array<uint8_t, 4> enable{0xB0, 1, 0xD8, 0};
    ioctl(node.fd, HDIO_DRIVE_CMD, enable.data());
    const std::vector<sim::Command> commands = machine.commands();
    ASSERT_EQ(commands.size(), 3U);
    EXPECT_EQ(commands[0].device, "/dev/sda");
    EXPECT_EQ(commands[0].request, static_cast<unsigned long>(SG_IO));
    EXPECT_EQ(commands[0].bytes, kInquiry);
    EXPECT_TRUE(commands[1].bytes.empty());
    EXPECT_THAT(commands[2].bytes, ElementsAre(0xB0, 1, 0xD8, 0));
    machine.forgetCommands();
    EXPECT_TRUE(machine.commands().empty());
}

TEST(Device, RemovedDeviceAnswersEnodev)
{
    sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    machine.change("{}");
    int size = 0;
    EXPECT_EQ(ioctl(node.fd, BLKSSZGET, &size), -1);
    EXPECT_EQ(errno, ENODEV);
}

TEST(Device, RemainingDeviceKeepsItsSmartState)
{
    sim::Machine machine(disk(kAta));
    const Node node("/dev/sda");
    send(node, kSmartDisable, SG_DXFER_NONE);
    machine.change(disk(kAta + R"(, "delayMs": 0)"));
    EXPECT_EQ(send(node, kSmartData).header.status, 2);
}

TEST(Device, OpeningCanFail)
{
    const sim::Machine machine(disk(kAta + R"(, "openError": "EBUSY")"));
    EXPECT_EQ(open("/dev/sda", O_RDONLY), -1);
    EXPECT_EQ(errno, EBUSY);
}

TEST(Device, ThreadsMayShareIt)
{
    const sim::Machine machine(disk(kAta));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 200; ++n) {
                const Node node("/dev/sda");
                EXPECT_EQ(send(node, kIdentify).ret, 0);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(machine.commands().size(), 800U);
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST(RecordedReplies, AnswerTheirCommandsAndNoOther)
{
    const sim::Machine machine(disk(R"("replies": [
        {"cdb": "4d004d0000000000fc00", "data": "0d0001", "length": 6, "status": 0},
        {"cdb": "4d006f0000000000fc00", "sense": "70000500000000", "driverStatus": 8},
        {"cdb": "4d00510000000000fc00", "errno": "EIO"}])"));
    const Node node("/dev/sda");
    const Result page = send(node, {0x4D, 0, 0x4D, 0, 0, 0, 0, 0, 0xFC, 0}, SG_DXFER_FROM_DEV, 0xFC);
    EXPECT_EQ(page.ret, 0);
    EXPECT_EQ(page.header.resid, 0xFC - 6);
    EXPECT_EQ(page.data[2], 1);
    const Result refused = send(node, {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 0xFC, 0}, SG_DXFER_FROM_DEV, 0xFC);
    EXPECT_EQ(refused.header.status, 2);
    EXPECT_EQ(refused.header.sb_len_wr, 7);
    EXPECT_EQ(send(node, {0x4D, 0, 0x51, 0, 0, 0, 0, 0, 0xFC, 0}, SG_DXFER_FROM_DEV, 0xFC).ret, -1);
    EXPECT_EQ(send(node, kInquiry, SG_DXFER_FROM_DEV, 64).header.status, 0);
}

class Heard : public sim::DeviceListener {
public:
    Heard() { sim::listen(this); }
    ~Heard() override { sim::listen(nullptr); }
    void opened(const char *path, int, int error) override { calls.push_back(path + (" " + std::to_string(error))); }
    void answered(int, unsigned long request, const void *, int result, int) override
    {
        calls.push_back((request == SG_IO ? "SG_IO " : "other ") + std::to_string(result));
    }
    std::vector<std::string> calls;
};

TEST(DeviceListener, HearsOfOpeningsAndRequests)
{
    const sim::Machine machine(disk(kAta));
    Heard heard;
    const Node node("/dev/sda");
    EXPECT_EQ(open("/dev/sdz", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(send(node, kInquiry, SG_DXFER_FROM_DEV, 64).ret, 0);
    EXPECT_THAT(heard.calls, ElementsAre("/dev/sda 0", "/dev/sdz 2", "SG_IO 0"));
}

} // namespace
