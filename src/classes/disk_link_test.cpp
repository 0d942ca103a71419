// SPDX-License-Identifier: Apache-2.0
#include "classes/disk_link.h"

#include "runtime/field_text.h"

#include <gtest/gtest.h>

#include <vector>

using namespace tavstrg;

namespace {

class DiskLink : public testing::Test {
protected:
    // A hard disk on a SCSI controller, and its device.
    void addScsi(uint16_t target, const char *model, const char *serial)
    {
        StrgScsiRec device = {};
        device.Index = static_cast<uint16_t>(scsi_.size() + 1);
        device.TargetID = target;
        copyText(device.Model, model);
        copyText(device.SerialNumber, serial);
        scsi_.push_back(device);
        addDisk(kInterfaceScsi, device.Index);
    }
    void addIde(const char *serial)
    {
        StrgIdeRec device = {};
        device.Index = static_cast<uint16_t>(ide_.size() + 1);
        copyText(device.SerialNumber, serial);
        ide_.push_back(device);
        addDisk(kInterfaceIde, device.Index);
    }
    uint16_t indexOf(const char *address, const char *model, const char *serial) const
    {
        disks::Disk disk = {};
        copyText(disk.address, address);
        copyText(disk.model, model);
        copyText(disk.serial, serial);
        return hardDiskIndexOf(disk, {disks_, scsi_, ide_});
    }
    void addDisk(int16_t interfaceType, uint16_t index)
    {
        StrgHddRec disk = {};
        disk.Index = static_cast<uint16_t>(disks_.size() + 1);
        disk.InterfaceType = interfaceType;
        disk.InterfaceTypeIndex = index;
        disks_.push_back(disk);
    }

    std::vector<StrgHddRec> disks_;
    std::vector<StrgScsiRec> scsi_;
    std::vector<StrgIdeRec> ide_;
};

TEST_F(DiskLink, IsTheHardDiskOfTheAddressAndSerialNumber)
{
    addScsi(0, "M", "  S-1 ");
    addScsi(0, "M", "S-2"); // on another host
    addScsi(3, "M", "S-3");
    EXPECT_EQ(indexOf("0:0:0:0", "M", "S-1"), 1);
    EXPECT_EQ(indexOf("1:0:0:0", "M", "S-2"), 2);
    EXPECT_EQ(indexOf("1:0:3:0", "M", "S-3"), 3);
    EXPECT_EQ(indexOf("1:0:3:0", "M", "S-2"), 0);
    EXPECT_EQ(indexOf("1:1:3:0", "M", "S-3"), 0);
    EXPECT_EQ(indexOf("1:0:3:1", "M", "S-3"), 0);
    EXPECT_EQ(indexOf("0000:01:00.0", "M", "S-3"), 0);
    EXPECT_EQ(indexOf("1:0:3:0x", "M", "S-3"), 0);
    EXPECT_EQ(indexOf("", "M", "S-3"), 0);
}

TEST_F(DiskLink, GoesByTheModelWhereThereIsNoSerialNumber)
{
    addScsi(0, "NORDWIND NW1000-", "");
    addScsi(1, "OTHER", "S");
    EXPECT_EQ(indexOf("0:0:0:0", "NORDWIND NW1000-EXTENDED", "S-1"), 1);
    EXPECT_EQ(indexOf("0:0:1:0", "OTHER", ""), 2);
    EXPECT_EQ(indexOf("0:0:1:0", "ANOTHER", ""), 0);
    EXPECT_EQ(indexOf("0:0:1:0", "", ""), 0);
}

TEST_F(DiskLink, IsNoneWhereSeveralFit)
{
    addScsi(0, "M", "S");
    addScsi(0, "M", "S");
    EXPECT_EQ(indexOf("0:0:0:0", "M", "S"), 0);
}

TEST_F(DiskLink, OfAnIdeDiskIsItsSerialNumber)
{
    addIde("I-1");
    addIde("I-2");
    EXPECT_EQ(indexOf("0.0", "M", "I-2"), 2);
    EXPECT_EQ(indexOf("0.0", "M", ""), 0);
}

TEST_F(DiskLink, IsNotFollowedToARecordThatIsNotInItsPlace)
{
    addDisk(kInterfaceScsi, 0);
    addDisk(kInterfaceScsi, 7);
    addScsi(0, "M", "S");
    scsi_[0].Index = 2;
    EXPECT_EQ(indexOf("0:0:0:0", "M", "S"), 0);
}

} // namespace
