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
        around_.hosts.entries = handOut<SCSIHostEntry>({hostEntry(0, "ahci"), hostEntry(1, "mptspi")});
        around_.hosts.count = 2;
        around_.usb.entries = handOut<USBHostEntry>({usbEntry(6)});
        around_.usb.count = 1;
        trace_.clear();
    }
    ~DeviceCount() override { around_.release(); }

    void count()
    {
        const TraceScope scope("GetSCSIDeviceTotalNumber");
        countSCSIDevices(lists_.scsiList(), around_);
    }

    TraceRecorder trace_;
    HandMadeLists lists_;
    SCSISurroundings around_;
};

TEST_F(DeviceCount, EachTypeCountsOnceInItsClass)
{
    for (const char *const type :
         {"Direct-Access", "Direct-Access", "Sequential-Access", "CD-ROM", "CD-ROM", "CD-ROM", "Optical Device", "WORM",
          "Printer", "Proccessor", "Processor", "Scanner", "Medium Changer", "Unknown"}) {
        lists_.scsi(0, type);
    }
    count();
    EXPECT_EQ(TotalSCSIDevice, 14);
    EXPECT_EQ(TotalHDDevice, 2);
    EXPECT_EQ(TotalTapeDevice, 1);
    EXPECT_EQ(TotalCdromDevice, 3);
    EXPECT_EQ(TotalOMDevice, 1);
    EXPECT_EQ(TotalMiscDevice, 7);
}

TEST_F(DeviceCount, AnEmptyTypeCountsAsOther)
{
    lists_.scsi(0, "");
    count();
    EXPECT_EQ(TotalSCSIDevice, 1);
    EXPECT_EQ(TotalMiscDevice, 1);
}

TEST_F(DeviceCount, ADeviceOfAUsbAdapterDoesNotCount)
{
    lists_.scsi(6, "Direct-Access", "USBVEND");
    count();
    EXPECT_EQ(TotalSCSIDevice, 0);
    EXPECT_EQ(TotalHDDevice, 0);
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
    EXPECT_EQ(TotalSCSIDevice, 0);
    EXPECT_TRUE(trace_.has(kDetail, "######## Do not management ########", "GetSCSIDeviceTotalNumber"));
    EXPECT_TRUE(trace_.has(kDetail,
                           "host=9,vender=V,model=M,scsirev=REV,type=Direct-Access ansirevision=5,channel=2,Id=3,lun=4",
                           "GetSCSIDeviceTotalNumber"));
}

TEST_F(DeviceCount, TheUnmanagedListRemovesDisksOnly)
{
    addUnmanaged("ACME", "");
    around_.checkUnmanaged = true;
    for (const char *const type : {"Direct-Access", "CD-ROM", "Sequential-Access", "Optical Device", "Scanner"}) {
        lists_.scsi(0, type, "ACME");
    }
    lists_.scsi(0, "Direct-Access", "OTHER");
    count();
    EXPECT_EQ(TotalSCSIDevice, 5);
    EXPECT_EQ(TotalHDDevice, 1);
    EXPECT_EQ(TotalCdromDevice, 1);
    EXPECT_EQ(TotalTapeDevice, 1);
    EXPECT_EQ(TotalOMDevice, 1);
    EXPECT_EQ(TotalMiscDevice, 1);
}

TEST_F(DeviceCount, WithTheCheckOffNothingIsUnmanaged)
{
    addUnmanaged("ACME", "");
    lists_.scsi(0, "Direct-Access", "ACME");
    count();
    EXPECT_EQ(TotalHDDevice, 1);
    EXPECT_TRUE(trace_.textsOf("TAVStorageNoManage").empty());
}

TEST_F(DeviceCount, IdeDevicesCountByTheirMedia)
{
    for (const char *const media : {"disk", "disk", "cdrom", "tape", "floppy", "optical"}) {
        lists_.ide("hda", media);
    }
    lists_.use();
    EXPECT_EQ(GetIDEDeviceTotalNumber(), 0);
    EXPECT_EQ(TotalIDEDevice, 6);
    EXPECT_EQ(TotalHDDevice, 2);
    EXPECT_EQ(TotalCdromDevice, 1);
    EXPECT_EQ(TotalMiscDevice, 3);
    EXPECT_EQ(TotalTapeDevice, 0);
    EXPECT_EQ(TotalOMDevice, 0);
}

TEST_F(DeviceCount, AnAbsentIdeListCountsNothing)
{
    EXPECT_EQ(GetIDEDeviceTotalNumber(), 0);
    EXPECT_EQ(TotalIDEDevice, 0);
}

TEST_F(DeviceCount, ReservedNumbersStandInTheOrderOfTheCountBlock)
{
    TotalSCSIDevice = 1;
    TotalIDEDevice = 2;
    TotalHDDevice = 3;
    TotalTapeDevice = 4;
    TotalCdromDevice = 5;
    TotalOMDevice = 6;
    TotalMiscDevice = 7;
    DevNumMib.TotalLifeSpan = 8;
    takeReservedNumbers();
    const auto *const words = reinterpret_cast<const uint16_t *>(&DevNumMib);
    for (uint16_t i = 0; i < 7; ++i) {
        EXPECT_EQ(words[i], i + 1);
    }
    EXPECT_EQ(words[7], 0);
}

TEST_F(DeviceCount, WrittenNumbersReplaceTheUpperBounds)
{
    TotalSCSIDevice = TotalIDEDevice = TotalHDDevice = TotalMiscDevice = 50;
    scsi_dev_cnt = 1;
    ide_dev_cnt = 2;
    hd_dev_cnt = 3;
    tape_dev_cnt = 4;
    cdrom_dev_cnt = 5;
    om_dev_cnt = 6;
    misc_dev_cnt = 7;
    DevNumMib.TotalLifeSpan = 8;
    takeWrittenNumbers();
    const auto *const words = reinterpret_cast<const uint16_t *>(&DevNumMib);
    for (uint16_t i = 0; i < 8; ++i) {
        EXPECT_EQ(words[i], i + 1);
    }
}

TEST_F(DeviceCount, ADeviceIsManagedWhenNothingLeavesItOut)
{
    addUnmanaged("ACME", "");
    around_.checkUnmanaged = true;
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
        EXPECT_EQ(isManagedDevice(around_, device), expected.managed)
            << expected.host << " " << expected.type << " " << expected.vendor;
    }
}

TEST_F(DeviceCount, AUsbAdapterWinsOverAManagedOne)
{
    around_.usb.entries[0].host = 0;
    EXPECT_EQ(judgeHost(around_, lists_.scsi(0, "CD-ROM")), HostVerdict::usb);
    EXPECT_EQ(TAVStorageUSBCheck(around_, 0), 1);
    EXPECT_EQ(TAVStorageUSBCheck(around_, 1), 0);
}

TEST_F(DeviceCount, TheFirstAdapterOfAHostNumberNamesTheDriver)
{
    around_.hosts.entries[1].host = 0;
    EXPECT_STREQ(driverOfHost(around_, 0), "ahci");
    EXPECT_EQ(driverOfHost(around_, 1), nullptr);
}

} // namespace
