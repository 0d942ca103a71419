// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/ide_table.h"

#include "collect/devices/device_build.h"
#include "support/lists_fixture.h"

#include <cstring>

using namespace tavstrg;

namespace {

class IdeDevices : public testing::Test {
protected:
    // Counts, allocates and fills, as a collection does.
    int build()
    {
        lists_.use();
        EXPECT_EQ(GetIDEDeviceTotalNumber(), 0);
        EXPECT_EQ(MallocDeviceTable(), 0);
        return MakeIDEDeviceTable();
    }
    // The controller tables' entry of the next channel.
    void addController(uint16_t index)
    {
        collection().CtrlNumMib.TotalIDEController = 4;
        if (collection().pIDECtrlTbl == nullptr) {
            ASSERT_EQ(MallocIDEControllerTable(4), 0);
        }
        ASSERT_TRUE(appendIDEController(collection(), {index, static_cast<uint16_t>(collection().ide_ctrl_cnt + 1)}));
    }

    TraceRecorder trace_;
    HandMadeLists lists_;
};

TEST_F(IdeDevices, ADiskGetsAnIdeAndAHardDiskEntry)
{
    lists_.channel("ide0");
    lists_.channel("ide1");
    addController(5);
    addController(6);
    IDEDeviceInfo &info = lists_.ide("hdc", "disk", "ide1");
    info.cylinders = 11;
    info.heads = 12;
    info.sectors = 13;
    info.capacity = 2048 * 14 + 2047;
    ASSERT_EQ(build(), 0);

    ASSERT_EQ(collection().ide_dev_cnt, 1);
    const IDEDeviceEntry &device = collection().pIDEDevTbl[0];
    EXPECT_EQ(device.Index, 1);
    EXPECT_EQ(device.DeviceTypeIndex, 1);
    EXPECT_EQ(device.IDEConfiguration, 2);
    EXPECT_EQ(device.ControllerIndex, 6);
    EXPECT_EQ(device.DeviceType, 2);
    EXPECT_STREQ(device.notSupported, "Not Supported");
    EXPECT_STREQ(device.model, "IDE MODEL");
    EXPECT_STREQ(device.revision, "Not Supported");
    EXPECT_STREQ(device.SerialNumber, "Unknown");
    EXPECT_EQ(device.classCodes[0], 2);
    EXPECT_EQ(device.classCodes[1], 1);
    EXPECT_EQ(device.wordsAfter[0], 65535);
    EXPECT_EQ(device.wordsAfter[1], 65535);
    EXPECT_EQ(device.wordsAfter[2], 1);

    ASSERT_EQ(collection().hd_dev_cnt, 1);
    const HardDiskEntry &disk = collection().pHDDevTbl[0];
    EXPECT_EQ(disk.Index, 1);
    EXPECT_EQ(disk.InterfaceType, 1);
    EXPECT_EQ(disk.InterfaceTypeIndex, 1);
    EXPECT_EQ(disk.unknownWord, 65534);
    EXPECT_STREQ(disk.driverName, "ide-driver");
    EXPECT_STREQ(disk.driverVersion, "Unknown");
    EXPECT_EQ(disk.CylindersPerUnit, 11U);
    EXPECT_EQ(disk.TracksPerCylinder, 12U);
    EXPECT_EQ(disk.SectorsPerTrack, 13U);
    EXPECT_EQ(disk.Capacity, 14U);
    EXPECT_EQ(disk.DeviceNumber, 22 * 256);
    EXPECT_STREQ(disk.DevPath, "hdc");
    EXPECT_EQ(disk.SmartPredict, 0);
    EXPECT_EQ(disk.DevKind, 1U);
    EXPECT_EQ(disk.SmartSupport, 1U);
    EXPECT_EQ(disk.SmartEnableState, 0U);
}

TEST_F(IdeDevices, CapacityOfTheKernelsFallbackIsInMiBAlready)
{
    IDEDeviceInfo device = {};
    device.capacity = 40960;
    EXPECT_EQ(ideCapacityMiB(device), 20U);
    device.capacityInMiB = true;
    EXPECT_EQ(ideCapacityMiB(device), 40960U);
    device.capacity = -5;
    EXPECT_EQ(ideCapacityMiB(device), 0U);
}

TEST_F(IdeDevices, ACdromDriveGetsACdromEntry)
{
    lists_.ide("hdb", "cdrom");
    ASSERT_EQ(build(), 0);
    ASSERT_EQ(collection().cdrom_dev_cnt, 1);
    EXPECT_EQ(collection().pCdromDevTbl[0].Index, 1);
    EXPECT_EQ(collection().pCdromDevTbl[0].InterfaceType, 1);
    EXPECT_EQ(collection().pCdromDevTbl[0].InterfaceTypeIndex, 1);
    EXPECT_STREQ(collection().pCdromDevTbl[0].driverName, "ide-driver");
    EXPECT_STREQ(collection().pCdromDevTbl[0].driverVersion, "Unknown");
    EXPECT_EQ(collection().pCdromDevTbl[0].ideWord, 65534);
    EXPECT_EQ(collection().pIDEDevTbl[0].DeviceType, 3);
    EXPECT_EQ(collection().pIDEDevTbl[0].IDEConfiguration, 3);
    EXPECT_EQ(collection().pIDEDevTbl[0].classCodes[0], 1);
    EXPECT_EQ(collection().pIDEDevTbl[0].classCodes[1], 65535);
}

TEST_F(IdeDevices, AnythingElseGetsAnOtherDeviceEntry)
{
    lists_.ide("hda", "tape");
    lists_.ide("hdb", "floppy");
    ASSERT_EQ(build(), 0);
    ASSERT_EQ(collection().misc_dev_cnt, 2);
    EXPECT_EQ(collection().pMiscDevTbl[1].Index, 2);
    EXPECT_EQ(collection().pMiscDevTbl[1].InterfaceType, 1);
    EXPECT_EQ(collection().pMiscDevTbl[1].InterfaceTypeIndex, 2);
    EXPECT_EQ(collection().pIDEDevTbl[1].DeviceType, 1);
    EXPECT_EQ(collection().pIDEDevTbl[1].DeviceTypeIndex, 2);
    EXPECT_EQ(collection().pIDEDevTbl[1].classCodes[0], 65535);
    EXPECT_EQ(collection().pIDEDevTbl[1].classCodes[1], 65535);
}

TEST_F(IdeDevices, ClassNumbersGoOnAfterTheScsiDevices)
{
    lists_.ide("hda", "disk");
    lists_.use();
    collection().TotalHDDevice = 2;
    collection().hd_dev_cnt = 1; // a SCSI disk came first
    collection().TotalIDEDevice = 1;
    ASSERT_EQ(MallocDeviceTable(), 0);
    ASSERT_EQ(MakeIDEDeviceTable(), 0);
    EXPECT_EQ(collection().pHDDevTbl[1].Index, 2);
    EXPECT_EQ(collection().pHDDevTbl[1].InterfaceTypeIndex, 1);
    EXPECT_EQ(collection().pIDEDevTbl[0].DeviceTypeIndex, 2);
}

TEST_F(IdeDevices, ADeviceWhoseControllerIsNotThereHasController65535)
{
    lists_.channel("ide0");
    addController(1);
    lists_.ide("hda", "disk", "ide7");
    ASSERT_EQ(build(), 0);
    EXPECT_EQ(collection().pIDEDevTbl[0].ControllerIndex, 65535);
}

TEST_F(IdeDevices, AnEmptyListFails)
{
    EXPECT_EQ(build(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ ret=[-1]", "MakeIDEDeviceTable"));
}

TEST_F(IdeDevices, AHardDiskTableThatIsTooSmallFails)
{
    lists_.ide("hda", "disk");
    lists_.use();
    collection().TotalIDEDevice = 1;
    ASSERT_EQ(MallocDeviceTable(), 0);
    EXPECT_EQ(MakeIDEDeviceTable(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ MakeIDEHDDevice() failed. ret=[-1]", "MakeIDEDeviceTable"));
    EXPECT_EQ(collection().ide_dev_cnt, 0);
}

TEST_F(IdeDevices, ACdromTableThatIsTooSmallFails)
{
    lists_.ide("hda", "cdrom");
    lists_.use();
    collection().TotalIDEDevice = 1;
    ASSERT_EQ(MallocDeviceTable(), 0);
    EXPECT_EQ(MakeIDEDeviceTable(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ MakeIDECdromDevice() failed. ret=[-1]", "MakeIDEDeviceTable"));
}

TEST_F(IdeDevices, AnOtherDeviceTableThatIsTooSmallFails)
{
    lists_.ide("hda", "tape");
    lists_.use();
    collection().TotalIDEDevice = 1;
    ASSERT_EQ(MallocDeviceTable(), 0);
    EXPECT_EQ(MakeIDEDeviceTable(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ MakeIDEMiscDevice() failed. ret=[-1]", "MakeIDEDeviceTable"));
}

TEST_F(IdeDevices, AMediaTextWithoutAnEndFails)
{
    std::memset(lists_.ide("hda", "disk").media, 'd', sizeof(IDEDeviceInfo::media));
    EXPECT_EQ(build(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "GetIDEDevType() failed! ret = -1 loop break!", "MakeIDEDeviceTable"));
    EXPECT_EQ(GetIDEDevType(nullptr), -1);
}

TEST_F(IdeDevices, AModelTextWithoutAnEndFails)
{
    std::memset(lists_.ide("hda", "disk").model, 'm', sizeof(IDEDeviceInfo::model));
    EXPECT_EQ(build(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "GetIDEDevModel() failed! ret = -1 loop break!", "MakeIDEDeviceTable"));
}

TEST_F(IdeDevices, ADriverTextWithoutAnEndFailsACdromDrive)
{
    std::memset(lists_.ide("hda", "cdrom").driver, 'd', sizeof(IDEDeviceInfo::driver));
    EXPECT_EQ(build(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ MakeIDECdromDevice() failed. ret=[-1]", "MakeIDEDeviceTable"));
}

TEST_F(IdeDevices, AChannelThatTheControllerTablesDoNotHaveFails)
{
    lists_.channel("ide0");
    lists_.ide("hda", "disk", "ide0");
    EXPECT_EQ(build(), -1);
    EXPECT_TRUE(
        trace_.has(kFailure, "GetIDEDeviceControllerIndex() failed! ret = -1 loop break!", "MakeIDEDeviceTable"));
}

TEST_F(IdeDevices, AFailureStopsTheWalk)
{
    lists_.ide("hda", "disk");
    std::memset(lists_.ide("hdb", "disk").model, 'm', sizeof(IDEDeviceInfo::model));
    lists_.ide("hdc", "disk");
    EXPECT_EQ(build(), -1);
    EXPECT_EQ(collection().ide_dev_cnt, 1);
}

TEST_F(IdeDevices, ATableThatIsTooSmallIsNeverWrittenPastItsEnd)
{
    lists_.ide("hda", "tape");
    lists_.ide("hdb", "tape");
    lists_.use();
    collection().TotalIDEDevice = 1;
    collection().TotalMiscDevice = 2;
    ASSERT_EQ(MallocDeviceTable(), 0);
    EXPECT_EQ(MakeIDEDeviceTable(), -1);
    EXPECT_EQ(collection().ide_dev_cnt, 1);
}

} // namespace
