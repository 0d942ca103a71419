// SPDX-License-Identifier: Apache-2.0
#include "collect/devices/device_build.h"

#include "collect/devices/scsi_table.h"
#include "collect/devices/serial_number.h"
#include "devcmd/geometry.h"
#include "devcmd/smart/smart_watch.h"
#include "sim/sim.h"
#include "support/lists_fixture.h"

#include <memory>
#include <optional>

using namespace tavstrg;

namespace {

class DeviceBuild : public testing::Test {
protected:
    int collect(const std::string &json)
    {
        collected_.reset(); // one at a time
        collected_.emplace();
        machine_.reset();
        machine_ = std::make_unique<sim::Machine>(json);
        trace_.clear();
        return DllMain();
    }

    TraceRecorder trace_;
    std::unique_ptr<sim::Machine> machine_;
    std::optional<Collection> collected_{std::in_place};
};

constexpr char kTwoDisks[] = R"({"hosts": [{"number": 4, "driver": "ahci", "devices": [
    {"id": 0, "type": 5}, {"id": 1, "ata": true, "serial": "FIRST", "identifyWords": {"20": 0}},
    {"id": 2, "ata": true, "serial": "SECOND", "identifyWords": {"20": 0}}]}],
    "files": {"storage.inf": "ahci\n"}})";

TEST_F(DeviceBuild, AHardDiskEntryHasEveryField)
{
    ASSERT_EQ(collect(kTwoDisks), 0);
    ASSERT_EQ(collection().hd_dev_cnt, 2);
    const HardDiskEntry &disk = collection().pHDDevTbl[1];
    EXPECT_EQ(disk.Index, 2);
    EXPECT_EQ(disk.reserved, 0);
    EXPECT_EQ(disk.InterfaceType, 0);
    EXPECT_EQ(disk.InterfaceTypeIndex, 3);
    EXPECT_EQ(disk.unknownWord, 65534);
    EXPECT_STREQ(disk.driverName, "ahci");
    EXPECT_STREQ(disk.driverVersion, "Unknown");
    EXPECT_EQ(disk.TracksPerCylinder, 255U);
    EXPECT_EQ(disk.SectorsPerTrack, 63U);
    EXPECT_EQ(disk.Capacity, uint64_t{512} * disk.CylindersPerUnit * 255 * 63 >> 20);
    EXPECT_EQ(disk.DeviceNumber, 8 * 256 + 16);
    EXPECT_STREQ(disk.DevPath, "/dev/sdb");
    EXPECT_EQ(disk.SmartPredict, 0);
    EXPECT_EQ(collection().pSCSIDevTbl[2].DeviceType, 0);
    EXPECT_EQ(collection().pSCSIDevTbl[2].DeviceTypeIndex, 2);
    EXPECT_EQ(collection().pSCSIDevTbl[2].classCodes[0], 2);
    EXPECT_EQ(collection().pSCSIDevTbl[2].classCodes[1], 1);
    EXPECT_STREQ(collection().pSCSIDevTbl[2].SerialNumber, "SECOND");
}

TEST_F(DeviceBuild, ADiskThatIsLeftOutTakesADeviceNumberButNoIndex)
{
    for (const char *const first : {"usb-storage", "virtio_scsi"}) { // the second is not in the administrator's file
        SCOPED_TRACE(first);
        const std::string hosts = std::string(R"({"hosts": [{"number": 0, "driver": ")") + first +
                                  R"(", "devices": [{"ata": true}]}, {"number": 1, "driver": "ahci", "devices": [)" +
                                  R"({"ata": true, "serial": "KEPT", "identifyWords": {"20": 0}}]}],)";
        ASSERT_EQ(collect(hosts + R"( "files": {"storage.inf": "ahci\n"}})"), 0);
        ASSERT_EQ(collection().hd_dev_cnt, 1);
        EXPECT_EQ(collection().pHDDevTbl[0].Index, 1);
        EXPECT_EQ(collection().pHDDevTbl[0].InterfaceTypeIndex, 1);
        EXPECT_EQ(collection().pHDDevTbl[0].DeviceNumber, 8 * 256 + 16);
        EXPECT_STREQ(collection().pHDDevTbl[0].DevPath, "/dev/sdb");
        EXPECT_STREQ(collection().pSCSIDevTbl[0].SerialNumber, "KEPT");
    }
}

TEST_F(DeviceBuild, AnUnmanagedDiskLeavesNoGapInTheNumbers)
{
    machine_ = std::make_unique<sim::Machine>(R"({"hosts": [{"driver": "ahci", "devices": [
        {"id": 0, "ata": true, "model": "FIRST", "serial": "S1", "identifyWords": {"20": 0}},
        {"id": 1, "ata": true, "model": "MIDDLE", "serial": "S2", "identifyWords": {"20": 0}},
        {"id": 2, "ata": true, "model": "LAST", "serial": "S3", "identifyWords": {"20": 0}}]}],
        "files": {"storage.inf": "ahci\n"}})");
    ASSERT_EQ(GetSCSIAndIDEInfoListFromProc(), 0);
    DeviceFilter filter;
    ASSERT_EQ(filter.loadUSB(), 0);
    ASSERT_EQ(filter.loadHosts(), 0);
    ASSERT_NE(collection().g_SCSIDeviceInfo, nullptr);
    ASSERT_NE(collection().g_SCSIDeviceInfo->next, nullptr);
    addUnmanaged(filter.pleafNoSCSI_Tbl, collection().g_SCSIDeviceInfo->next->vendor,
                 collection().g_SCSIDeviceInfo->next->model);
    filter.checkUnmanaged = true;
    countSCSIDevices(collection().g_SCSIDeviceInfo, filter);
    ASSERT_EQ(collection().TotalSCSIDevice, 2);
    ASSERT_EQ(MallocDeviceTable(), 0);
    SCSIDiskNameTable names;
    ASSERT_NE(GetSCSIDeviceName_IDArray(collection().g_SCSIDeviceInfo, &names), 0);
    AskNow asker(namingByTable(&names), kStrictMethods);
    ASSERT_EQ(fillSCSIDevices(collection().g_SCSIDeviceInfo, asker, filter), 0);
    ASSERT_EQ(collection().scsi_dev_cnt, 2);
    ASSERT_EQ(collection().hd_dev_cnt, 2);
    const char *const serials[] = {"S1", "S3"};
    const uint16_t numbers[] = {8 * 256, 8 * 256 + 32}; // the unmanaged disk has the number between them
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(collection().pSCSIDevTbl[i].Index, i + 1);
        EXPECT_EQ(collection().pSCSIDevTbl[i].DeviceTypeIndex, i + 1);
        EXPECT_STREQ(collection().pSCSIDevTbl[i].SerialNumber, serials[i]);
        EXPECT_EQ(collection().pHDDevTbl[i].Index, i + 1);
        EXPECT_EQ(collection().pHDDevTbl[i].InterfaceTypeIndex, i + 1);
        EXPECT_EQ(collection().pHDDevTbl[i].DeviceNumber, numbers[i]);
    }
    filter.release();
}

TEST_F(DeviceBuild, AScsiDiskStartsWithSmartUnknownAndNotRead)
{
    machine_ = std::make_unique<sim::Machine>(R"({"hosts": [{"driver": "ahci", "devices": [{"vendor": "ACME"}]}]})");
    collection().TotalHDDevice = 1;
    g_SmartMode = 0; // what another test has left
    ASSERT_EQ(MallocDeviceTable(), 0);
    ASSERT_EQ(MakeSCSIHDDevice("/dev/sda", "ahci"), 0);
    ASSERT_EQ(collection().hd_dev_cnt, 1);
    EXPECT_TRUE(trace_.has(kDetail, "manufacturer [ACME    ]", "fetch_sata_type")); // asked, and answered
    EXPECT_EQ(collection().pHDDevTbl[0].DevKind, 0U);
    EXPECT_EQ(collection().pHDDevTbl[0].SmartSupport, 1U);
    EXPECT_EQ(collection().pHDDevTbl[0].SmartEnableState, 0U);
}

TEST_F(DeviceBuild, ADiskIsAskedForItsKindAfterItsGeometry)
{
    ASSERT_EQ(collect(kTwoDisks), 0);
    EXPECT_EQ(collection().pHDDevTbl[0].DevKind, kDevKindSata);
    int geometry = -1;
    int kind = -1;
    int watch = -1;
    int life = -1;
    int at = 0;
    for (const TraceRecord &record : trace_.records()) {
        int *const first = record.function == "GetSCSIHDGeometry"      ? &geometry
                           : record.function == "fetch_sata_type"      ? &kind
                           : record.function == "TAVStorageSmartWatch" ? &watch
                           : record.function == "GetLifeSpanInfo"      ? &life
                                                                       : nullptr;
        if (first != nullptr && *first < 0) {
            *first = at;
        }
        ++at;
    }
    EXPECT_GE(geometry, 0);
    EXPECT_LT(geometry, kind);
    EXPECT_LT(kind, watch);
    EXPECT_LT(watch, life);
}

TEST_F(DeviceBuild, WrittenCountsAreTheCounts)
{
    ASSERT_EQ(collect(kTwoDisks), 0);
    EXPECT_EQ(collection().DevNumMib.TotalSCSIDevice, 3);
    EXPECT_EQ(collection().DevNumMib.TotalHDDevice, 2);
    EXPECT_EQ(collection().DevNumMib.TotalCdromDevice, 1);
    EXPECT_EQ(collection().DevNumMib.TotalTapeDevice, 0);
    EXPECT_EQ(collection().DevNumMib.TotalIDEDevice, 0);
    EXPECT_EQ(collection().DevNumMib.TotalLifeSpan, 0);
}

TEST_F(DeviceBuild, AFailureFreesTheTables)
{
    EXPECT_EQ(collect(R"({"hosts": [{"driver": "ahci", "devices": [{"id": 0, "ata": true}, {"id": 1, "vendor": "X"}]}],
                          "files": {"storage.inf": "ahci\n"}})"),
              -1);
    EXPECT_EQ(collection().pSCSIDevTbl, nullptr);
    EXPECT_EQ(collection().pHDDevTbl, nullptr);
    EXPECT_TRUE(trace_.has(kFailure, "TAVStorageGetSCSIDeviceSerialNumber() failed!!", "MakeSCSIDeviceTable"));
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ ret=[-1]", "MakeSCSIDeviceTable"));
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ ret=[-1]", "InitDevice"));
}

TEST_F(DeviceBuild, WithoutDevicesNoTableIsBuilt)
{
    ASSERT_EQ(collect("{}"), 0);
    EXPECT_TRUE(trace_.textsOf("MakeSCSIDeviceTable").empty());
    EXPECT_TRUE(trace_.textsOf("MakeIDEDeviceTable").empty());
    EXPECT_EQ(collection().pSCSIDevTbl, nullptr);
}

TEST_F(DeviceBuild, OnlyDevicesThatAreLeftOutBuildNoTable)
{
    ASSERT_EQ(collect(R"({"hosts": [{"driver": "virtio_scsi", "devices": [{"vendor": "VIRT"}]}],
                          "files": {"storage.inf": "ahci\n"}})"),
              0);
    EXPECT_EQ(collection().TotalSCSIDevice, 0);
    EXPECT_TRUE(trace_.textsOf("MakeSCSIDeviceTable").empty());
    EXPECT_TRUE(trace_.has(kDetail, "######## SCSICtrlNum = 0", "GetSCSIDeviceTotalNumber"));
}

// The table's own checks, where counting would have ended the collection before.
class ScsiTable : public DeviceBuild {
protected:
    // A machine and one device that was counted.
    void prepare(const std::string &json, const char *type)
    {
        machine_ = std::make_unique<sim::Machine>(json);
        lists_.scsi(0, type);
        lists_.use();
        collection().TotalSCSIDevice = collection().TotalCdromDevice = 1;
        ASSERT_EQ(MallocDeviceTable(), 0);
    }
    // The "memfree" lines, in order.
    std::vector<std::string> freed() const
    {
        std::vector<std::string> texts = trace_.texts();
        std::erase_if(texts, [](const std::string &text) { return !text.starts_with("memfree("); });
        return texts;
    }
    HandMadeLists lists_;
};

TEST_F(ScsiTable, WithoutADeviceListFails)
{
    EXPECT_EQ(MakeSCSIDeviceTable(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ ret is 0!", "MakeSCSIDeviceTable"));
}

TEST_F(ScsiTable, WithoutAdaptersBuildingGoesOn)
{
    prepare("{}", "CD-ROM");
    EXPECT_EQ(MakeSCSIDeviceTable(), 0);
    EXPECT_TRUE(trace_.has(kDetail, "_OUT_ No SCSI Controller is found", "MakeSCSIDeviceTable"));
    EXPECT_EQ(collection().scsi_dev_cnt, 0);
}

TEST_F(ScsiTable, AdaptersThatCannotBeCountedFail)
{
    // A directory in place of the administrator's file: neither absent nor readable.
    prepare(R"({"hosts": [{"driver": "ahci"}]})", "CD-ROM");
    machine_->makeDirectory("/opt/qlm/tavkit_sa/data/storage.inf");
    EXPECT_EQ(MakeSCSIDeviceTable(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ Get SCSI Controller Error", "MakeSCSIDeviceTable"));
    EXPECT_EQ(GetSCSIDeviceTotalNumber(), -1);
}

TEST_F(ScsiTable, AUsbListThatCannotBeReadFails)
{
    prepare("{}", "CD-ROM");
    sim::countCallsOf("");
    sim::failNth(sim::Call::list, 1);
    EXPECT_EQ(MakeSCSIDeviceTable(), -1);
    sim::failNth(sim::Call::list, 1);
    EXPECT_EQ(GetSCSIDeviceTotalNumber(), -1);
    sim::failNth(sim::Call::list, 0);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ TAVStorageGetUSBCtrl() failed", "MakeSCSIDeviceTable"));
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ TAVStorageGetUSBCtrl() failed", "GetSCSIDeviceTotalNumber"));
}

TEST_F(ScsiTable, AnAdapterListThatCannotBeReadFails)
{
    prepare(R"({"hosts": [{"driver": "ahci"}], "files": {"storage.inf": "ahci\n"}})", "CD-ROM");
    sim::countCallsOf("");
    const struct {
        int (*run)();
        const char *name;
    } passes[] = {{MakeSCSIDeviceTable, "MakeSCSIDeviceTable"}, {GetSCSIDeviceTotalNumber, "GetSCSIDeviceTotalNumber"}};
    for (const auto &pass : passes) {
        SCOPED_TRACE(pass.name);
        int result = 0;
        for (unsigned nth = 1; !trace_.has(kFailure, "_OUT_ read_proc_scsi() failed", pass.name); ++nth) {
            ASSERT_LT(nth, 100U);
            trace_.clear();
            sim::failNth(sim::Call::open, nth);
            result = pass.run();
            sim::failNth(sim::Call::open, 0);
        }
        EXPECT_EQ(result, -1);
    }
}

TEST_F(ScsiTable, AnUnmanagedListThatCannotBeReadFails)
{
    prepare(R"({"hosts": [{"driver": "ahci"}], "files": {"storage.inf": "ahci\n"}})", "CD-ROM");
    machine_->makeDirectory("/opt/qlm/tavkit_sa/data/noscsi.inf");
    EXPECT_EQ(MakeSCSIDeviceTable(), -1);
    EXPECT_TRUE(trace_.has(kFailure, "_OUT_ CreateNoSCSIInfoTable() failed", "MakeSCSIDeviceTable"));
}

TEST_F(ScsiTable, ListsAreReleasedInTheirOrder)
{
    prepare(R"({"hosts": [{"driver": "ahci", "devices": [{"type": 5}]}, {"driver": "usb-storage"}],
                "files": {"storage.inf": "ahci\n", "noscsi.inf": "Vendor: ACME Model:\n"}})",
            "CD-ROM");
    DeviceFilter filter;
    ASSERT_EQ(filter.loadUSB(), 0);
    ASSERT_EQ(filter.loadHosts(), 0);
    ASSERT_EQ(filter.loadUnmanaged(), 0);
    ASSERT_TRUE(filter.checkUnmanaged);
    const std::vector<std::string> expected = {freedText(filter.pleafNoSCSI_Tbl), freedText(filter.usb.entries),
                                               freedText(filter.hosts.entries)};
    trace_.clear();
    filter.release();
    EXPECT_EQ(freed(), expected);

    // Both passes over the devices free their list before they return.
    EXPECT_EQ(GetSCSIDeviceTotalNumber(), 0);
    EXPECT_EQ(trace_.texts().back(), "_OUT_ TotalSCSIDevice=[2]"); // one was counted by hand
    EXPECT_EQ(MakeSCSIDeviceTable(), 0);
    EXPECT_EQ(trace_.texts().back(), "_OUT_ ret=[0]");
    EXPECT_EQ(collection().scsi_dev_cnt, 1);
}

} // namespace
