// SPDX-License-Identifier: Apache-2.0
#include "collect/record_map.h"

#include "runtime/field_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace tavstrg;

namespace {

template <class Rec> bool isZeroOutside(const Rec &record, Rec fields)
{
    return std::memcmp(&record, &fields, sizeof(Rec)) == 0;
}

DriverEntry driver(uint32_t index, const char *name, const char *version)
{
    DriverEntry entry = {};
    entry.index = index;
    copyText(entry.name, name);
    copyText(entry.version, version);
    return entry;
}

TEST(ControllerRecord, EachFieldHasItsSource)
{
    ControllerEntry entry = {};
    std::memset(&entry, 0x5A, sizeof entry); // what has no record field must not leak into one
    entry.Index = 7;
    entry.InterfaceType = 1;
    copyText(entry.Model, "IDE Controller(ide)");
    entry.InterruptNumber = 14;
    entry.driverIndex = 2;
    const DriverEntry drivers[] = {driver(1, "first", "1.0"), driver(2, "second", "2.0"), driver(2, "third", "3.0")};

    StrgCtrlRec expected = {};
    expected.Index = 7;
    expected.InterfaceType = 1;
    copyText(expected.Model, "IDE Controller(ide)");
    expected.InterruptNumber = 14;
    copyText(expected.Driver, "second");
    copyText(expected.DriverVersion, "2.0");
    EXPECT_TRUE(isZeroOutside(controllerRecord(entry, drivers), expected));
}

TEST(ControllerRecord, UnknownInterruptIs65535UnknownInterfaceMinus1)
{
    ControllerEntry entry = {};
    entry.InterruptNumber = 0xFFFFFFFF;
    entry.InterfaceType = kInterfaceUnknown;
    const StrgCtrlRec record = controllerRecord(entry, {});
    EXPECT_EQ(record.InterruptNumber, 65535);
    EXPECT_EQ(record.InterfaceType, -1);
}

TEST(ControllerRecord, WithoutADriverEntryDriverAndVersionAreEmpty)
{
    ControllerEntry entry = {};
    entry.driverIndex = 3;
    const DriverEntry drivers[] = {driver(1, "first", "1.0"), driver(2, "second", "2.0")};
    const StrgCtrlRec record = controllerRecord(entry, drivers);
    EXPECT_STREQ(record.Driver, "");
    EXPECT_STREQ(record.DriverVersion, "");
    entry.driverIndex = 0xFFFF;
    EXPECT_STREQ(controllerRecord(entry, drivers).Driver, "");
}

TEST(ControllerRecord, ALongVersionIsCut)
{
    ControllerEntry entry = {};
    entry.driverIndex = 1;
    const DriverEntry drivers[] = {driver(1, std::string(40, 'd').c_str(), std::string(40, 'v').c_str())};
    const StrgCtrlRec record = controllerRecord(entry, drivers);
    EXPECT_EQ(std::string(record.Driver), std::string(31, 'd'));
    EXPECT_EQ(std::string(record.DriverVersion), std::string(15, 'v'));
}

SCSIDeviceEntry scsiEntry()
{
    SCSIDeviceEntry entry = {};
    std::memset(&entry, 0x5A, sizeof entry);
    entry.Index = 1;
    entry.DeviceType = 2;
    entry.DeviceTypeIndex = 3;
    entry.ControllerIndex = 4;
    entry.Bus = 5;
    entry.TargetID = 6;
    entry.LUN = 7;
    copyText(entry.vendor, "Vendor text");
    copyText(entry.model, "Model text");
    copyText(entry.revision, "Rev text");
    copyText(entry.SerialNumber, "Serial text");
    return entry;
}

TEST(ScsiRecord, EachFieldHasItsSource)
{
    StrgScsiRec expected = {};
    expected.Index = 1;
    expected.DeviceType = 2;
    expected.DeviceTypeIndex = 3;
    expected.ControllerIndex = 4;
    expected.Bus = 5;
    expected.TargetID = 6;
    expected.LUN = 7;
    copyText(expected.Vendor, "Vendor text");
    copyText(expected.Model, "Model text");
    copyText(expected.FirmwareRevision, "Rev text");
    copyText(expected.SerialNumber, "Serial text");
    EXPECT_TRUE(isZeroOutside(scsiRecord(scsiEntry()), expected));
}

TEST(ScsiRecord, TextsLongerThanTheirFieldsAreCutAndTerminated)
{
    SCSIDeviceEntry entry = scsiEntry();
    copyText(entry.vendor, std::string(63, 'v'));
    copyText(entry.model, std::string(63, 'm'));
    copyText(entry.revision, std::string(63, 'r'));
    copyText(entry.SerialNumber, std::string(255, 's'));
    const StrgScsiRec record = scsiRecord(entry);
    EXPECT_EQ(std::string(record.Vendor), std::string(31, 'v'));
    EXPECT_EQ(std::string(record.Model), std::string(31, 'm'));
    EXPECT_EQ(std::string(record.FirmwareRevision), std::string(15, 'r'));
    EXPECT_EQ(std::string(record.SerialNumber), std::string(255, 's'));
}

TEST(IdeRecord, EachFieldHasItsSource)
{
    IDEDeviceEntry entry = {};
    std::memset(&entry, 0x5A, sizeof entry);
    entry.Index = 1;
    entry.DeviceType = 3;
    entry.DeviceTypeIndex = 2;
    entry.ControllerIndex = 4;
    entry.IDEConfiguration = 5;
    copyText(entry.model, "Model text");
    copyText(entry.revision, "Not Supported");
    copyText(entry.SerialNumber, "Unknown");

    StrgIdeRec expected = {};
    expected.Index = 1;
    expected.DeviceType = 3;
    expected.DeviceTypeIndex = 2;
    expected.ControllerIndex = 4;
    expected.IDEConfiguration = 5;
    copyText(expected.Model, "Model text");
    copyText(expected.FirmwareRevision, "Not Supported");
    copyText(expected.SerialNumber, "Unknown");
    EXPECT_TRUE(isZeroOutside(ideRecord(entry), expected));
}

HardDiskEntry diskEntry()
{
    HardDiskEntry entry = {};
    std::memset(&entry, 0x5A, sizeof entry);
    entry.Index = 1;
    entry.InterfaceType = 1;
    entry.InterfaceTypeIndex = 2;
    entry.CylindersPerUnit = 3;
    entry.TracksPerCylinder = 4;
    entry.SectorsPerTrack = 5;
    entry.Capacity = 6;
    entry.SmartPredict = -1;
    return entry;
}

TEST(HardDiskRecord, EachFieldHasItsSource)
{
    StrgHddRec expected = {};
    expected.Index = 1;
    expected.InterfaceType = 1;
    expected.InterfaceTypeIndex = 2;
    expected.CylindersPerUnit = 3;
    expected.TracksPerCylinder = 4;
    expected.SectorsPerTrack = 5;
    expected.Capacity = 6;
    expected.SmartStatus = -1;
    EXPECT_TRUE(isZeroOutside(hardDiskRecord(diskEntry()), expected));
}

TEST(HardDiskRecord, PnpDeviceIdIsAlwaysEmpty)
{
    const StrgHddRec record = hardDiskRecord(diskEntry());
    for (const char byte : record.PNPDeviceID) {
        ASSERT_EQ(byte, 0);
    }
}

TEST(HardDiskRecord, AnyInterfaceTypeButOneIsPublishedAsZero)
{
    for (const uint16_t type :
         {uint16_t{0}, uint16_t{2}, uint16_t{255}, uint16_t{256}, uint16_t{257}, uint16_t{65535}}) {
        HardDiskEntry entry = diskEntry();
        entry.InterfaceType = type;
        EXPECT_EQ(hardDiskRecord(entry).InterfaceType, 0) << type;
    }
}

TEST(HardDiskRecord, CapacityKeepsItsLow32Bits)
{
    HardDiskEntry entry = diskEntry();
    entry.CylindersPerUnit = (uint64_t{1} << 32) + 11;
    entry.TracksPerCylinder = (uint64_t{7} << 32) + 12;
    entry.SectorsPerTrack = (uint64_t{1} << 40) + 13;
    entry.Capacity = uint64_t{1} << 32;
    StrgHddRec record = hardDiskRecord(entry);
    EXPECT_EQ(record.CylindersPerUnit, 11U);
    EXPECT_EQ(record.TracksPerCylinder, 12U);
    EXPECT_EQ(record.SectorsPerTrack, 13U);
    EXPECT_EQ(record.Capacity, 0U);
    entry.Capacity += 14;
    record = hardDiskRecord(entry);
    EXPECT_EQ(record.Capacity, 14U);
}

template <class Entry> void expectFirstThreeWords()
{
    Entry entry = {};
    std::memset(&entry, 0x5A, sizeof entry);
    entry.Index = 1;
    entry.InterfaceType = 1;
    entry.InterfaceTypeIndex = 3;
    EXPECT_TRUE(isZeroOutside(deviceRecord(entry), StrgDevRec{1, 1, 3, 0}));
}

TEST(DeviceRecord, IsTheFirstThreeWordsOfTheEntry)
{
    expectFirstThreeWords<CdromDeviceEntry>();
    expectFirstThreeWords<TapeDeviceEntry>();
    expectFirstThreeWords<ClassDeviceEntry>();
}

TEST(LifeSpanRecord, IsTheThreeWordsOfTheEntry)
{
    EXPECT_TRUE(isZeroOutside(lifeSpanRecord({1, 2, -1, 0x5A5A}), StrgLifeRec{1, 2, -1, 0}));
}

} // namespace
