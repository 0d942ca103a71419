// SPDX-License-Identifier: Apache-2.0
#include "records/records.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <tuple>
#include <vector>

using namespace tavstrg;

namespace {

// Field, offset, bytes, type: the storage format that segments and files of earlier runs hold.
using Row = std::tuple<std::string, int, int, CMPIType>;

struct Layout {
    int id;
    const char *cimName;
    uint32_t recordSize;
    std::vector<Row> rows;
};

const std::vector<Row> kDeviceRows = {
    {"Index", 0, 2, CMPI_chars}, {"InterfaceType", 2, 2, CMPI_sint16}, {"InterfaceTypeIndex", 4, 2, CMPI_uint16}};

const Layout kLayouts[] = {
    {0,
     "TAV_StorageConfig",
     12,
     {{"MonitorCycle", 0, 2, CMPI_uint16},
      {"MonitorCycleMin", 2, 2, CMPI_uint16},
      {"MonitorCycleMax", 4, 2, CMPI_uint16},
      {"MonitorCycleDefault", 6, 2, CMPI_uint16},
      {"HardDiskSmartMode", 8, 2, CMPI_sint16}}},
    {1,
     "TAV_StorageTotalNumber",
     20,
     {{"ControllerTotalNumber", 0, 2, CMPI_uint16},
      {"SCSIDeviceTotalNumber", 2, 2, CMPI_uint16},
      {"IDEDeviceTotalNumber", 4, 2, CMPI_uint16},
      {"HardDiskTotalNumber", 6, 2, CMPI_uint16},
      {"CDROMTotalNumber", 8, 2, CMPI_uint16},
      {"TapeTotalNumber", 10, 2, CMPI_uint16},
      {"OpticalMemoryTotalNumber", 12, 2, CMPI_uint16},
      {"MiscTotalNumber", 14, 2, CMPI_uint16},
      {"LifeSpanTotalNumber", 16, 2, CMPI_uint16}}},
    {2,
     "TAV_StorageController",
     120,
     {{"Index", 0, 2, CMPI_chars},
      {"InterfaceType", 2, 2, CMPI_sint16},
      {"Model", 4, 64, CMPI_chars},
      {"InterruptNumber", 68, 2, CMPI_uint16},
      {"Driver", 72, 32, CMPI_chars},
      {"DriverVersion", 104, 16, CMPI_chars}}},
    {3,
     "TAV_StorageSCSIDevice",
     352,
     {{"Index", 0, 2, CMPI_chars},
      {"DeviceType", 2, 2, CMPI_sint16},
      {"DeviceTypeIndex", 4, 2, CMPI_uint16},
      {"ControllerIndex", 6, 2, CMPI_uint16},
      {"Bus", 8, 2, CMPI_uint16},
      {"TargetID", 10, 2, CMPI_uint16},
      {"LUN", 12, 2, CMPI_uint16},
      {"Vendor", 16, 32, CMPI_chars},
      {"Model", 48, 32, CMPI_chars},
      {"FirmwareRevision", 80, 16, CMPI_chars},
      {"SerialNumber", 96, 256, CMPI_chars}}},
    {4,
     "TAV_StorageIDEDevice",
     316,
     {{"Index", 0, 2, CMPI_chars},
      {"DeviceType", 2, 2, CMPI_sint16},
      {"DeviceTypeIndex", 4, 2, CMPI_uint16},
      {"ControllerIndex", 6, 2, CMPI_uint16},
      {"IDEConfiguration", 8, 2, CMPI_sint16},
      {"Model", 12, 32, CMPI_chars},
      {"FirmwareRevision", 44, 16, CMPI_chars},
      {"SerialNumber", 60, 256, CMPI_chars}}},
    {5,
     "TAV_StorageHardDisk",
     284,
     {{"Index", 0, 2, CMPI_chars},
      {"InterfaceType", 2, 2, CMPI_sint16},
      {"InterfaceTypeIndex", 4, 2, CMPI_uint16},
      {"PNPDeviceID", 8, 256, CMPI_chars},
      {"CylindersPerUnit", 264, 4, CMPI_uint32},
      {"TracksPerCylinder", 268, 4, CMPI_uint32},
      {"SectorsPerTrack", 272, 4, CMPI_uint32},
      {"Capacity", 276, 4, CMPI_uint32},
      {"SmartStatus", 280, 2, CMPI_sint16}}},
    {6, "TAV_StorageCDROM", 8, kDeviceRows},
    {7, "TAV_StorageTape", 8, kDeviceRows},
    {8, "TAV_StorageOpticalMemory", 8, kDeviceRows},
    {9, "TAV_StorageMisc", 8, kDeviceRows},
    {10,
     "TAV_StorageLifeSpan",
     8,
     {{"Index", 0, 2, CMPI_chars}, {"HDDIndex", 2, 2, CMPI_sint16}, {"EnduranceRemaining", 4, 2, CMPI_sint16}}},
};

TEST(Records, FieldsStandWhereTheStorageFormatHasThem)
{
    ASSERT_EQ(std::size(kLayouts), static_cast<size_t>(TAV_CID_STRG_MAX));
    for (const Layout &layout : kLayouts) {
        SCOPED_TRACE(layout.cimName);
        const ClassDesc &desc = kClasses[layout.id];
        EXPECT_EQ(desc.id, layout.id);
        EXPECT_STREQ(desc.cimName, layout.cimName);
        EXPECT_EQ(desc.recordSize, layout.recordSize);
        std::vector<Row> rows;
        for (const FieldDesc &field : desc.fields) {
            rows.emplace_back(field.name, field.offset, field.size, field.type);
        }
        EXPECT_EQ(rows, layout.rows);
    }
}

TEST(Records, OnlyLifeSpanTotalIsUnpublishedAndOnlyPnpIdUndumped)
{
    std::vector<std::string> unpublished;
    std::vector<std::string> undumped;
    for (const ClassDesc &desc : kClasses) {
        for (const FieldDesc &field : desc.fields) {
            if ((field.use & kPublished) == 0) {
                unpublished.emplace_back(field.name);
            }
            if ((field.use & kDumped) == 0) {
                undumped.emplace_back(field.name);
            }
        }
    }
    EXPECT_THAT(unpublished, testing::ElementsAre("LifeSpanTotalNumber"));
    EXPECT_THAT(undumped, testing::ElementsAre("PNPDeviceID"));
}

TEST(Records, TheKeyIsTheIndexOfTheIndexedClasses)
{
    for (const ClassDesc &desc : kClasses) {
        for (const FieldDesc &field : desc.fields) {
            EXPECT_EQ(field.key, std::strcmp(field.name, "Index") == 0) << desc.cimName << " " << field.name;
        }
        EXPECT_EQ(desc.fields[0].key, desc.id >= TAV_CID_STRG_CTRL) << desc.cimName;
    }
}

TEST(StrgInitDatInfo, SetsSizesOneRecordForTheSingletonsAndNoArrays)
{
    DatInfo dat[TAV_CID_STRG_MAX];
    std::memset(dat, 0xEE, sizeof dat);
    strgInitDatInfo(dat);
    const uint32_t sizes[] = {12, 20, 120, 352, 316, 284, 8, 8, 8, 8, 8};
    for (int id = 0; id < TAV_CID_STRG_MAX; ++id) {
        EXPECT_EQ(dat[id].datSize, sizes[id]) << id;
        EXPECT_EQ(dat[id].datNum, id < 2 ? 1 : 0) << id;
        EXPECT_EQ(dat[id].datAdr, nullptr) << id;
    }
}

TEST(FieldNumber, ExtendsBySignAndWidthOfTheField)
{
    StrgLifeRec life = {65535, 3, -1, 0};
    const auto fields = kClasses[TAV_CID_STRG_LIFE].fields;
    EXPECT_EQ(fieldNumber(fields[0], &life), 65535);
    EXPECT_EQ(fieldNumber(fields[1], &life), 3);
    EXPECT_EQ(fieldNumber(fields[2], &life), -1) << "not yet read is published as -1, not as 65535";

    StrgHddRec disk = {};
    disk.Capacity = 0xFFFFFFFFU;
    EXPECT_EQ(fieldNumber(kClasses[TAV_CID_STRG_HDD].fields[7], &disk), 0xFFFFFFFFLL);
}

TEST(FieldChars, IsTheTextInTheRecord)
{
    StrgCtrlRec controller = {};
    std::strcpy(controller.Driver, "ahci");
    EXPECT_EQ(fieldChars(kClasses[TAV_CID_STRG_CTRL].fields[4], &controller), controller.Driver);
    EXPECT_STREQ(fieldChars(kClasses[TAV_CID_STRG_CTRL].fields[4], &controller), "ahci");
}

} // namespace
