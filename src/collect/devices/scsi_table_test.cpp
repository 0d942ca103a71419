// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/scsi_table.h"

#include "collect/devices/device_build.h"
#include "collect/devices/serial_number.h"
#include "support/lists_fixture.h"

using namespace tavstrg;

namespace {

class ScsiDevices : public testing::Test {
protected:
    ScsiDevices() { setAdapters(filter_, {hostEntry(0, "ahci"), hostEntry(1, "mptspi")}, {usbEntry(6)}); }
    ~ScsiDevices() override { filter_.release(); }

    // Counts, allocates and fills, as a collection does.
    int build()
    {
        lists_.use();
        countSCSIDevices(lists_.scsiList(), filter_);
        EXPECT_EQ(MallocDeviceTable(), 0);
        trace_.clear();
        return fill(&names_);
    }
    int fill(SCSIDiskNameTable *names)
    {
        const TraceScope scope("MakeSCSIDeviceTable");
        AskNow asker(namingByTable(names), kStrictMethods);
        return fillSCSIDevices(lists_.scsiList(), asker, filter_);
    }

    TraceRecorder trace_;
    HandMadeLists lists_;
    DeviceFilter filter_;
    SCSIDiskNameTable names_ = {};
};

TEST_F(ScsiDevices, AnEntryHasTheValuesOfTheDiscoveryList)
{
    SCSIDeviceInfo &info = lists_.scsi(1, "Scanner", "VENDOR  ", "MODEL  ");
    info.channel = 2;
    info.id = 3;
    info.lun = 4;
    collection().CtrlNumMib.TotalSCSIController = 2;
    ASSERT_EQ(MallocSCSIControllerTable(2), 0);
    ASSERT_TRUE(appendSCSIController(collection(), {7, 7, 0}));
    ASSERT_TRUE(appendSCSIController(collection(), {8, 8, 1}));
    ASSERT_EQ(build(), 0);

    ASSERT_EQ(collection().scsi_dev_cnt, 1);
    const SCSIDeviceEntry &device = collection().pSCSIDevTbl[0];
    EXPECT_EQ(device.Index, 1);
    EXPECT_EQ(device.DeviceTypeIndex, 1);
    EXPECT_EQ(device.zero, 0);
    EXPECT_EQ(device.TargetID, 3);
    EXPECT_EQ(device.Bus, 2);
    EXPECT_EQ(device.LUN, 4);
    EXPECT_EQ(device.ControllerIndex, 8);
    EXPECT_EQ(device.DeviceType, 4);
    EXPECT_STREQ(device.vendor, "VENDOR  ");
    EXPECT_STREQ(device.model, "MODEL  ");
    EXPECT_STREQ(device.revision, "REV");
    EXPECT_STREQ(device.SerialNumber, "");
    EXPECT_EQ(device.wordsBefore[0], 65535);
    EXPECT_EQ(device.wordsBefore[1], 65535);
    EXPECT_EQ(device.classCodes[0], 2);
    EXPECT_EQ(device.classCodes[1], 65535);
    EXPECT_EQ(device.wordsAfter[0], 65535);
    EXPECT_EQ(device.wordsAfter[1], 65535);
    EXPECT_EQ(device.wordsAfter[2], 1);
}

TEST_F(ScsiDevices, WithoutAVendorModelAndRevisionStayEmpty)
{
    lists_.scsi(0, "CD-ROM", "", "MODEL");
    ASSERT_EQ(build(), 0);
    EXPECT_STREQ(collection().pSCSIDevTbl[0].model, "");
    EXPECT_STREQ(collection().pSCSIDevTbl[0].revision, "");
}

TEST_F(ScsiDevices, AHostWithoutAControllerEntryIs65535)
{
    lists_.scsi(0, "CD-ROM");
    ASSERT_EQ(build(), 0);
    EXPECT_EQ(collection().pSCSIDevTbl[0].ControllerIndex, 65535);
}

TEST_F(ScsiDevices, EachClassIsNumberedByItselfWithoutGaps)
{
    lists_.scsi(0, "CD-ROM");
    lists_.scsi(1, "Sequential-Access");
    lists_.scsi(0, "CD-ROM");
    lists_.scsi(0, "");       // no type
    lists_.scsi(6, "CD-ROM"); // USB
    lists_.scsi(9, "CD-ROM"); // no managed adapter
    lists_.scsi(1, "Optical Device");
    lists_.scsi(0, "Proccessor");
    lists_.scsi(0, "WORM");
    lists_.scsi(1, "CD-ROM");
    ASSERT_EQ(build(), 0);

    ASSERT_EQ(collection().scsi_dev_cnt, 7);
    const uint16_t types[] = {1, 2, 1, 3, 4, 4, 1};
    const uint16_t typeIndexes[] = {1, 1, 2, 1, 1, 2, 3};
    for (uint16_t i = 0; i < 7; ++i) {
        EXPECT_EQ(collection().pSCSIDevTbl[i].Index, i + 1);
        EXPECT_EQ(collection().pSCSIDevTbl[i].DeviceType, types[i]) << i;
        EXPECT_EQ(collection().pSCSIDevTbl[i].DeviceTypeIndex, typeIndexes[i]) << i;
    }
    ASSERT_EQ(collection().cdrom_dev_cnt, 3);
    const uint16_t cdroms[] = {1, 3, 7};
    for (uint16_t i = 0; i < 3; ++i) {
        EXPECT_EQ(collection().pCdromDevTbl[i].Index, i + 1);
        EXPECT_EQ(collection().pCdromDevTbl[i].InterfaceType, 0);
        EXPECT_EQ(collection().pCdromDevTbl[i].InterfaceTypeIndex, cdroms[i]);
        EXPECT_STREQ(collection().pCdromDevTbl[i].driverName, i == 2 ? "mptspi" : "ahci");
        EXPECT_STREQ(collection().pCdromDevTbl[i].driverVersion, "Unknown");
    }
    ASSERT_EQ(collection().tape_dev_cnt, 1);
    EXPECT_EQ(collection().pTapeDevTbl[0].Index, 1);
    EXPECT_EQ(collection().pTapeDevTbl[0].IndexAgain, 1);
    EXPECT_EQ(collection().pTapeDevTbl[0].InterfaceTypeIndex, 2);
    EXPECT_STREQ(collection().pTapeDevTbl[0].driverName, "mptspi");
    ASSERT_EQ(collection().om_dev_cnt, 1);
    EXPECT_EQ(collection().pOMDevTbl[0].InterfaceTypeIndex, 4);
    ASSERT_EQ(collection().misc_dev_cnt, 2);
    EXPECT_EQ(collection().pMiscDevTbl[1].Index, 2);
    EXPECT_EQ(collection().pMiscDevTbl[1].InterfaceTypeIndex, 6);
}

TEST_F(ScsiDevices, ADeviceOfTypeProccessorHasCodes65535And65535)
{
    lists_.scsi(0, "Proccessor");
    ASSERT_EQ(build(), 0);
    EXPECT_EQ(collection().pSCSIDevTbl[0].classCodes[0], 65535);
    EXPECT_EQ(collection().pSCSIDevTbl[0].classCodes[1], 65535);
}

TEST_F(ScsiDevices, AnEmptyTypeIsCountedButNotWritten)
{
    lists_.scsi(0, "");
    lists_.scsi(0, "Scanner");
    ASSERT_EQ(build(), 0);
    EXPECT_EQ(collection().TotalMiscDevice, 2);
    EXPECT_EQ(collection().misc_dev_cnt, 1);
    EXPECT_EQ(collection().scsi_dev_cnt, 1);
}

TEST_F(ScsiDevices, AUsbDeviceIsSkippedWithItsTrace)
{
    lists_.scsi(6, "CD-ROM", "USBVEND");
    lists_.scsi(0, "CD-ROM");
    ASSERT_EQ(build(), 0);
    EXPECT_TRUE(trace_.has(kDetail, "The Device maybe USB Device:Host = 6,Vendor = USBVEND", "MakeSCSIDeviceTable"));
    EXPECT_EQ(collection().scsi_dev_cnt, 1);
}

TEST_F(ScsiDevices, ADeviceWithoutADriverIsSkippedWithItsTraces)
{
    SCSIDeviceInfo &info = lists_.scsi(9, "CD-ROM", "V", "M");
    info.channel = 2;
    info.id = 3;
    info.lun = 4;
    lists_.scsi(0, "CD-ROM");
    ASSERT_EQ(build(), 0);
    const int at = positionOf(trace_, "######## Do not management ########");
    ASSERT_GE(at, 0);
    EXPECT_TRUE(trace_.has(kDetail, "######## Do not management ########", "MakeSCSIDeviceTable"));
    EXPECT_EQ(trace_.texts()[static_cast<size_t>(at) + 1], "    host=9,vender=V,model=M,scsirev=REV");
    EXPECT_EQ(trace_.texts()[static_cast<size_t>(at) + 2], "    type=CD-ROM ansirevision=5,channel=2,Id=3,lun=4");
    EXPECT_TRUE(trace_.has(kDetail, "    type=CD-ROM ansirevision=5,channel=2,Id=3,lun=4", "MakeSCSIDeviceTable"));
    EXPECT_STREQ(collection().pCdromDevTbl[0].driverName, "ahci");
}

TEST_F(ScsiDevices, AnUnmanagedDiskIsSkippedWithItsTraces)
{
    addUnmanaged(filter_.pleafNoSCSI_Tbl, "ACME", "");
    filter_.checkUnmanaged = true;
    SCSIDeviceInfo &info = lists_.scsi(0, "Direct-Access", "ACME", "M");
    info.channel = 2;
    info.id = 3;
    info.lun = 4;
    lists_.scsi(0, "CD-ROM", "ACME");
    ASSERT_EQ(build(), 0);
    EXPECT_EQ(collection().scsi_dev_cnt, 1);
    EXPECT_EQ(collection().hd_dev_cnt, 0);
    EXPECT_EQ(collection().pSCSIDevTbl[0].DeviceType, 1);
    const int at = positionOf(trace_, "** NoManage Continue **");
    ASSERT_GE(at, 0);
    EXPECT_TRUE(trace_.has(kDetail, "** NoManage Continue **", "MakeSCSIDeviceTable"));
    EXPECT_EQ(trace_.texts()[static_cast<size_t>(at) + 1], "    host=0,vender=ACME,model=M,scsirev=REV");
    EXPECT_EQ(trace_.texts()[static_cast<size_t>(at) + 2],
              "    type=Direct-Access ansirevision=5,channel=2,Id=3,lun=4");
}

TEST_F(ScsiDevices, UnmanagedDisksKeepTheirPlaceAmongTheDeviceNumbers)
{
    addUnmanaged(filter_.pleafNoSCSI_Tbl, "ACME", "");
    filter_.checkUnmanaged = true;
    lists_.scsi(0, "Direct-Access", "ACME");
    lists_.scsi(6, "Direct-Access");
    lists_.scsi(0, "CD-ROM");
    ASSERT_EQ(build(), 0);
    EXPECT_EQ(collection().scsi_hd_cnt, 2);
}

TEST_F(ScsiDevices, AFailedNameLookupFailsTheTable)
{
    lists_.scsi(0, "Direct-Access");
    countSCSIDevices(lists_.scsiList(), filter_);
    ASSERT_EQ(MallocDeviceTable(), 0);
    EXPECT_EQ(fill(nullptr), -1);
    EXPECT_TRUE(trace_.has(kFailure, "TAVStorageGetSCSIDeviceName() failed!!", "MakeSCSIDeviceTable"));
}

TEST_F(ScsiDevices, ADiskWithoutANameFailsTheTable)
{
    lists_.scsi(0, "Direct-Access");
    EXPECT_EQ(build(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ open failed. []", "TAVStorageGetSCSIDeviceSerialNumber"));
    EXPECT_TRUE(trace_.has(kFailure, "TAVStorageGetSCSIDeviceSerialNumber() failed!!", "MakeSCSIDeviceTable"));
    EXPECT_EQ(collection().scsi_dev_cnt, 0);
}

TEST_F(ScsiDevices, TheWalkStopsWhenTheTableIsFull)
{
    lists_.scsi(0, "CD-ROM");
    lists_.scsi(6, "CD-ROM", "USBVEND"); // after the last counted one: not even traced
    ASSERT_EQ(build(), 0);
    EXPECT_EQ(collection().scsi_dev_cnt, 1);
    EXPECT_FALSE(trace_.has(kDetail, "The Device maybe USB Device:Host = 6,Vendor = USBVEND"));
}

TEST_F(ScsiDevices, AManagedDeviceThatIsLeftOverFails)
{
    lists_.scsi(0, "CD-ROM");
    lists_.scsi(0, "CD-ROM");
    collection().TotalSCSIDevice = 1;
    collection().TotalCdromDevice = 2;
    ASSERT_EQ(MallocDeviceTable(), 0);
    AskNow asker(namingByTable(&names_), kStrictMethods);
    EXPECT_EQ(fillSCSIDevices(lists_.scsiList(), asker, filter_), -1);
    EXPECT_EQ(collection().scsi_dev_cnt, 1);
}

TEST_F(ScsiDevices, AClassTableThatIsTooSmallFails)
{
    for (const char *const type : {"CD-ROM", "Sequential-Access", "Optical Device", "Scanner"}) {
        lists_.scsi(0, type);
        collection().TotalSCSIDevice = 9;
        ASSERT_EQ(MallocDeviceTable(), 0);
        SCSIDeviceInfo only = lists_.scsi(0, type);
        only.next = nullptr;
        AskNow asker(namingByTable(&names_), kStrictMethods);
        EXPECT_EQ(fillSCSIDevices(&only, asker, filter_), -1) << type;
        EXPECT_EQ(collection().scsi_dev_cnt, 0);
        FreeDeviceTable();
    }
}

TEST_F(ScsiDevices, TheSpeedOfADeviceWithoutAManagedAdapterIsOnlyTraced)
{
    SCSIControllerTypeDetail ahci = {};
    copyText(ahci.driver, "ahci");
    lists_.scsi(9, "CD-ROM");
    lists_.scsi(0, "CD-ROM");
    lists_.use();
    collection().g_SCSIControllerTypeDetail = &ahci;
    countSCSIDevices(lists_.scsiList(), filter_);
    ASSERT_EQ(MallocDeviceTable(), 0);
    trace_.clear();
    EXPECT_EQ(fill(&names_), 0);
    collection().g_SCSIControllerTypeDetail = nullptr;
    const std::vector<std::string> texts = trace_.texts();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "Can't get scsi device speed"), 1);
    EXPECT_TRUE(trace_.has(kDetail, "Can't get scsi device speed", "MakeSCSIDeviceTable"));
    EXPECT_EQ(collection().scsi_dev_cnt, 1);
}

TEST_F(ScsiDevices, TargetsAbove7AreOnAWideBus)
{
    SCSIControllerTypeDetail ahci = {};
    copyText(ahci.driver, "ahci");
    collection().g_SCSIControllerTypeDetail = &ahci;
    SCSIDeviceInfo device = {};
    const char *width = nullptr;
    device.id = 7;
    EXPECT_EQ(GetSCSIDevSpeed(device, "ahci", &width), 0);
    EXPECT_STREQ(width, "Narrow");
    device.id = 8;
    EXPECT_EQ(GetSCSIDevSpeed(device, "ahci", &width), 0);
    EXPECT_STREQ(width, "Wide");
    width = nullptr;
    EXPECT_EQ(GetSCSIDevSpeed(device, "Unknown", &width), -1);
    EXPECT_EQ(width, nullptr);
    collection().g_SCSIControllerTypeDetail = nullptr;
}

TEST_F(ScsiDevices, AHardDiskNeedsAName)
{
    EXPECT_EQ(MakeSCSIHDDevice(nullptr, "ahci"), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ param(devName) Failure!!", "MakeSCSIHDDevice"));
}

} // namespace
