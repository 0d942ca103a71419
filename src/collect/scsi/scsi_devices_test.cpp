// SPDX-License-Identifier: Apache-2.0
// The device list from sysfs and from procfs.
#include "collect/scsi/scsi_parse.h"
#include "collect/scsi/scsi_variants.h"

#include "sim/sim.h"
#include "support/long_file.h"
#include "support/recording.h"
#include "support/short_memory.h"
#include "support/trace_recorder.h"
#include "support/trace_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

using namespace tavstrg;

namespace {

using Texts = std::vector<std::string>;
using Builder = int (*)(SCSIDeviceInfo **, int32_t *, int32_t *);

std::string address(const SCSIDeviceInfo &device)
{
    std::ostringstream text;
    text << device.host << ':' << device.channel << ':' << device.id << ':' << device.lun;
    return text.str();
}

class DeviceList : public testing::Test {
protected:
    ~DeviceList() override { FreeSCSIDeviceInfo(&list); }

    int build(Builder builder) { return builder(&list, &count, &status); }
    int buildSys() { return build(sys_GetSCSIDeviceInfoFromSys); }
    int buildProc() { return build(proc_GetSCSIDeviceInfoFromProc); }

    void expectEmpty() const
    {
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(machine.openDescriptors(), 0);
    }

    Texts addresses() const
    {
        Texts result;
        for (const SCSIDeviceInfo *node = list; node != nullptr; node = node->next) {
            EXPECT_EQ(node->sequence, static_cast<int32_t>(result.size()));
            result.push_back(address(*node));
        }
        EXPECT_EQ(count, static_cast<int32_t>(result.size()));
        return result;
    }

    void addSysDevice(const std::string &entry, const std::string &type = "0\n")
    {
        const std::string at = "/sys/bus/scsi/devices/" + entry;
        machine.write(at + "/vendor", "MAKER   \n");
        machine.write(at + "/model", "MODEL A         \n");
        machine.write(at + "/rev", "1.0 \n");
        machine.write(at + "/type", type);
    }

    void writeProc(const std::string &text) { machine.write("/proc/scsi/scsi", text); }

    sim::Machine machine{R"({"sysfs": false, "procfs": false})"};
    SCSIDeviceInfo *list = nullptr;
    int32_t count = 77;
    int32_t status = 77;
};

constexpr char kRecord[] = "Host: scsi3 Channel: 00 Id: 05 Lun: 03\n"
                           "  Vendor: MAKER    Model: MODEL A          Rev: 1.0 \n"
                           "  Type:   Direct-Access                    ANSI  SCSI revision: 05\n";

// What lsscsi printed of one device: the columns of its own format.
struct Printed {
    std::string type, vendor, model, rev;
};

std::string column(const std::string &line, size_t begin, size_t length)
{
    std::string text = line.substr(begin, length);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::map<std::string, Printed> printedDevices(const std::string &recording)
{
    std::map<std::string, Printed> devices;
    for (const std::string &line : recordedLines(recording, "lsscsi-gs.txt")) {
        devices[line.substr(1, line.find(']') - 1)] = {column(line, 13, 8), column(line, 21, 9), column(line, 30, 17),
                                                       column(line, 47, 4)};
    }
    return devices;
}

std::string trimmed(const char *text)
{
    return column(text, 0, std::string::npos);
}

// lsscsi's words for the types, and ours.
const std::map<std::string, std::string> kTypeWords = {
    {"disk", "Direct-Access"},
    {"tape", "Sequential-Access"},
    {"printer", "Printer"},
    {"process", "Proccessor"},
    {"worm", "WORM"},
    {"cd/dvd", "CD-ROM"},
    {"scanner", "Scanner"},
    {"optical", "Optical Device"},
    {"mediumx", "Medium Changer"},
    {"comms", "Commnunications"},
    {"storage", "Unknown"},
    {"enclosu", "Unknown"},
};

void compareWithPrinted(const SCSIDeviceInfo *list, std::map<std::string, Printed> printed)
{
    for (; list != nullptr; list = list->next) {
        const auto found = printed.find(address(*list));
        ASSERT_NE(found, printed.end()) << address(*list);
        EXPECT_EQ(trimmed(list->vendor), found->second.vendor) << address(*list);
        EXPECT_EQ(trimmed(list->model), found->second.model) << address(*list);
        EXPECT_EQ(trimmed(list->scsiRev), found->second.rev) << address(*list);
        EXPECT_EQ(std::string(list->type).substr(0, kTypeWords.at(found->second.type).size()),
                  kTypeWords.at(found->second.type))
            << address(*list);
        printed.erase(found);
    }
    EXPECT_TRUE(printed.empty()) << printed.begin()->first << " is missing";
}

} // namespace

using SysDeviceList = DeviceList;
using ProcDeviceList = DeviceList;

TEST_F(SysDeviceList, AgreesWithWhatLsscsiPrintedForEveryType)
{
    ASSERT_GT(layOutRecording(machine, "vm-types-6.1", "sys"), 50);
    ASSERT_EQ(buildSys(), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(count, 12);
    compareWithPrinted(list, printedDevices("vm-types-6.1"));
}

TEST_F(SysDeviceList, AgreesWithWhatLsscsiPrintedForMixedControllers)
{
    ASSERT_GT(layOutRecording(machine, "vm-pc-5.10-ide", "sys"), 50);
    ASSERT_EQ(buildSys(), 0);
    EXPECT_EQ(count, 15);
    compareWithPrinted(list, printedDevices("vm-pc-5.10-ide"));
}

TEST_F(SysDeviceList, IsInTheAlphabeticalOrderOfTheNames)
{
    for (const char *entry : {"2:0:0:0", "10:0:0:0", "1:0:10:0", "1:0:2:0", "0:0:0:0"}) {
        addSysDevice(entry);
    }
    ASSERT_EQ(buildSys(), 0);
    EXPECT_EQ(addresses(), (Texts{"0:0:0:0", "10:0:0:0", "1:0:10:0", "1:0:2:0", "2:0:0:0"}));
}

TEST_F(SysDeviceList, FollowsTheLinksThatTheKernelHasForEntries)
{
    machine.write("/sys/devices/pci0/host1/target1:0:0/1:0:0:0/type", "5\n");
    machine.link("/sys/bus/scsi/devices/1:0:0:0", "../../../devices/pci0/host1/target1:0:0/1:0:0:0");
    ASSERT_EQ(buildSys(), 0);
    ASSERT_EQ(addresses(), (Texts{"1:0:0:0"}));
    EXPECT_STREQ(list->type, "CD-ROM");
}

TEST_F(SysDeviceList, TakesOnlyDirectoriesWhoseNameReadsAsFourNumbers)
{
    addSysDevice("0:0:0:0");
    addSysDevice("host0");
    addSysDevice("target0:0:0");
    machine.write("/sys/bus/scsi/devices/0:0:1:0", "a file");
    machine.link("/sys/bus/scsi/devices/0:0:2:0", "../../../devices/gone");
    ASSERT_EQ(buildSys(), 0);
    EXPECT_EQ(addresses(), (Texts{"0:0:0:0"}));
}

TEST_F(SysDeviceList, ANameThatIsCutIsNoEntry)
{
    addSysDevice("0:0:0:0" + std::string(223, 'x'));
    addSysDevice("0:0:1:0" + std::string(224, 'x'));
    ASSERT_EQ(buildSys(), 0);
    EXPECT_EQ(addresses(), (Texts{"0:0:0:0"}));
}

TEST_F(SysDeviceList, ADeviceWithoutAVendorIsOneAndItsFilesAreTracedInOrder)
{
    addSysDevice("0:0:0:0");
    machine.remove("/sys/bus/scsi/devices/0:0:0:0/vendor");
    machine.write("/sys/bus/scsi/devices/0:0:1:0", "a file");
    TraceRecorder trace;
    ASSERT_EQ(buildSys(), 0);
    EXPECT_EQ(addresses(), (Texts{"0:0:0:0"}));
    EXPECT_EQ(trace.textsOf("GetInfFromFile"),
              (Texts{"_IN_", "_OUT_ [/sys/bus/scsi/devices/0:0:0:0/vendor] is not exist.", "_IN_",
                     "_OUT_ (0) result=[MODEL A]", "_IN_", "_OUT_ (0) result=[1.0]", "_IN_", "_OUT_ (0) result=[0]"}));
}

TEST_F(SysDeviceList, ADeviceThatHasFilesIsNotLookedAt)
{
    addSysDevice("0:0:0:0");
    addSysDevice("0:0:1:0");
    machine.remove("/sys/bus/scsi/devices/0:0:1:0/vendor");
    sim::countCallsOf("");
    sim::resetCounts();
    ASSERT_EQ(buildSys(), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(sim::callsMade(sim::Call::stat), 1U) << "of the one without a vendor";
}

TEST_F(SysDeviceList, ADeviceWithType12IsTypedUnknown)
{
    addSysDevice("0:0:0:0", "12\n");
    ASSERT_EQ(buildSys(), 0);
    EXPECT_STREQ(list->type, "Unknown");
}

TEST_F(SysDeviceList, EveryTypeOfOneDigitHasItsText)
{
    const char *const texts[] = {
        "Direct-Access", "Sequential-Access", "Printer",        "Proccessor",     "WORM",
        "CD-ROM",        "Scanner",           "Optical Device", "Medium Changer", "Commnunications"};
    for (int type = 0; type < 10; ++type) {
        addSysDevice("0:0:" + std::to_string(type) + ":0", std::to_string(type) + "\n");
    }
    ASSERT_EQ(buildSys(), 0);
    ASSERT_EQ(count, 10);
    for (const SCSIDeviceInfo *node = list; node != nullptr; node = node->next) {
        EXPECT_STREQ(node->type, texts[node->id]);
    }
}

TEST_F(SysDeviceList, AnAttributeThatIsMissingOrUnreadableIsAnEmptyText)
{
    machine.makeDirectory("/sys/bus/scsi/devices/0:0:0:0/vendor");
    machine.write("/sys/bus/scsi/devices/0:0:0:0/model", "MODEL\n");
    machine.write("/sys/bus/scsi/devices/0:0:0:0/rev", "");
    ASSERT_EQ(buildSys(), 0);
    ASSERT_EQ(count, 1);
    EXPECT_STREQ(list->vendor, "");
    EXPECT_STREQ(list->model, "MODEL");
    EXPECT_STREQ(list->scsiRev, "");
    EXPECT_STREQ(list->type, "Unknown");
    EXPECT_STREQ(list->ansiRev, "");
}

TEST_F(SysDeviceList, HugeAndBinaryAttributesAreCutAndTerminated)
{
    addSysDevice("0:0:0:0");
    machine.write("/sys/bus/scsi/devices/0:0:0:0/vendor", std::string(100000, 'v'));
    machine.write("/sys/bus/scsi/devices/0:0:0:0/model", std::string("\x01\xff\0after", 8));
    ASSERT_EQ(buildSys(), 0);
    EXPECT_STREQ(list->vendor, std::string(63, 'v').c_str());
    EXPECT_STREQ(list->model, "\x01\xff");
}

TEST_F(SysDeviceList, TracesEachDeviceAndTheirNumber)
{
    addSysDevice("3:2:5:7");
    TraceRecorder trace;
    ASSERT_EQ(buildSys(), 0);
    Texts texts = trace.textsOf("sys_GetSCSIDeviceInfoFromSys");
    EXPECT_EQ(texts, (Texts{"_IN_", "SCSIDeviceInfo(0) Host=[3] Channel=[2] ID=[5] LUN=[7]",
                            "                   Vender=[MAKER] Model=[MODEL A]",
                            "                   ScsiRev=[1.0] Type=[Direct-Access]", "_OUT_ (0) totalNumber=[1]"}));
    for (const std::string &text : texts) {
        EXPECT_TRUE(trace.has(0, text, "sys_GetSCSIDeviceInfoFromSys")) << text;
    }
}

TEST_F(SysDeviceList, AMissingDirectoryIsStatus1)
{
    EXPECT_EQ(buildSys(), -1);
    EXPECT_EQ(status, 1);
    expectEmpty();
}

TEST_F(SysDeviceList, AnyOtherListingErrorIsStatusMinus1)
{
    machine.write("/sys/bus/scsi/devices", "no directory");
    TraceRecorder trace;
    EXPECT_EQ(buildSys(), -1);
    EXPECT_EQ(status, -1);
    expectEmpty();
}

TEST_F(SysDeviceList, AnEmptyDirectoryIsAnEmptyListAndSuccess)
{
    machine.makeDirectory("/sys/bus/scsi/devices");
    EXPECT_EQ(buildSys(), 0);
    EXPECT_EQ(status, 0);
    expectEmpty();
}

TEST_F(SysDeviceList, AFailedAllocationFreesThePartialList)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    for (const char *entry : {"0:0:0:0", "0:0:1:0", "0:0:2:0"}) {
        addSysDevice(entry);
    }
    const TraceWatch watch(3, "SCSIDEVICEINFO alloc failed!!");
    for (unsigned nth = 1; nth < 1000 && watch.seen() < 2; ++nth) {
        const ShortMemory shortMemory(nth);
        if (buildSys() == 0) {
            FreeSCSIDeviceInfo(&list);
            ASSERT_TRUE(shortMemory.struck()); // a listing takes memory of its own
            continue;
        }
        ASSERT_EQ(list, nullptr);
        ASSERT_EQ(count, 0);
        ASSERT_TRUE(status == -9 || status == -1) << status;
    }
    EXPECT_EQ(watch.seen(), 2);
    EXPECT_EQ(status, -9);
}

TEST_F(SysDeviceList, SixtyFourDisksAndMoreAreAllThere)
{
    for (int id = 0; id < 130; ++id) {
        addSysDevice("0:0:" + std::to_string(id) + ":0");
    }
    ASSERT_EQ(buildSys(), 0);
    EXPECT_EQ(addresses().size(), 130U);
    EXPECT_EQ(machine.openDescriptors(), 0);
}

TEST_F(ProcDeviceList, AgreesWithWhatLsscsiPrinted)
{
    ASSERT_GT(layOutRecording(machine, "vm-pc-5.10-ide", "proc"), 10);
    ASSERT_EQ(buildProc(), 0);
    EXPECT_EQ(status, 0);
    compareWithPrinted(list, printedDevices("vm-pc-5.10-ide"));
}

TEST_F(ProcDeviceList, KeepsTheOrderOfTheFile)
{
    ASSERT_GT(layOutRecording(machine, "vm-pc-5.10-ide", "proc"), 10);
    ASSERT_EQ(buildProc(), 0);
    const Texts found = addresses();
    ASSERT_EQ(found.size(), 15U);
    EXPECT_EQ(found[5], "3:0:5:3");
    EXPECT_EQ(found[13], "13:0:0:0");
    EXPECT_EQ(found[14], "12:0:0:0");
}

TEST_F(ProcDeviceList, ReadsEveryFieldOfARecord)
{
    writeProc(std::string("Attached devices:\n") + kRecord);
    TraceRecorder trace;
    ASSERT_EQ(buildProc(), 0);
    ASSERT_EQ(addresses(), (Texts{"3:0:5:3"}));
    EXPECT_STREQ(list->vendor, "MAKER");
    EXPECT_STREQ(list->model, "MODEL A");
    EXPECT_STREQ(list->scsiRev, "1.0 "); // the line's end, unlike a key, does not trim
    EXPECT_STREQ(list->type, "Direct-Access                    ANSI  SCSI");
    EXPECT_STREQ(list->ansiRev, "05");
    EXPECT_TRUE(trace.has(0, "_OUT_ (0) totalNumber=[1]", "proc_GetSCSIDeviceInfoFromProc"));
}

TEST_F(ProcDeviceList, NoneAttachedYieldsAnEmptyListAndSuccess)
{
    writeProc("Attached devices: none\n");
    EXPECT_EQ(buildProc(), 0);
    EXPECT_EQ(status, 0);
    expectEmpty();
}

TEST_F(ProcDeviceList, StopsAtTheLineThatSaysNone)
{
    writeProc(std::string(kRecord) + "Attached devices: none\n" + kRecord);
    EXPECT_EQ(buildProc(), 0);
    EXPECT_EQ(addresses().size(), 1U);
}

TEST_F(ProcDeviceList, AMissingFileIsStatus1)
{
    EXPECT_EQ(buildProc(), -1);
    EXPECT_EQ(status, 1);
    expectEmpty();
}

TEST_F(ProcDeviceList, AnyOtherOpenErrorIsStatusMinus1)
{
    machine.makeDirectory("/proc/scsi/scsi");
    EXPECT_EQ(buildProc(), -1);
    EXPECT_EQ(status, -1);
    expectEmpty();
}

TEST_F(ProcDeviceList, AReadErrorIsStatusMinus1)
{
    writeProc(kRecord);
    sim::countCallsOf("");
    sim::failNth(sim::Call::read, 1);
    EXPECT_EQ(buildProc(), -1);
    sim::failNth(sim::Call::read, 0);
    EXPECT_EQ(status, -1);
    expectEmpty();
}

TEST_F(ProcDeviceList, ATruncatedRecordIsStatusMinus2)
{
    const std::string record = kRecord;
    const size_t second = record.find('\n') + 1;
    const size_t third = record.find('\n', second) + 1;
    for (const size_t end : {second, third}) {
        writeProc(record + record.substr(0, end));
        EXPECT_EQ(buildProc(), -1);
        EXPECT_EQ(status, -2);
        expectEmpty();
    }
}

TEST_F(ProcDeviceList, AFailedAllocationIsStatusMinus9)
{
    SKIP_UNLESS_MEMORY_CAN_BE_SHORT();
    writeProc(std::string(kRecord) + kRecord);
    const TraceWatch watch(3, "SCSIDEVICEINFO alloc failed!!");
    {
        const ShortMemory shortMemory(2);
        EXPECT_EQ(buildProc(), -1);
    }
    EXPECT_EQ(status, -9);
    EXPECT_EQ(watch.seen(), 1);
    expectEmpty();
}

TEST_F(ProcDeviceList, TheLastLineNeedsNoNewline)
{
    std::string text = kRecord;
    text.pop_back();
    writeProc(text);
    ASSERT_EQ(buildProc(), 0);
    EXPECT_STREQ(list->ansiRev, "05");
}

TEST_F(ProcDeviceList, ALineOfMoreThan1023CharactersComesInPieces)
{
    // What follows the first 1023 characters is read as another line, here a complete host line.
    writeProc(std::string(1023, 'x') + kRecord);
    ASSERT_EQ(buildProc(), 0);
    EXPECT_EQ(addresses(), (Texts{"3:0:5:3"}));
}

TEST_F(ProcDeviceList, BadContentIsHarmless)
{
    for (const std::string &text :
         {std::string(), std::string("\n"), std::string(1 << 20, 'x'), std::string(4096, '\0'),
          std::string("Host: scsi0\n"), std::string("Host: scsi0 Channel: 0 Id: 0 Lun:")}) {
        writeProc(text);
        EXPECT_EQ(buildProc(), 0);
        EXPECT_EQ(status, 0);
        expectEmpty();
    }
}

TEST_F(ProcDeviceList, AHugeFileIsReadToItsEnd)
{
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        text += kRecord;
    }
    writeProc(text);
    ASSERT_EQ(buildProc(), 0);
    EXPECT_EQ(addresses().size(), 5000U);
}

TEST_F(ProcDeviceList, BeyondTheBoundFailsInsteadOfShowingAPart)
{
    writeLong(machine, kProcDevices, kMaxProcDevices - 1000, std::string("\n") + kRecord);
    EXPECT_EQ(buildProc(), 0);
    EXPECT_EQ(addresses().size(), 1U);
    FreeSCSIDeviceInfo(&list);
    writeLong(machine, kProcDevices, kMaxProcDevices, std::string("\n") + kRecord);
    TraceRecorder trace;
    EXPECT_EQ(buildProc(), -1);
    EXPECT_EQ(status, -2);
    EXPECT_EQ(list, nullptr);
    EXPECT_TRUE(trace.has(3, "[/proc/scsi/scsi] is too long Failure!!", "proc_GetSCSIDeviceInfoFromProc"));
}

TEST_F(DeviceList, NullArgumentsAreStatusMinus3)
{
    for (const Builder builder : {sys_GetSCSIDeviceInfoFromSys, proc_GetSCSIDeviceInfoFromProc}) {
        TraceRecorder trace;
        status = 77;
        EXPECT_LT(builder(nullptr, &count, &status), 0);
        EXPECT_EQ(status, -3);
        status = 77;
        EXPECT_LT(builder(&list, nullptr, &status), 0);
        EXPECT_EQ(status, -3);
        EXPECT_LT(builder(&list, &count, nullptr), 0);
        EXPECT_TRUE(trace.has(3, "_OUT_ param(list) Failure!!"));
        EXPECT_TRUE(trace.has(3, "_OUT_ param(count) Failure!!"));
        EXPECT_TRUE(trace.has(3, "_OUT_ param(status) Failure!!"));
    }
}

TEST_F(DeviceList, FreeingReleasesEveryNodeAndNullsTheList)
{
    writeProc(std::string(kRecord) + kRecord);
    ASSERT_EQ(buildProc(), 0);
    TraceRecorder trace;
    FreeSCSIDeviceInfo(&list);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(trace.textsOf("FreeSCSIDeviceInfo").size(), 4U);
    FreeSCSIDeviceInfo(&list);
    FreeSCSIDeviceInfo(nullptr);
}
