// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/device_build.h"
#include "collect/devices/scsi_table.h"
#include "support/lists_fixture.h"

using namespace tavstrg;

namespace {

class DeviceCount : public testing::Test {
protected:
    DeviceCount()
    {
        setAdapters(filter_, {hostEntry(0, "ahci"), hostEntry(1, "mptspi")}, {usbEntry(6)});
        trace_.clear();
    }
    ~DeviceCount() override { filter_.release(); }

    void count()
    {
        const TraceScope scope("GetSCSIDeviceTotalNumber");
        countSCSIDevices(lists_.scsiList(), filter_);
    }

    TraceRecorder trace_;
    HandMadeLists lists_;
    DeviceFilter filter_;
};

TEST_F(DeviceCount, EachTypeCountsOnceInItsClass)
{
    for (const char *const type :
         {"Direct-Access", "Direct-Access", "Sequential-Access", "CD-ROM", "CD-ROM", "CD-ROM", "Optical Device", "WORM",
          "Printer", "Proccessor", "Processor", "Scanner", "Medium Changer", "Unknown"}) {
        lists_.scsi(0, type);
    }
    count();
    EXPECT_EQ(collection().TotalSCSIDevice, 14);
    EXPECT_EQ(collection().TotalHDDevice, 2);
    EXPECT_EQ(collection().TotalTapeDevice, 1);
    EXPECT_EQ(collection().TotalCdromDevice, 3);
    EXPECT_EQ(collection().TotalOMDevice, 1);
    EXPECT_EQ(collection().TotalMiscDevice, 7);
}

TEST_F(DeviceCount, AnEmptyTypeCountsAsOther)
{
    lists_.scsi(0, "");
    count();
    EXPECT_EQ(collection().TotalSCSIDevice, 1);
    EXPECT_EQ(collection().TotalMiscDevice, 1);
}

TEST_F(DeviceCount, ADeviceOfAUsbAdapterDoesNotCount)
{
    lists_.scsi(6, "Direct-Access", "USBVEND");
    count();
    EXPECT_EQ(collection().TotalSCSIDevice, 0);
    EXPECT_EQ(collection().TotalHDDevice, 0);
    EXPECT_TRUE(
        trace_.has(kDetail, "The Device maybe USB Device: Host = 6,Vendor = USBVEND", "GetSCSIDeviceTotalNumber"));
}

TEST_F(DeviceCount, ADeviceWithoutAManagedAdapterDoesNotCount)
{
    SCSIDeviceInfo &device = lists_.scsi(9, "Direct-Access", "V", "M");
    device.channel = 2;
    device.id = 3;
    device.lun = 4;
    count();
    EXPECT_EQ(collection().TotalSCSIDevice, 0);
    EXPECT_TRUE(trace_.has(kDetail, "######## Do not management ########", "GetSCSIDeviceTotalNumber"));
    EXPECT_TRUE(trace_.has(kDetail,
                           "host=9,vender=V,model=M,scsirev=REV,type=Direct-Access ansirevision=5,channel=2,Id=3,lun=4",
                           "GetSCSIDeviceTotalNumber"));
}

TEST_F(DeviceCount, TheUnmanagedListRemovesDisksOnly)
{
    addUnmanaged(filter_.pleafNoSCSI_Tbl, "ACME", "");
    filter_.checkUnmanaged = true;
    for (const char *const type : {"Direct-Access", "CD-ROM", "Sequential-Access", "Optical Device", "Scanner"}) {
        lists_.scsi(0, type, "ACME");
    }
    lists_.scsi(0, "Direct-Access", "OTHER");
    count();
    EXPECT_EQ(collection().TotalSCSIDevice, 5);
    EXPECT_EQ(collection().TotalHDDevice, 1);
    EXPECT_EQ(collection().TotalCdromDevice, 1);
    EXPECT_EQ(collection().TotalTapeDevice, 1);
    EXPECT_EQ(collection().TotalOMDevice, 1);
    EXPECT_EQ(collection().TotalMiscDevice, 1);
}

TEST_F(DeviceCount, WithTheCheckOffNothingIsUnmanaged)
{
    addUnmanaged(filter_.pleafNoSCSI_Tbl, "ACME", "");
    lists_.scsi(0, "Direct-Access", "ACME");
    count();
    EXPECT_EQ(collection().TotalHDDevice, 1);
    EXPECT_TRUE(trace_.textsOf("TAVStorageNoManage").empty());
}

TEST_F(DeviceCount, IdeDevicesCountByTheirMedia)
{
    for (const char *const media : {"disk", "disk", "cdrom", "tape", "floppy", "optical"}) {
        lists_.ide("hda", media);
    }
    lists_.use();
    EXPECT_EQ(GetIDEDeviceTotalNumber(), 0);
    EXPECT_EQ(collection().TotalIDEDevice, 6);
    EXPECT_EQ(collection().TotalHDDevice, 2);
    EXPECT_EQ(collection().TotalCdromDevice, 1);
    EXPECT_EQ(collection().TotalMiscDevice, 3);
    EXPECT_EQ(collection().TotalTapeDevice, 0);
    EXPECT_EQ(collection().TotalOMDevice, 0);
}

TEST_F(DeviceCount, AnAbsentIdeListCountsNothing)
{
    EXPECT_EQ(GetIDEDeviceTotalNumber(), 0);
    EXPECT_EQ(collection().TotalIDEDevice, 0);
}

TEST_F(DeviceCount, ReservedNumbersHaveTheOrderOfTheCountBlock)
{
    collection().TotalSCSIDevice = 1;
    collection().TotalIDEDevice = 2;
    collection().TotalHDDevice = 3;
    collection().TotalTapeDevice = 4;
    collection().TotalCdromDevice = 5;
    collection().TotalOMDevice = 6;
    collection().TotalMiscDevice = 7;
    collection().DevNumMib.TotalLifeSpan = 8;
    takeReservedNumbers(collection());
    const auto *const words = reinterpret_cast<const uint16_t *>(&collection().DevNumMib);
    for (uint16_t i = 0; i < 7; ++i) {
        EXPECT_EQ(words[i], i + 1);
    }
    EXPECT_EQ(words[7], 0);
}

TEST_F(DeviceCount, WrittenNumbersReplaceTheUpperBounds)
{
    collection().TotalSCSIDevice = collection().TotalIDEDevice = collection().TotalHDDevice =
        collection().TotalMiscDevice = 50;
    collection().scsi_dev_cnt = 1;
    collection().ide_dev_cnt = 2;
    collection().hd_dev_cnt = 3;
    collection().tape_dev_cnt = 4;
    collection().cdrom_dev_cnt = 5;
    collection().om_dev_cnt = 6;
    collection().misc_dev_cnt = 7;
    collection().DevNumMib.TotalLifeSpan = 8;
    takeWrittenNumbers(collection());
    const auto *const words = reinterpret_cast<const uint16_t *>(&collection().DevNumMib);
    for (uint16_t i = 0; i < 8; ++i) {
        EXPECT_EQ(words[i], i + 1);
    }
}

TEST_F(DeviceCount, ADeviceIsManagedWhenNothingLeavesItOut)
{
    addUnmanaged(filter_.pleafNoSCSI_Tbl, "ACME", "");
    filter_.checkUnmanaged = true;
    struct Case {
        int host;
        const char *type;
        const char *vendor;
        bool managed;
    };
    const Case cases[] = {
        {0, "Direct-Access", "OTHER", true},  {0, "Direct-Access", "ACME", false},
        {0, "CD-ROM", "ACME", true},          {0, "", "OTHER", false},
        {6, "Direct-Access", "OTHER", false}, {6, "CD-ROM", "OTHER", false},
        {9, "Direct-Access", "OTHER", false}, {1, "Unknown", "OTHER", true},
    };
    for (const Case &expected : cases) {
        const SCSIDeviceInfo &device = lists_.scsi(expected.host, expected.type, expected.vendor);
        EXPECT_EQ(isManagedDevice(filter_, device), expected.managed)
            << expected.host << " " << expected.type << " " << expected.vendor;
    }
}

TEST_F(DeviceCount, AUsbAdapterWinsOverAManagedOne)
{
    filter_.usb.entries[0].host = 0;
    ASSERT_TRUE(filter_.index());
    EXPECT_EQ(judgeHost(filter_, 0, filter_.driverOfHost(0)), HostVerdict::usb);
    EXPECT_EQ(TAVStorageUSBCheck(filter_, 0), 1);
    EXPECT_EQ(TAVStorageUSBCheck(filter_, 1), 0);
}

TEST_F(DeviceCount, TheFirstAdapterOfAHostNumberNamesTheDriver)
{
    filter_.hosts.entries[1].host = 0;
    ASSERT_TRUE(filter_.index());
    EXPECT_STREQ(filter_.driverOfHost(0), "ahci");
    EXPECT_EQ(filter_.driverOfHost(1), nullptr);
}

} // namespace
