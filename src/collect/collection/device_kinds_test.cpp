// SPDX-License-Identifier: Apache-2.0
#include "collect/collection/device_kinds.h"
#include "collect/devices/device_number.h"

#include <gtest/gtest.h>

using namespace tavstrg;

namespace {

struct KindCase {
    const char *type;
    DeviceClass deviceClass;
    uint16_t deviceType;
    uint16_t codes[2];
};

TEST(DeviceKinds, ScsiTypeTextDecidesClassTypeAndCodes)
{
    const KindCase cases[] = {
        {"Direct-Access", kHardDisk, 0, {2, 1}},
        {"Direct-Access-RBC", kHardDisk, 0, {2, 1}}, // prefixes
        {"Direct-Acces", kOtherDevice, 4, {65535, 65535}},
        {"Sequential-Access", kTape, 2, {1, 65535}},
        {"CD-ROM", kCdrom, 1, {1, 65535}},
        {"CD-ROM/DVD", kCdrom, 1, {1, 65535}},
        {"Optical Device", kOpticalMemory, 3, {1, 65535}},
        {"WORM", kOtherDevice, 4, {1, 65535}},
        {"Printer", kOtherDevice, 4, {2, 1}},
        {"Processor", kOtherDevice, 4, {2, 1}},
        {"Scanner", kOtherDevice, 4, {2, 65535}},
        {"Medium Changer", kOtherDevice, 4, {65535, 65535}},
        {"Commnunications", kOtherDevice, 4, {65535, 65535}},
        {"Unknown", kOtherDevice, 4, {65535, 65535}},
        {"direct-access", kOtherDevice, 4, {65535, 65535}}, // case counts
        {"", kOtherDevice, 4, {65535, 65535}},
    };
    for (const KindCase &expected : cases) {
        const DeviceKind &kind = scsiKindOf(expected.type);
        EXPECT_EQ(kind.deviceClass, expected.deviceClass) << expected.type;
        EXPECT_EQ(kind.deviceType, expected.deviceType) << expected.type;
        EXPECT_EQ(kind.codes[0], expected.codes[0]) << expected.type;
        EXPECT_EQ(kind.codes[1], expected.codes[1]) << expected.type;
    }
}

TEST(DeviceKinds, ProccessorAsDiscoverySpellsItHasNoCodes)
{
    EXPECT_EQ(scsiKindOf("Proccessor").codes[0], 65535);
    EXPECT_EQ(scsiKindOf("Proccessor").codes[1], 65535);
    EXPECT_EQ(scsiKindOf("Proccessor").deviceClass, kOtherDevice);
}

TEST(DeviceKinds, IdeMediaHasCodesOfItsOwn)
{
    const KindCase cases[] = {
        {"disk", kHardDisk, 2, {2, 1}},
        {"disk2", kHardDisk, 2, {2, 1}},
        {"cdrom", kCdrom, 3, {1, 65535}},
        {"tape", kOtherDevice, 1, {65535, 65535}},
        {"floppy", kOtherDevice, 1, {65535, 65535}},
        {"optical", kOtherDevice, 1, {65535, 65535}},
        {"", kOtherDevice, 1, {65535, 65535}},
    };
    for (const KindCase &expected : cases) {
        const DeviceKind &kind = ideKindOf(expected.type);
        EXPECT_EQ(kind.deviceClass, expected.deviceClass) << expected.type;
        EXPECT_EQ(kind.deviceType, expected.deviceType) << expected.type;
        EXPECT_EQ(kind.codes[0], expected.codes[0]) << expected.type;
        EXPECT_EQ(kind.codes[1], expected.codes[1]) << expected.type;
    }
}

TEST(DeviceNumber, SixteenScsiDisksShareAMajorNumber)
{
    EXPECT_EQ(scsiDiskDeviceNumber(0), 8 * 256 + 0);
    EXPECT_EQ(scsiDiskDeviceNumber(15), 8 * 256 + 240);
    EXPECT_EQ(scsiDiskDeviceNumber(127), 71 * 256 + 240);
}

TEST(DeviceNumber, TheSecondScsiDiskIs8And16TheSeventeenth65And0)
{
    EXPECT_EQ(scsiDiskDeviceNumber(1), 8 * 256 + 16);
    EXPECT_EQ(scsiDiskDeviceNumber(16), 65 * 256 + 0);
}

TEST(DeviceNumber, HdbIs3And64HdcIs22And0)
{
    EXPECT_EQ(ideDiskDeviceNumber("hdb"), 3 * 256 + 64);
    EXPECT_EQ(ideDiskDeviceNumber("hdc"), 22 * 256 + 0);
}

TEST(DeviceNumber, IdeLettersAToLHaveSixMajors)
{
    const uint16_t majors[] = {3, 22, 33, 34, 56, 57};
    for (char letter = 'a'; letter <= 'l'; ++letter) {
        const int n = letter - 'a';
        EXPECT_EQ(ideDiskDeviceNumber(std::string("hd") + letter), majors[n / 2] * 256 + n % 2 * 64) << letter;
    }
    EXPECT_EQ(ideDiskDeviceNumber("hdm"), 65535);
    EXPECT_EQ(ideDiskDeviceNumber("hd"), 65535);
    EXPECT_EQ(ideDiskDeviceNumber("hd1"), 65535);
    EXPECT_EQ(ideDiskDeviceNumber(""), 65535);
}

TEST(DrivePosition, EveryOtherLetterIsAMaster)
{
    for (char letter = 'a'; letter <= 'z'; ++letter) {
        EXPECT_EQ(ideDrivePosition(std::string("hd") + letter), (letter - 'a') % 2 == 0 ? 2 : 3) << letter;
    }
    EXPECT_EQ(ideDrivePosition("hd"), 1);
    EXPECT_EQ(ideDrivePosition("hdA"), 1);
    EXPECT_EQ(ideDrivePosition("sda"), 1);
}

} // namespace
