// SPDX-License-Identifier: Apache-2.0
#include "collect/collector.h"

#include "devcmd/smart/smart_watch.h"
#include "devcmd/transport/transport.h"
#include "support/machines.h"
#include "support/snapshot_fixture.h"

#include <memory>
#include <utility>

using namespace tavstrg;

namespace {

std::string machineOfKernel(const std::string &release)
{
    return R"({"kernel": ")" + release + R"("})";
}
TEST(Collection, WithoutDevicesCountsAreZeroAndArraysNull)
{
    const sim::Machine machine("{}");
    TraceRecorder trace;
    Snapshot now;
    int before = 0;
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        now.dat[id].datNum = 77;
        now.dat[id].datAdr = &before;
    }
    EXPECT_EQ(strgGetCurrentInfo(1, now.dat), 0);
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        EXPECT_EQ(now.count(id), 0) << id;
        EXPECT_EQ(std::exchange(now.dat[id].datAdr, nullptr), nullptr) << id;
    }
    EXPECT_TRUE(trace.has(kDetail, "_IN_ smartmode=[1]", "strgGetCurrentInfo"));
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ ret=[TAV_TRUE]", "strgGetCurrentInfo"));
}

TEST(Collection, SourcesThatAreNotThereAreNoFailure)
{
    const sim::Machine machine(R"({"sysfs": false})");
    TraceRecorder trace;
    Snapshot now;
    ASSERT_FALSE(machine.exists("/sys/bus/scsi/devices"));
    ASSERT_EQ(strgGetCurrentInfo(1, now.dat), 0);
    EXPECT_EQ(now.count(TAV_CID_STRG_SCSI), 0);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ CurrentInfo is NULL,No scsi disk exist", "GetSCSIDeviceTotalNumber"));
}

TEST(Collection, LooksAtTheNodeOfEachDiskOnce)
{
    const auto looks = [](size_t disks) {
        const sim::Machine machine(machines::ofEqualDisks(disks, "MODEL-0"));
        Snapshot now;
        sim::countCallsOf("");
        sim::resetCounts();
        EXPECT_EQ(strgGetCurrentInfo(1, now.dat), 0);
        EXPECT_EQ(now.count(TAV_CID_STRG_HDD), static_cast<int>(disks));
        return sim::callsMade(sim::Call::stat);
    };
    EXPECT_EQ(looks(6) - looks(3), 3U) << "the files of a device are there, so it is a directory";
}

TEST(Collection, TracesEachClassInItsOrder)
{
    const sim::Machine machine("{}");
    TraceRecorder trace;
    Snapshot now;
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    std::vector<std::string> expected{"_IN_ smartmode=[0]", "the kernel version >= 2.6.9, use ioctl SG_IO"};
    for (const char *const word : {"CTRL", "SCSI", "IDE", "HDD", "CDROM", "TAPE", "OPTM", "MISC", "LIFE"}) {
        expected.push_back(std::string("datCur[") + word + "] datNum=[0] datAdr=[(nil)]");
    }
    expected.emplace_back("_OUT_ ret=[TAV_TRUE]");
    EXPECT_EQ(trace.textsOf("strgGetCurrentInfo"), expected);
    for (const std::string &text : expected) {
        EXPECT_TRUE(trace.has(kDetail, text, "strgGetCurrentInfo")) << text;
    }
}

TEST(Collection, LeavesConfigurationAndTotalsAlone)
{
    const sim::Machine machine(kEverything);
    Snapshot now;
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    for (const int id : {TAV_CID_STRG_CONF, TAV_CID_STRG_TNUM}) {
        EXPECT_EQ(now.count(id), 1);
        EXPECT_EQ(now.dat[id].datAdr, nullptr);
    }
}

TEST(Collection, WithoutDescriptorsFails)
{
    const sim::Machine machine("{}");
    TraceRecorder trace;
    EXPECT_EQ(strgGetCurrentInfo(2, nullptr), -1);
    EXPECT_EQ(g_SmartMode, 2);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ param(descriptors) Failure!!", "strgGetCurrentInfo"));
}

TEST(Collection, DiscoveryWorksWithTheSmartModeOfItsOwnCollection)
{
    sim::Machine machine(R"({"hosts": [{"driver": "ahci", "devices": [{"ata": true}]}],
                                   "files": {"storage.inf": "ahci\n"}})");
    for (const int mode : {1, 0}) {
        g_SmartMode = 1 - mode;
        machine.forgetCommands();
        Snapshot now;
        ASSERT_EQ(strgGetCurrentInfo(mode, now.dat), 0);
        EXPECT_EQ(askedForSmart(machine).size(), mode == 1 ? 1U : 0U);
    }
}

TEST(Collection, AnOlderKernelThan269UsesTheOlderTransport)
{
    struct Case {
        const char *release;
        int32_t useSgIo;
    };
    const Case cases[] = {{"2.6.8", 0},  {"2.6.9", 1},  {"2.6.10", 1},
                          {"2.4.21", 0}, {"3.10.0", 1}, {"6.1.0-56-amd64", 1}};
    for (const Case &expected : cases) {
        const sim::Machine machine(machineOfKernel(expected.release));
        TraceRecorder trace;
        Snapshot now;
        use_sg_io = 7;
        ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0) << expected.release;
        EXPECT_EQ(use_sg_io, expected.useSgIo) << expected.release;
        EXPECT_TRUE(trace.has(kDetail,
                              expected.useSgIo == 1 ? "the kernel version >= 2.6.9, use ioctl SG_IO"
                                                    : "the kernel version < 2.6.9, use ioctl SCSI_IOCTL_SEND_COMMAND",
                              "strgGetCurrentInfo"));
    }
    use_sg_io = 1;
}

TEST(Collection, AReleaseThatCannotBeComparedFails)
{
    for (const char *const release : {"6.12.117+deb12-amd64", "linux"}) {
        const sim::Machine machine(machineOfKernel(release));
        TraceRecorder trace;
        Snapshot now;
        use_sg_io = 1;
        EXPECT_EQ(strgGetCurrentInfo(0, now.dat), -1) << release;
        EXPECT_EQ(use_sg_io, 1);
        EXPECT_EQ(trace.textsOf("strgGetCurrentInfo").back(), "_OUT_ version comaparing failed, stop the service.");
        EXPECT_TRUE(trace.has(kDetail, "_OUT_ version comaparing failed, stop the service."));
    }
}

TEST(Collection, AKernelWithoutAReleaseFails)
{
    const sim::Machine machine("{}");
    sim::countCallsOf("");
    sim::failNth(sim::Call::uname, 1);
    TraceRecorder trace;
    Snapshot now;
    EXPECT_EQ(strgGetCurrentInfo(0, now.dat), -1);
    sim::failNth(sim::Call::uname, 0);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ can't get the Kernel Version, stop the service.", "strgGetCurrentInfo"));
}

class Everything : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(strgGetCurrentInfo(0, now_.dat), 0); }

    sim::Machine machine_{kEverything};
    Snapshot now_;
};

TEST_F(Everything, HasTheControllers)
{
    ASSERT_EQ(now_.count(TAV_CID_STRG_CTRL), 5);
    struct Case {
        int16_t interfaceType;
        const char *model;
        uint16_t interrupt;
        const char *driver, *version;
    };
    const Case cases[] = {
        {0, "SCSI Controller", 65535, "mptspi", "Not Supported"}, // host 0
        {0, "SCSI Controller", 65535, "ahci", "Not Supported"},   // host 3
        {0, "SCSI Controller", 65535, "ahci", "Not Supported"},   // host 7
        {1, "IDE Controller(ide)", 14, "", ""},
        {1, "IDE Controller(ide)", 65535, "", ""},
    };
    for (int i = 0; i < 5; ++i) {
        const auto &record = now_.at<StrgCtrlRec>(TAV_CID_STRG_CTRL, i);
        EXPECT_EQ(record.Index, i + 1);
        EXPECT_EQ(record.InterfaceType, cases[i].interfaceType) << i;
        EXPECT_STREQ(record.Model, cases[i].model) << i;
        EXPECT_EQ(record.InterruptNumber, cases[i].interrupt) << i;
        EXPECT_STREQ(record.Driver, cases[i].driver) << i;
        EXPECT_STREQ(record.DriverVersion, cases[i].version) << i;
    }
}

TEST_F(Everything, HasTheManagedScsiDevicesInDiscoveryOrder)
{
    struct Case {
        int16_t type;
        uint16_t typeIndex, controller, bus, target, lun;
        const char *vendor, *model, *revision, *serial;
    };
    const Case cases[] = {
        {2, 1, 1, 0, 5, 0, "TAPEVEND", "TAPE", "1.0", ""},      {0, 1, 1, 1, 4, 0, "ATA", "DISK B", "1.0", "SERIAL-B"},
        {0, 2, 2, 0, 1, 2, "ATA", "DISK A", "R-A", "SERIAL-A"}, {1, 1, 2, 0, 2, 0, "CDVEND", "CDMODEL", "CD1", ""},
        {4, 1, 2, 0, 3, 0, "PROC", "PROCESSOR", "1.0", ""},     {3, 1, 3, 0, 6, 0, "OMVEND", "OPTICAL", "1.0", ""},
    };
    ASSERT_EQ(now_.count(TAV_CID_STRG_SCSI), 6);
    for (int i = 0; i < 6; ++i) {
        const auto &record = now_.at<StrgScsiRec>(TAV_CID_STRG_SCSI, i);
        EXPECT_EQ(record.Index, i + 1);
        EXPECT_EQ(record.DeviceType, cases[i].type) << i;
        EXPECT_EQ(record.DeviceTypeIndex, cases[i].typeIndex) << i;
        EXPECT_EQ(record.ControllerIndex, cases[i].controller) << i;
        EXPECT_EQ(record.Bus, cases[i].bus) << i;
        EXPECT_EQ(record.TargetID, cases[i].target) << i;
        EXPECT_EQ(record.LUN, cases[i].lun) << i;
        EXPECT_TRUE(std::string(record.Vendor).starts_with(cases[i].vendor)) << record.Vendor;
        EXPECT_TRUE(std::string(record.Model).starts_with(cases[i].model)) << record.Model;
        EXPECT_TRUE(std::string(record.FirmwareRevision).starts_with(cases[i].revision)) << record.FirmwareRevision;
        EXPECT_STREQ(record.SerialNumber, cases[i].serial) << i;
    }
}

TEST_F(Everything, HasTheIdeDevices)
{
    struct Case {
        int16_t type;
        uint16_t typeIndex, controller;
        int16_t configuration;
        const char *model;
    };
    const Case cases[] = {
        {2, 3, 4, 2, "IDE DISK"},   // hda
        {1, 2, 5, 2, "IDE FLOPPY"}, // hdc
        {3, 2, 5, 3, "IDE CDROM"},  // hdd
    };
    ASSERT_EQ(now_.count(TAV_CID_STRG_IDE), 3);
    for (int i = 0; i < 3; ++i) {
        const auto &record = now_.at<StrgIdeRec>(TAV_CID_STRG_IDE, i);
        EXPECT_EQ(record.Index, i + 1);
        EXPECT_EQ(record.DeviceType, cases[i].type) << i;
        EXPECT_EQ(record.DeviceTypeIndex, cases[i].typeIndex) << i;
        EXPECT_EQ(record.ControllerIndex, cases[i].controller) << i;
        EXPECT_EQ(record.IDEConfiguration, cases[i].configuration) << i;
        EXPECT_STREQ(record.Model, cases[i].model) << i;
        EXPECT_STREQ(record.FirmwareRevision, "Not Supported");
        EXPECT_STREQ(record.SerialNumber, "Unknown");
    }
}

TEST_F(Everything, HasTheHardDisksOfBothInterfaces)
{
    ASSERT_EQ(now_.count(TAV_CID_STRG_HDD), 3);
    const auto &first = now_.at<StrgHddRec>(TAV_CID_STRG_HDD, 0);
    EXPECT_EQ(first.Index, 1);
    EXPECT_EQ(first.InterfaceType, 0);
    EXPECT_EQ(first.InterfaceTypeIndex, 2);
    EXPECT_EQ(first.CylindersPerUnit, 1000U); // 2048000 sectors
    EXPECT_EQ(first.TracksPerCylinder, 64U);
    EXPECT_EQ(first.SectorsPerTrack, 32U);
    EXPECT_EQ(first.Capacity, 1000U);
    EXPECT_EQ(first.SmartStatus, 0);
    const auto &second = now_.at<StrgHddRec>(TAV_CID_STRG_HDD, 1);
    EXPECT_EQ(second.Index, 2);
    EXPECT_EQ(second.InterfaceTypeIndex, 3);
    EXPECT_EQ(second.CylindersPerUnit, 13054U); // 100 GiB
    EXPECT_EQ(second.TracksPerCylinder, 255U);
    EXPECT_EQ(second.SectorsPerTrack, 63U);
    EXPECT_EQ(second.Capacity, 102398U);
    const auto &third = now_.at<StrgHddRec>(TAV_CID_STRG_HDD, 2);
    EXPECT_EQ(third.Index, 3);
    EXPECT_EQ(third.InterfaceType, 1);
    EXPECT_EQ(third.InterfaceTypeIndex, 1);
    EXPECT_EQ(third.CylindersPerUnit, 16383U);
    EXPECT_EQ(third.TracksPerCylinder, 16U);
    EXPECT_EQ(third.SectorsPerTrack, 63U);
    EXPECT_EQ(third.Capacity, 20000U);
}

TEST_F(Everything, HasTheOtherClasses)
{
    struct Case {
        int id;
        std::vector<StrgDevRec> records;
    };
    const Case cases[] = {
        {TAV_CID_STRG_CDROM, {{1, 0, 4, 0}, {2, 1, 3, 0}}},
        {TAV_CID_STRG_TAPE, {{1, 0, 1, 0}}},
        {TAV_CID_STRG_OPTM, {{1, 0, 6, 0}}},
        {TAV_CID_STRG_MISC, {{1, 0, 5, 0}, {2, 1, 2, 0}}},
    };
    for (const Case &expected : cases) {
        ASSERT_EQ(now_.count(expected.id), static_cast<int>(expected.records.size())) << expected.id;
        for (int i = 0; i < now_.count(expected.id); ++i) {
            const auto &record = now_.at<StrgDevRec>(expected.id, i);
            const StrgDevRec &want = expected.records[static_cast<size_t>(i)];
            EXPECT_EQ(record.Index, want.Index);
            EXPECT_EQ(record.InterfaceType, want.InterfaceType);
            EXPECT_EQ(record.InterfaceTypeIndex, want.InterfaceTypeIndex);
            EXPECT_EQ(record.reserved, 0);
        }
    }
    EXPECT_EQ(now_.count(TAV_CID_STRG_LIFE), 0);
    EXPECT_EQ(now_.dat[TAV_CID_STRG_LIFE].datAdr, nullptr);
}

TEST_F(Everything, SendsKnownIoctlsOnlyAndClosesEverything)
{
    EXPECT_EQ(machine_.unknownIoctls(), 0U);
    EXPECT_EQ(machine_.openDescriptors(), 0);
}

TEST_F(Everything, ASecondCollectionIsTheSame)
{
    Snapshot again;
    ASSERT_EQ(strgGetCurrentInfo(0, again.dat), 0);
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        ASSERT_EQ(again.count(id), now_.count(id)) << id;
        if (again.count(id) > 0) {
            EXPECT_EQ(std::memcmp(again.dat[id].datAdr, now_.dat[id].datAdr,
                                  again.dat[id].datSize * static_cast<size_t>(again.count(id))),
                      0)
                << id;
        }
    }
}

TEST_F(Everything, LeavesNoCollectionBehind)
{
    EXPECT_EQ(currentCollection(), nullptr);
}

// Blocks that were allocated and not freed, by the trace.
std::set<std::string> liveBlocks(const TraceRecorder &trace)
{
    const auto addressIn = [](const std::string &text, const std::string &before, char end) {
        const size_t at = text.find(before);
        return at == std::string::npos ? std::string()
                                       : text.substr(at + before.size(), text.find(end, at) - at - before.size());
    };
    std::set<std::string> live;
    for (const TraceRecord &record : trace.records()) {
        if (record.function == "memalloc" || record.function == "memrealloc") {
            live.erase(addressIn(record.text, "ptr=[", ']'));
            if (record.text.starts_with("_OUT_ adr=[")) {
                EXPECT_TRUE(live.insert(addressIn(record.text, "adr=[", ']')).second);
            }
        } else if (record.text.starts_with("memfree(")) {
            EXPECT_EQ(live.erase(addressIn(record.text, "memfree(", ')')), 1U)
                << record.text << " of " << record.function;
        }
    }
    return live;
}

// With everything that leaves blocks behind on the way: both administrator's files, and a life-span table that grows.
TEST(CollectionBlocks, AllButTheRecordsAreFreedOnceInTheTrace)
{
    sim::Machine machine(kEverything);
    machine.write("/opt/qlm/tavkit_sa/data/noscsi.inf",
                  "[Management Port]\nVendor: NONE Model: X\n[Diagnostic Port]\n");
    const EnduranceTable table(machine, "DISK A,231,100,80,60,40,20,0\nDISK B,231,100,80,60,40,20,0\n");
    Snapshot now;
    const TraceRecorder trace;
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    ASSERT_EQ(now.count(TAV_CID_STRG_LIFE), 2);
    std::set<std::string> records;
    for (int id = TAV_CID_STRG_CTRL; id < TAV_CID_STRG_MAX; ++id) {
        char address[32];
        std::snprintf(address, sizeof address, "%p", now.dat[id].datAdr);
        records.insert(address);
    }
    EXPECT_EQ(liveBlocks(trace), records);
}

TEST(CollectionCost, EachDirectoryIsListedOnce)
{
    const sim::Machine machine(kEverything);
    Snapshot now;
    sim::countCallsOf("");
    sim::resetCounts();
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    EXPECT_EQ(sim::callsMade(sim::Call::list), 5U); // devices, host adapters, /proc/ide and its two channels
}

TEST(CollectionBlocks, OfAFailedCollectionAreFreedOnceInTheTrace)
{
    sim::Machine machine(kEverything);
    sim::countCallsOf("");
    for (unsigned nth = 1;; ++nth) {
        Snapshot now;
        const TraceRecorder trace;
        sim::failNth(sim::Call::list, nth);
        const int result = strgGetCurrentInfo(0, now.dat);
        sim::failNth(sim::Call::list, 0);
        if (result == 0) {
            EXPECT_GT(nth, 4U);
            break;
        }
        EXPECT_TRUE(liveBlocks(trace).empty()) << nth;
    }
}

TEST(Collection, AUsbDiskGetsNoEntry)
{
    sim::Machine machine(R"({"hosts": [
        {"driver": "usb-storage", "devices": [{"ata": true, "model": "STICK"}]},
        {"driver": "ahci", "devices": [{"ata": true, "model": "INNER", "serial": "INNER", "identifyWords": {"20": 0}}]}],
        "files": {"storage.inf": "ahci\nusb-storage\n"}})");
    const EnduranceTable table(machine, "STICK,231,100,80,60,40,20,0\nINNER,231,100,80,60,40,20,0\n");
    TraceRecorder trace;
    Snapshot now;
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    ASSERT_EQ(now.count(TAV_CID_STRG_SCSI), 1);
    EXPECT_EQ(now.count(TAV_CID_STRG_HDD), 1);
    ASSERT_EQ(now.count(TAV_CID_STRG_LIFE), 1); // the inner disk's
    EXPECT_EQ(now.at<StrgLifeRec>(TAV_CID_STRG_LIFE, 0).HDDIndex, 1);
    EXPECT_STREQ(now.at<StrgScsiRec>(TAV_CID_STRG_SCSI, 0).SerialNumber, "INNER");
    EXPECT_TRUE(trace.has(kDetail, "######## SCSICtrlNum = 1", "GetSCSIDeviceTotalNumber"));
}

TEST(Collection, WithoutAScsiDeviceCountsNone)
{
    const sim::Machine machine(R"({"hosts": [{"driver": "ahci"}], "files": {"storage.inf": "ahci\n"}})");
    TraceRecorder trace;
    Snapshot now;
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    EXPECT_TRUE(trace.has(kDetail, "_OUT_ CurrentInfo is NULL,No scsi disk exist", "GetSCSIDeviceTotalNumber"));
    EXPECT_EQ(now.count(TAV_CID_STRG_CTRL), 1);
}

TEST(Collection, ManyDisksKeepTheirNumbersAndSerials)
{
    std::string devices;
    for (int i = 0; i < 64; ++i) {
        devices += (i == 0 ? "" : ", ") +
                   (R"({"channel": )" + std::to_string(i / 16) + R"(, "id": )" + std::to_string(i % 16) +
                    R"(, "ata": true, "serial": "S)" + std::to_string(i) + R"(", "identifyWords": {"20": 0}})");
    }
    const sim::Machine machine(R"({"hosts": [{"driver": "ahci", "devices": [)" + devices +
                               R"(]}], "files": {"storage.inf": "ahci\n"}})");
    Snapshot now;
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    ASSERT_EQ(now.count(TAV_CID_STRG_HDD), 64);
    for (int i = 0; i < 64; ++i) {
        const auto &disk = now.at<StrgHddRec>(TAV_CID_STRG_HDD, i);
        EXPECT_EQ(disk.Index, i + 1);
        EXPECT_EQ(disk.InterfaceTypeIndex, i + 1);
        const auto &device = now.at<StrgScsiRec>(TAV_CID_STRG_SCSI, i);
        EXPECT_EQ(std::string(device.SerialNumber), "S" + std::to_string(device.Bus * 16 + device.TargetID));
    }
}

// The position in its class and the way back from there, for every device of every machine that comes with the sources.
class ExampleMachine : public testing::TestWithParam<const char *> {};

TEST_P(ExampleMachine, EveryDeviceAndItsClassEntryPointToEachOther)
{
    const sim::Machine machine(
        sim::Machine::readFile(std::string(TAV_SOURCE_DIR "/examples/machines/") + GetParam() + ".json"));
    Snapshot now;
    ASSERT_EQ(strgGetCurrentInfo(0, now.dat), 0);
    EXPECT_EQ(machine.unknownIoctls(), 0U);
    EXPECT_EQ(machine.openDescriptors(), 0);

    const int scsiClasses[] = {TAV_CID_STRG_HDD, TAV_CID_STRG_CDROM, TAV_CID_STRG_TAPE, TAV_CID_STRG_OPTM,
                               TAV_CID_STRG_MISC};
    const int ideClasses[] = {-1, TAV_CID_STRG_MISC, TAV_CID_STRG_HDD, TAV_CID_STRG_CDROM};
    const auto checkBack = [&](int id, int16_t interfaceType, uint16_t index, uint16_t typeIndex) {
        ASSERT_GE(typeIndex, 1);
        ASSERT_LE(typeIndex, now.count(id));
        // Every class record begins with the same three words.
        StrgDevRec back;
        std::memcpy(&back, static_cast<const char *>(now.dat[id].datAdr) + (typeIndex - 1U) * now.dat[id].datSize, 6);
        EXPECT_EQ(back.Index, typeIndex);
        EXPECT_EQ(back.InterfaceType, interfaceType);
        EXPECT_EQ(back.InterfaceTypeIndex, index);
    };
    for (int i = 0; i < now.count(TAV_CID_STRG_SCSI); ++i) {
        const auto &device = now.at<StrgScsiRec>(TAV_CID_STRG_SCSI, i);
        EXPECT_EQ(device.Index, i + 1);
        EXPECT_GE(device.ControllerIndex, 1);
        EXPECT_LE(device.ControllerIndex, now.count(TAV_CID_STRG_CTRL));
        checkBack(scsiClasses[device.DeviceType], 0, device.Index, device.DeviceTypeIndex);
    }
    for (int i = 0; i < now.count(TAV_CID_STRG_IDE); ++i) {
        const auto &device = now.at<StrgIdeRec>(TAV_CID_STRG_IDE, i);
        EXPECT_EQ(device.Index, i + 1);
        checkBack(ideClasses[device.DeviceType], 1, device.Index, device.DeviceTypeIndex);
    }
    int classRecords = 0;
    for (const int id : scsiClasses) {
        classRecords += now.count(id);
    }
    EXPECT_EQ(classRecords, now.count(TAV_CID_STRG_SCSI) + now.count(TAV_CID_STRG_IDE));
}

INSTANTIATE_TEST_SUITE_P(Collection, ExampleMachine,
                         testing::Values("empty", "ide", "large", "server", "usb", "workstation"),
                         [](const auto &example) { return std::string(example.param); });

} // namespace
