// SPDX-License-Identifier: Apache-2.0
#include "support/store_fixture.h"

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <thread>

using namespace tavstrg;

namespace {

using testing::ElementsAreArray;

class Dump : public testing::Test {
protected:
    Dump() { fillSample(sample.dat); }

    std::vector<std::string> dump(int selector)
    {
        const TraceRecorder trace;
        strgLogDumpInstanceDat(selector, sample.dat);
        std::vector<std::string> lines;
        for (const TraceRecord &record : trace.records()) {
            EXPECT_EQ(record.function, "strgLogDumpInstanceDat");
            lines.push_back(std::to_string(record.level) + " " + record.text);
        }
        return lines;
    }

    OwnedRecords sample;
};

const std::vector<std::string> kConf = {
    "0 ++++ TAV_StorageConfig ++++",        "0     MonitorCycle             =[60]",
    "0     MonitorCycleMin          =[10]", "0     MonitorCycleMax          =[3600]",
    "0     MonitorCycleDefault      =[60]", "0     HardDiskSmartMode        =[1]",
};
const std::vector<std::string> kTnum = {
    "0 ++++ TAV_StorageTotalNumber ++++",  "0     ControllerTotalNumber    =[1]", "0     SCSIDeviceTotalNumber    =[2]",
    "0     IDEDeviceTotalNumber     =[1]", "0     HardDiskTotalNumber      =[3]", "0     CDROMTotalNumber         =[0]",
    "0     TapeTotalNumber          =[1]", "0     OpticalMemoryTotalNumber =[0]", "0     MiscTotalNumber          =[1]",
    "0     LifeSpanTotalNumber      =[2]",
};
const std::vector<std::string> kCtrl = {
    "0 ++++ TAV_StorageController[0] ++++",    "0     Index                    =[1]",
    "0     InterfaceType            =[-1]",    "0     Model                    =[ahci]",
    "0     InterruptNumber          =[65535]", "0     Driver                   =[ahci]",
    "0     DriverVersion            =[3.0]",
};

std::vector<std::string> scsiLines(int i, const std::string &index, const std::string &model)
{
    return {"0 ++++ TAV_StorageSCSIDevice[" + std::to_string(i) + "] ++++",
            "0     Index                    =[" + index + "]",
            "0     DeviceType               =[0]",
            "0     DeviceTypeIndex          =[" + index + "]",
            "0     ControllerIndex          =[0]",
            "0     Bus                      =[0]",
            "0     TargetID                 =[" + index + "]",
            "0     LUN                      =[0]",
            "0     Vendor                   =[ATA]",
            "0     Model                    =[" + model + "]",
            "0     FirmwareRevision         =[FW01]",
            "0     SerialNumber             =[SERIAL-" + index + "]"};
}

const std::vector<std::string> kIde = {
    "0 ++++ TAV_StorageIDEDevice[0] ++++",        "0     Index                    =[1]",
    "0     DeviceType               =[2]",        "0     DeviceTypeIndex          =[1]",
    "0     ControllerIndex          =[65535]",    "0     IDEConfiguration         =[2]",
    "0     Model                    =[IDE DISK]", "0     FirmwareRevision         =[A1]",
    "0     SerialNumber             =[IDE-1]",
};

std::vector<std::string> hddLines(int i, const std::vector<std::string> &values)
{
    const char *const names[] = {"Index                    ", "InterfaceType            ", "InterfaceTypeIndex       ",
                                 "CylindersPerUnit         ", "TracksPerCylinder        ", "SectorsPerTrack          ",
                                 "Capacity                 ", "SmartStatus              "};
    std::vector<std::string> lines = {"0 ++++ TAV_StorageHardDisk[" + std::to_string(i) + "] ++++"};
    for (size_t n = 0; n < values.size(); ++n) {
        lines.push_back(std::string("0     ") + names[n] + "=[" + values[n] + "]");
    }
    return lines;
}

const std::vector<std::string> kTape = {
    "0 ++++ TAV_StorageTape[0] ++++",
    "0     Index                    =[1]",
    "0     InterfaceType            =[0]",
    "0     InterfaceTypeIndex       =[3]",
};
const std::vector<std::string> kMisc = {
    "0 ++++ TAV_StorageMisc[0] ++++",
    "0     Index                    =[1]",
    "0     InterfaceType            =[1]",
    "0     InterfaceTypeIndex       =[2]",
};
const std::vector<std::string> kLife = {
    "0 ++++ TAV_StorageLifeSpan[0] ++++",  "0     Index                    =[1]",
    "0     HDDIndex                 =[1]", "0     EnduranceRemaining       =[5]",
    "0 ++++ TAV_StorageLifeSpan[1] ++++",  "0     Index                    =[2]",
    "0     HDDIndex                 =[2]", "0     EnduranceRemaining       =[-1]",
};

std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> parts)
{
    std::vector<std::string> all = {"0 _IN_"};
    for (const std::vector<std::string> &part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    all.emplace_back("0 _OUT_");
    return all;
}

std::vector<std::string> devices()
{
    std::vector<std::string> all =
        joined({kCtrl, scsiLines(0, "1", "ONE"), scsiLines(1, "2", "TWO"), kIde,
                hddLines(0, {"1", "0", "1", "130", "255", "63", "1024", "0"}),
                hddLines(1, {"2", "0", "2", "261", "255", "63", "2048", "1"}),
                hddLines(2, {"3", "1", "1", "5221", "16", "63", "-2147483648", "-1"}), kTape, kMisc, kLife});
    return {all.begin() + 1, all.end() - 1};
}

TEST_F(Dump, EachClassHasItsLines)
{
    EXPECT_THAT(dump(0), ElementsAreArray(joined({kConf})));
    EXPECT_THAT(dump(1), ElementsAreArray(joined({kTnum})));
    EXPECT_THAT(dump(2), ElementsAreArray(joined({kCtrl})));
    EXPECT_THAT(dump(3), ElementsAreArray(joined({scsiLines(0, "1", "ONE"), scsiLines(1, "2", "TWO")})));
    EXPECT_THAT(dump(4), ElementsAreArray(joined({kIde})));
    EXPECT_THAT(dump(7), ElementsAreArray(joined({kTape})));
    EXPECT_THAT(dump(9), ElementsAreArray(joined({kMisc})));
    EXPECT_THAT(dump(10), ElementsAreArray(joined({kLife})));
}

TEST_F(Dump, CdromAndOpticalMemoryHaveTheirNames)
{
    fill<StrgDevRec>(sample.dat[TAV_CID_STRG_CDROM], {{1, 0, 3, 0}});
    fill<StrgDevRec>(sample.dat[TAV_CID_STRG_OPTM], {{1, 0, 3, 0}});
    EXPECT_THAT(dump(6), testing::Contains("0 ++++ TAV_StorageCDROM[0] ++++"));
    EXPECT_THAT(dump(8), testing::Contains("0 ++++ TAV_StorageOpticalMemory[0] ++++"));
    EXPECT_EQ(dump(6).size(), 6U);
}

TEST_F(Dump, Selector5NumbersThreeHardDisksFromZero)
{
    EXPECT_THAT(dump(5),
                ElementsAreArray(joined({hddLines(0, {"1", "0", "1", "130", "255", "63", "1024", "0"}),
                                         hddLines(1, {"2", "0", "2", "261", "255", "63", "2048", "1"}),
                                         hddLines(2, {"3", "1", "1", "5221", "16", "63", "-2147483648", "-1"})})));
}

TEST_F(Dump, SelectorNinetyNinePrintsEverything)
{
    EXPECT_THAT(dump(99), ElementsAreArray(joined({kConf, kTnum, devices()})));
}

TEST_F(Dump, Selector98SkipsConfigurationAndTotals)
{
    std::free(takeRecords(sample.dat[TAV_CID_STRG_CONF]));
    std::free(takeRecords(sample.dat[TAV_CID_STRG_TNUM]));
    EXPECT_THAT(dump(98), ElementsAreArray(joined({devices()})));
}

TEST_F(Dump, NullConfigurationPrintsTheFailureAndNothingElse)
{
    std::free(takeRecords(sample.dat[TAV_CID_STRG_CONF]));
    for (const int selector : {0, 99}) {
        EXPECT_THAT(dump(selector),
                    testing::ElementsAre("0 _IN_", "3 _OUT_ param(datLog[TAV_CID_STRG_CONF].datAdr) Failure!!"));
    }
}

TEST_F(Dump, NullTotalsPrintTheFailureAfterTheConfiguration)
{
    std::free(takeRecords(sample.dat[TAV_CID_STRG_TNUM]));
    const std::string failure = "3 _OUT_ param(datLog[TAV_CID_STRG_TNUM].datAdr) Failure!!";
    EXPECT_THAT(dump(1), testing::ElementsAre("0 _IN_", failure));
    std::vector<std::string> expected = joined({kConf});
    expected.back() = failure;
    EXPECT_THAT(dump(99), ElementsAreArray(expected));
}

TEST_F(Dump, OtherSelectorsAndEmptyClassesPrintOnlyEntryAndExit)
{
    for (const int selector : {-1, 6, 8, 11, 97, 100}) {
        EXPECT_THAT(dump(selector), testing::ElementsAre("0 _IN_", "0 _OUT_")) << selector;
    }
}

TEST_F(Dump, TextWithoutTerminatorEndsWithItsField)
{
    changeRecords<StrgScsiRec>(sample.dat[TAV_CID_STRG_SCSI],
                               [](StrgScsiRec &record) { std::memset(record.Vendor, 'V', sizeof record.Vendor); });
    EXPECT_THAT(dump(3), testing::Contains("0     Vendor                   =[" + std::string(31, 'V') + "]"));
}

// For the thread sanitizer.
TEST_F(Dump, DoesNotRaceWithARebuildThatClearsTheDescriptors)
{
    std::atomic<bool> done{false};
    std::jthread dumper([&] {
        do {
            strgLogDumpInstanceDat(99, sample.dat);
        } while (!done);
    });
    for (int i = 0; i < 200; ++i) {
        OwnedRecords cleared;
        const std::unique_lock held(g_recordsLock);
        std::swap(cleared.dat, sample.dat);
    }
    done = true;
}

TEST_F(Dump, WithoutDescriptorsNothingIsPrinted)
{
    const TraceRecorder trace;
    strgLogDumpInstanceDat(99, nullptr);
    EXPECT_THAT(trace.texts(), testing::ElementsAre("_IN_", "_OUT_ param(datLog) Failure!!"));
}

TEST_F(Dump, WithoutAReceiverNoRecordIsRead)
{
    ASSERT_FALSE(traceIsReceived());
    std::future<void> dumped;
    {
        const std::unique_lock held(g_recordsLock); // reading a record would wait for it
        dumped = std::async(std::launch::async, [this] { strgLogDumpInstanceDat(99, sample.dat); });
        EXPECT_EQ(dumped.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    }
    dumped.get();
}

} // namespace
