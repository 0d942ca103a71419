// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/catalogue.h"

#include "records/records.h"

#include <gmock/gmock.h>

using namespace tavstrg;

namespace {

using namespace tool;
using testing::ElementsAre;

TEST(Catalogue, HasTheElevenClassesWithRecordsTheThreadAndTheDisk)
{
    ASSERT_EQ(catalogue().size(), size_t{TAV_CID_STRG_MAX} + 2);
    for (size_t id = 0; id < TAV_CID_STRG_MAX; ++id) {
        EXPECT_EQ(catalogue()[id].name, kClasses[id].cimName);
    }
    EXPECT_EQ(catalogue()[TAV_CID_STRG_MAX].name, "TAV_StorageThread");
    EXPECT_EQ(catalogue().back().name, "TAV_StorageDisk");
    EXPECT_EQ(catalogue().back().keyName(), "DiskID");
    EXPECT_EQ(findClass("HardDisk")->keyName(), "Index");
}

TEST(Catalogue, LeavesOutWhatIsOnlyDumped)
{
    for (const PropertyEntry &property : findClass("TotalNumber")->properties) {
        EXPECT_NE(property.name, "LifeSpanTotalNumber");
    }
    EXPECT_EQ(findClass("TotalNumber")->properties.size(), 8U);
}

TEST(Catalogue, OnlyConfigTotalsAndThreadHaveOneInstance)
{
    std::vector<std::string> single;
    for (const ClassEntry &entry : catalogue()) {
        if (!entry.keyed()) {
            single.push_back(entry.shortName());
        }
    }
    EXPECT_THAT(single, ElementsAre("Config", "TotalNumber", "Thread"));
}

TEST(FindClass, TakesFullAndShortNamesInAnyCase)
{
    for (const char *name : {"TAV_StorageHardDisk", "HardDisk", "harddisk", "HARDDISK", "tav_storageharddisk"}) {
        ASSERT_NE(findClass(name), nullptr) << name;
        EXPECT_EQ(findClass(name)->name, "TAV_StorageHardDisk");
    }
    for (const ClassEntry &entry : catalogue()) {
        EXPECT_EQ(findClass(entry.shortName()), &entry);
    }
}

TEST(FindClass, KnowsNoOtherNames)
{
    for (const char *name : {"", "Hard", "HardDisks", "TAV_Storage", "StorageHardDisk", "TAV_GeneralInformation"}) {
        EXPECT_EQ(findClass(name), nullptr) << name;
    }
}

TEST(FindMethod, TakesAnyCaseWithinItsClass)
{
    const ClassEntry &config = *findClass("Config");
    ASSERT_NE(findMethod(config, "setmonitorcycle"), nullptr);
    EXPECT_EQ(findMethod(config, "setmonitorcycle")->name, "SetMonitorCycle");
    EXPECT_THAT(findMethod(config, "SetHardDiskSmartMode")->arguments, ElementsAre("HardDiskSmartMode"));
    EXPECT_EQ(findMethod(config, "StartMonitoringThread"), nullptr);
    EXPECT_NE(findMethod(*findClass("Thread"), "stopmonitoringthread"), nullptr);
}

TEST(SchemaType, TextIsAString)
{
    EXPECT_EQ(schemaType(CMPI_chars), "string");
    EXPECT_EQ(schemaType(CMPI_uint16), "uint16");
    EXPECT_EQ(schemaType(CMPI_sint16), "sint16");
    EXPECT_EQ(schemaType(CMPI_uint32), "uint32");
    EXPECT_EQ(schemaType(CMPI_sint32), "sint32");
    EXPECT_EQ(schemaType(CMPI_uint64), "uint64");
    EXPECT_EQ(schemaType(CMPI_boolean), "boolean");
}

} // namespace
